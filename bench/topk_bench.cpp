#include <algorithm>

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

}  // namespace

void add_topk_workloads(std::vector<Workload> &suite) {
  suite.push_back(topk("topk5_64x1000", 64, 1000, 5));
  suite.push_back(topk("topk100_1x8732", 1, 8732, 100));
}

}  // namespace bench
