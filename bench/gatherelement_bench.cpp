#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

/// Like the operator, with the rule for indices below 0.
void plain_gather_elements(const int8_t *in, const int16_t *list, int8_t *out, uint32_t rows, uint32_t width) {
  const int8_t *from = in;
  for (uint32_t row = 0; row < rows; ++row) {
    for (uint32_t column = 0; column < width; ++column) {
      const int32_t index = *list++;
      if (index != -1) {
        const uint32_t position = static_cast<uint32_t>(index) + (index < 0 ? rows * width : 0);
        from = in + position * width;
      }
      *out++ = from[column];
    }
  }
}

/// Elements of a dense 8-bit matrix, whose 16-bit indices choose the row.
Workload gather_elements(const char *name, uint32_t rows, uint32_t width) {
  const size_t count = size_t{rows} * width;
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(count, 34);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(count);
    const std::shared_ptr<int16_t[]> list = make_buffer<int16_t>(count);
    support::Random random(35);
    for (size_t i = 0; i < count; ++i) list[i] = static_cast<int16_t>(random.below(rows));
    _NN_GATHERELEMENT_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.ind_addr = address_of(list);
    parm.in_width = parm.out_width = static_cast<uint16_t>(width);
    parm.in_height = parm.out_height = static_cast<uint16_t>(rows);
    parm.in_line_ofs = width;
    parm.ind_line_ofs = 2 * width;
    parm.in_fmt = parm.out_fmt = support::format(8, 4, 1);
    parm.ind_fmt = support::format(16, 0, 1);
    parm.axis = 0;
    const auto plain = [=] { plain_gather_elements(in.get(), list.get(), out.get(), rows, width); };
    return Calls{[in, out, list, parm] { expect_ok(tarvu_gatherelement_process(&parm)); }, plain};
  };
  return {name, "default", "output", count, count, prepare};
}

}  // namespace

void add_gatherelement_workloads(std::vector<Workload> &suite) {
  suite.push_back(gather_elements("gather_elem_8b_256x1024", 256, 1024));
}

}  // namespace bench
