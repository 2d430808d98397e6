#include <cstring>

#include "bench/bench.h"
#include "tests/reference/tarvu_gatherelement_c_reference.h"
#include "tests/reference/tarvu_topk_c_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

/// Sorted values and indices of the largest elements of dense 16-bit lines.
Workload topk(const char *name, uint32_t lines, uint32_t width, uint32_t k) {
  const size_t count = size_t{lines} * width;
  const auto prepare = [=] {
    const std::shared_ptr<int16_t[]> in = random_buffer<int16_t>(count, 31);
    const std::shared_ptr<int16_t[]> values = make_buffer<int16_t>(size_t{lines} * k);
    const std::shared_ptr<uint16_t[]> indices = make_buffer<uint16_t>(size_t{lines} * k);
    const std::shared_ptr<uint32_t[]> work = make_buffer<uint32_t>(width);
    _NN_TOPK_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(values);
    parm.out_index_addr = address_of(indices);
    parm.work_buffer = address_of(work);
    parm.width = static_cast<uint16_t>(width);
    parm.height = static_cast<uint16_t>(lines);
    parm.channel = parm.batch = 1;
    parm.out_line_ofs = parm.out_index_line_ofs = 2 * k;
    parm.out_channel_ofs = parm.out_index_channel_ofs = 2 * k * lines;
    parm.out_batch_ofs = parm.out_index_batch_ofs = 2 * k * lines;
    parm.in_fmt = support::format(16, 8, 1);
    parm.axis = 3;
    parm.largest = 1;
    parm.sorted = 1;
    parm.k = k;
    const auto run = [=](_QX_RESULT (*process)(const _NN_TOPK_PARM *)) {
      return [in, values, indices, work, parm, process] { expect_ok(process(&parm)); };
    };
    return Calls{run(tarvu_topk_process), run(reference::tarvu_topk_process)};
  };
  return {name, "default", "input", count, count * sizeof(int16_t), prepare};
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
    const auto plain = [in, out, list, width, indices] {
      for (uint32_t i = 0; i < indices; ++i) {
        std::memcpy(out.get() + size_t{i} * width, in.get() + static_cast<size_t>(list[i]) * width, width);
      }
    };
    return Calls{[in, out, list, parm] { expect_ok(tarvu_gather_process(&parm)); }, plain};
  };
  return {name, "default", "byte", count, count, prepare};
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
    const auto run = [=](_QX_RESULT (*process)(const _NN_GATHERELEMENT_PARM *)) {
      return [in, out, list, parm, process] { expect_ok(process(&parm)); };
    };
    return Calls{run(tarvu_gatherelement_process), run(reference::tarvu_gatherelement_process)};
  };
  return {name, "default", "output", count, count, prepare};
}

}  // namespace

void add_select_workloads(std::vector<Workload> &suite) {
  suite.push_back(topk("topk5_64x1000", 64, 1000, 5));
  suite.push_back(topk("topk100_1x8732", 1, 8732, 100));
  suite.push_back(gather_rows("gather_rows_8b_1000x512_i256", 1000, 512, 256));
  suite.push_back(gather_elements("gather_elem_8b_256x1024", 256, 1024));
}

}  // namespace bench
