// Calls of the softmax by table.
#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_softmax_table(Source &source, Case &made) {
  _NN_SOFTMAX_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = 0;
  block.channel = some_extent(source, 300);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 1, 5, 0}));
  if (one_in(source, 3)) block.in_fmt = support::format(16, pick(source, 0, 10), 1);
  std::vector<uint8_t> elements(size_t{2} * block.channel * block.batch);
  if (one_in(source, 2)) {  // near each other, but for one
    for (size_t i = 0; i < elements.size(); i += 2) elements[i] = static_cast<uint8_t>(below(source, 100));
    if (!elements.empty()) elements.back() = one_of<uint8_t>(source, {0, 0x7F, 0x80});
  } else {
    fill_bytes(source, elements.data(), elements.size());
  }
  made.contents.push_back({"in_addr", elements});
  if (one_in(source, 3)) {
    made.in_place = "out_addr";
    made.in_place_of = "in_addr";
  }
  set_block(made, one_in(source, 8) ? "vendor_ais_checkparm" : "vendor_softmax_process", block);
}

}  // namespace cases
