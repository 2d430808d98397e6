// Calls of softmax, with and without zero points.
#include <algorithm>

#include "tests/cases/cases.h"

namespace cases {
namespace {

using namespace fuzz;

constexpr uint32_t kMostElements = 1200;

/// Bytes of an element, 4 for formats that are none of integers.
uint32_t element_of(const _NN_FMT &fmt) { return width_of(fmt) == 8 ? 1 : width_of(fmt) == 16 ? 2 : 4; }

bool takes_floats(const _NN_FMT &fmt) { return fmt.sign_bits == 1 && width_of(fmt) == 32; }

bool is_read(const _NN_FMT &fmt) {
  return takes_floats(fmt) || (element_of(fmt) != 4 && (fmt.sign_bits == 0 || fmt.sign_bits == 1));
}

template <class Block>
Block some_block(Source &source) {
  Block block{};
  fill_bytes(source, &block, sizeof block);
  block.in_addr = block.out_addr = block.work_buffer = 0;
  block.width = some_extent(source, kMostElements);
  block.height = some_extent(source, kMostElements / std::max<uint32_t>(block.width, 1));
  block.channel = some_extent(source, kMostElements / std::max<uint32_t>(block.width * block.height, 1));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 1, 2, 3, 1, 0}));
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.axis = one_of<int8_t>(source, {1, 2, 3, 1, 2, 3, 1, 2, 3, -1, -128, 0, 4, 127});
  const uint32_t count = uint32_t{block.width} * block.height * block.channel;
  const auto padding = [&] { return one_in(source, 3) ? below(source, 40) : 0; };
  block.in_batch_ofs = count * element_of(block.in_fmt) + padding();
  block.out_batch_ofs = count * element_of(block.out_fmt) + padding();
  if (one_in(source, 20)) block.in_batch_ofs = below(source, 100);
  if (one_in(source, 20)) block.out_batch_ofs = below(source, 100);
  return block;
}

template <class Block>
void share_memory(Source &source, Case &made, Block &block, const char *in, const char *out) {
  if (!is_read(block.in_fmt) || element_of(block.in_fmt) != element_of(block.out_fmt) || !one_in(source, 4)) return;
  block.out_batch_ofs = block.in_batch_ofs;
  made.in_place = out;
  made.in_place_of = in;
}

template <class Block>
void draw_process(Source &source, Case &made, const char *process, const char *item) {
  auto block = some_block<Block>(source);
  const bool is_item = one_in(source, 3);
  const char *in = is_item && !takes_floats(block.in_fmt) ? "in" : "in_addr";
  share_memory(source, made, block, in, is_item ? "out" : "out_addr");
  set_block(made, is_item ? item : process, block);
}

}  // namespace

void draw_softmax(Source &source, Case &made) {
  draw_process<_NN_SOFTMAX_PARM>(source, made, "tarvu_softmax_process", "tarvu_softmax_process_one_batch");
}

void draw_softmax_asym(Source &source, Case &made) {
  draw_process<_NN_SOFTMAX_ASYM_PARM>(source, made, "tarvu_softmax_asym_process",
                                      "tarvu_softmax_asym_process_one_batch");
}

void draw_softmax_tensor(Source &source, Case &made) {
  auto block = some_block<_NN_SOFTMAX_PARM>(source);
  share_memory(source, made, block, "in_addr", "out_addr");
  set_block(made, "tarvu_softmax_process_0", block);
}

void draw_softmax_floats(Source &source, Case &made) {
  const auto flat = some_block<_NN_SOFTMAX_PARM>(source);
  _NN_SOFTMAX_ASYM_PARM with_zero_points{};
  std::memcpy(&with_zero_points, &flat, offsetof(_NN_SOFTMAX_PARM, axis));
  with_zero_points.axis = flat.axis;
  static constexpr const char *kNames[] = {"tarvu_softmax_axis2_4vec",      "tarvu_softmax_axis3_4vec",
                                           "tarvu_softmax_axisn_1dim_vec",  "tarvu_softmax_asym_axis2_4vec",
                                           "tarvu_softmax_asym_axis3_4vec", "tarvu_softmax_asym_axisn_1dim_vec"};
  const uint32_t which = below(source, 6);
  choose_function(made, kNames[which]);
  made.call.argument[2] = which < 3 ? keep(made, flat) : keep(made, with_zero_points);
}

}  // namespace cases
