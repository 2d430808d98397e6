#include <algorithm>
#include <cstring>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

void plain_topk(const int16_t *in, uint32_t *work, int16_t *values, uint16_t *indices, uint32_t lines, uint32_t width,
                uint32_t k) {
  for (uint32_t line = 0; line < lines; ++line, in += width, values += k, indices += k) {
    for (uint32_t i = 0; i < width; ++i) work[i] = i;
    const auto ranks_first = [in](uint32_t a, uint32_t b) { return in[a] != in[b] ? in[a] > in[b] : a < b; };
    std::nth_element(work, work + k, work + width, ranks_first);
    std::sort(work, work + k, ranks_first);
    for (uint32_t i = 0; i < k; ++i) {
      values[i] = in[work[i]];
      indices[i] = static_cast<uint16_t>(work[i]);
    }
  }
}

void plain_gather_rows(const int8_t *in, const int16_t *list, int8_t *out, uint32_t width, uint32_t indices) {
  for (uint32_t i = 0; i < indices; ++i, out += width)
    std::memcpy(out, in + list[i] * static_cast<ptrdiff_t>(width), width);
}

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
    const auto plain = [=] { plain_topk(in.get(), work.get(), values.get(), indices.get(), lines, width, k); };
    return Calls{[in, values, indices, work, parm] { expect_ok(tarvu_topk_process(&parm)); }, plain};
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
    const auto plain = [=] { plain_gather_rows(in.get(), list.get(), out.get(), width, indices); };
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
    const auto plain = [=] { plain_gather_elements(in.get(), list.get(), out.get(), rows, width); };
    return Calls{[in, out, list, parm] { expect_ok(tarvu_gatherelement_process(&parm)); }, plain};
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
