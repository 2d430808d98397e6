#include <cstring>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

void plain_gather_rows(const int8_t *in, const int16_t *list, int8_t *out, uint32_t width, uint32_t indices) {
  for (uint32_t i = 0; i < indices; ++i, out += width)
    std::memcpy(out, in + list[i] * static_cast<ptrdiff_t>(width), width);
}

/// Rows of a dense 8-bit matrix, by 16-bit indices.
Workload gather_rows(const char *name, uint32_t rows, uint32_t width, uint32_t indices) {
  const size_t count = size_t{indices} * width;
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(size_t{rows} * width, 32);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(count);
    const std::shared_ptr<int16_t[]> list = make_buffer<int16_t>(indices);
    support::Random random(33);
    for (uint32_t i = 0; i < indices; ++i) list[i] = static_cast<int16_t>(random.below(rows));
    _NN_GATHER_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.ind_addr = address_of(list);
    parm.in_width = parm.out_width = static_cast<uint16_t>(width);
    parm.in_height = static_cast<uint16_t>(rows);
    parm.ind_width = parm.out_height = static_cast<uint16_t>(indices);
    parm.in_line_ofs = parm.out_line_ofs = width;
    parm.in_fmt = parm.out_fmt = support::format(8, 4, 1);
    parm.ind_fmt = support::format(16, 0, 1);
    parm.axis = 0;
    const auto plain = [=] { plain_gather_rows(in.get(), list.get(), out.get(), width, indices); };
    return Calls{[in, out, list, parm] { expect_ok(tarvu_gather_process(&parm)); }, plain};
  };
  return {name, "default", "byte", count, count, prepare};
}

}  // namespace

void add_gather_workloads(std::vector<Workload> &suite) {
  suite.push_back(gather_rows("gather_rows_8b_1000x512_i256", 1000, 512, 256));
}

}  // namespace bench
