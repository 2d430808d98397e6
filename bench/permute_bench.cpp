#include <array>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

constexpr uint32_t kWidth = 56;
constexpr uint32_t kHeight = 56;
constexpr uint32_t kChannels = 64;
constexpr size_t kElements = size_t{kWidth} * kHeight * kChannels;

/// Shape and steps (elements of the input) in the order of the output's axes.
template <class T>
void plain_permute(const T *__restrict source, T *__restrict destination, std::array<size_t, 4> count,
                   std::array<size_t, 4> step) {
  for (size_t i = 0; i < count[0]; ++i) {
    for (size_t j = 0; j < count[1]; ++j) {
      for (size_t k = 0; k < count[2]; ++k) {
        const T *line = source + i * step[0] + j * step[1] + k * step[2];
        for (size_t l = 0; l < count[3]; ++l) *destination++ = line[l * step[3]];
      }
    }
  }
}

/// Dense tensors. `extent` is the shape in memory, by axis number: batch, channel, height, width.
template <class T>
Workload permute(const char *name, const std::array<uint32_t, 4> &extent, const std::array<int8_t, 4> &order) {
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(kElements, 22);
    const std::shared_ptr<T[]> out = make_buffer<T>(kElements);
    const auto out_extent = [&](size_t axis) { return extent[static_cast<size_t>(order[axis])]; };
    _NN_PERMUTE_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.batch = static_cast<uint16_t>(extent[0]);
    parm.channel = static_cast<uint16_t>(extent[1]);
    parm.height = static_cast<uint16_t>(extent[2]);
    parm.width = static_cast<uint16_t>(extent[3]);
    parm.in_line_ofs = extent[3] * sizeof(T);
    parm.in_channel_ofs = extent[2] * parm.in_line_ofs;
    parm.in_batch_ofs = extent[1] * parm.in_channel_ofs;
    parm.out_line_ofs = out_extent(3) * sizeof(T);
    parm.out_channel_ofs = out_extent(2) * parm.out_line_ofs;
    parm.out_batch_ofs = out_extent(1) * parm.out_channel_ofs;
    parm.in_fmt = parm.out_fmt = support::format(8 * sizeof(T), 4, 1);
    for (size_t i = 0; i < 4; ++i) parm.order[i] = order[i];
    const size_t in_step[4] = {kElements, size_t{extent[2]} * extent[3], extent[3], 1};
    std::array<size_t, 4> count{};
    std::array<size_t, 4> step{};
    for (size_t i = 0; i < 4; ++i) {
      count[i] = out_extent(i);
      step[i] = in_step[static_cast<size_t>(order[i])];
    }
    const auto plain = [in, out, count, step] { plain_permute(in.get(), out.get(), count, step); };
    return Calls{[in, out, parm] { expect_ok(tarvu_permute_process(&parm)); }, plain};
  };
  return {name, "default", "element", kElements, kElements * sizeof(T), prepare};
}

}  // namespace

void add_permute_workloads(std::vector<Workload> &suite) {
  const std::array<uint32_t, 4> planes = {1, kChannels, kHeight, kWidth};
  const std::array<uint32_t, 4> interleaved = {1, kHeight, kWidth, kChannels};
  suite.push_back(permute<int8_t>("permute_nchw_nhwc_8b_1x64x56x56", planes, {0, 2, 3, 1}));
  suite.push_back(permute<int8_t>("permute_nhwc_nchw_8b_1x64x56x56", interleaved, {0, 3, 1, 2}));
  suite.push_back(permute<int16_t>("permute_nchw_nhwc_16b_1x64x56x56", planes, {0, 2, 3, 1}));
  suite.push_back(permute<int8_t>("permute_chan_swap_8b_1x64x56x56", planes, {0, 2, 1, 3}));
}

}  // namespace bench
