#include <algorithm>
#include <cstring>
#include <limits>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

enum Mode : uint32_t { kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage };

/// Square windows over a batch item of square planes.
struct Windows {
  Mode mode;
  uint32_t channels;
  uint32_t extent;
  uint32_t kernel = 0;
  uint32_t stride = 1;
  uint32_t pad = 0;

  uint32_t outputs() const {
    return mode == kGlobalMaximum || mode == kGlobalAverage ? 1 : (extent + 2 * pad - kernel) / stride + 1;
  }
};

/// Multipliers and shifts that a network would have, or those that leave a maximum as it is.
enum class Output { kScaled, kUnchanged };

/// The loop that anyone would write for these blocks: dense planes, square windows that stay below the padding, shifts to the right.
template <class T>
void plain_pool(const _NN_POOL_PARM &parm, int outputs) {
  const bool global = parm.mode == kGlobalMaximum || parm.mode == kGlobalAverage;
  const bool maximum = parm.mode == kLocalMaximum || parm.mode == kGlobalMaximum;
  const int extent = parm.width;
  const int kernel = global ? extent : parm.kernel_w;
  const int stride = global ? extent : parm.stride_w;
  const int pad = parm.pad_left;
  const int right = parm.in_scale.scale_shift + parm.out_scale.scale_shift;
  const int32_t round = right > 0 ? 1 << (right - 1) : 0;
  const auto *plane = reinterpret_cast<const T *>(parm.in_addr);
  auto *to = reinterpret_cast<T *>(parm.out_addr);
  for (int c = 0; c < parm.channel; ++c, plane += extent * extent) {
    for (int j = 0; j < outputs; ++j) {
      for (int i = 0; i < outputs; ++i) {
        const int y_begin = std::max(j * stride - pad, 0);
        const int x_begin = std::max(i * stride - pad, 0);
        const int y_end = std::min(j * stride - pad + kernel, extent);
        const int x_end = std::min(i * stride - pad + kernel, extent);
        int32_t folded = maximum ? std::numeric_limits<int32_t>::min() : 0;
        for (int y = y_begin; y < y_end; ++y) {
          for (int x = x_begin; x < x_end; ++x) {
            const int32_t element = plane[y * extent + x];
            folded = maximum ? std::max(folded, element) : folded + element;
          }
        }
        int32_t value = folded * parm.in_scale.scale_value;
        if (!maximum) {
          const int32_t divisor = parm.non_count_pad == 0 ? kernel * kernel : (y_end - y_begin) * (x_end - x_begin);
          value = (value + divisor / 2) / divisor;
        }
        value = (value * parm.out_scale.scale_value + round) >> right;
        *to++ =
            static_cast<T>(std::clamp<int32_t>(value, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
      }
    }
  }
}

template <class T>
Workload pool(const char *name, const char *variant, const Windows &windows, Output output,
              uint32_t non_count_pad = 0) {
  const uint32_t outputs = windows.outputs();
  const bool global = outputs == 1;
  const size_t inputs = size_t{windows.channels} * windows.extent * windows.extent;
  const size_t all_outputs = size_t{windows.channels} * outputs * outputs;
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(inputs, 31);
    const std::shared_ptr<T[]> out = make_buffer<T>(all_outputs);
    _NN_POOL_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.width = parm.height = static_cast<uint16_t>(windows.extent);
    parm.channel = static_cast<uint16_t>(windows.channels);
    parm.batch = 1;
    parm.in_line_ofs = windows.extent * sizeof(T);
    parm.in_channel_ofs = windows.extent * parm.in_line_ofs;
    parm.in_batch_ofs = windows.channels * parm.in_channel_ofs;
    parm.out_line_ofs = outputs * sizeof(T);
    parm.out_channel_ofs = outputs * parm.out_line_ofs;
    parm.out_batch_ofs = windows.channels * parm.out_channel_ofs;
    parm.in_fmt = parm.out_fmt = support::format(8 * sizeof(T), 4, std::is_signed_v<T> ? 1 : 0);
    parm.in_scale = output == Output::kScaled ? support::scale(93, 5) : support::scale(1, 0);
    parm.out_scale = output == Output::kScaled ? support::scale(45, 7) : support::scale(1, 0);
    parm.mode = windows.mode;
    parm.kernel_w = parm.kernel_h = static_cast<uint8_t>(windows.kernel);
    parm.stride_w = parm.stride_h = static_cast<uint8_t>(windows.stride);
    parm.pad_top = parm.pad_bottom = parm.pad_left = parm.pad_right = static_cast<uint8_t>(windows.pad);
    parm.floor_mode = 1;
    parm.non_count_pad = non_count_pad;
    const std::shared_ptr<T[]> plain_out = make_buffer<T>(all_outputs);
    _NN_POOL_PARM plain_parm = parm;
    plain_parm.out_addr = address_of(plain_out);
    const auto ours = [in, out, parm] { expect_ok(tarvu_pool_process(&parm)); };
    const auto plain = [in, plain_out, plain_parm, outputs] { plain_pool<T>(plain_parm, static_cast<int>(outputs)); };
    ours();
    plain();
    if (std::memcmp(out.get(), plain_out.get(), all_outputs * sizeof(T)) != 0) {
      std::fprintf(stderr, "tarvu_bench: %s: the plain loop does other work\n", name);
      std::exit(1);
    }
    return Calls{ours, plain};
  };
  return {name,
          variant,
          global ? "input" : "output",
          global ? inputs : all_outputs,
          std::max(inputs, all_outputs) * sizeof(T),
          prepare};
}

}  // namespace

void add_pool_workloads(std::vector<Workload> &suite) {
  const Windows max_k3s2p1 = {kLocalMaximum, 64, 112, 3, 2, 1};
  const Windows average_k3s2p1 = {kLocalAverage, 64, 112, 3, 2, 1};
  const char *padding_not_counted = "padding_not_counted";
  suite.push_back(pool<uint8_t>("maxpool_k3s2p1_8b_1x64x112x112", "default", max_k3s2p1, Output::kScaled));
  suite.push_back(pool<uint8_t>("maxpool_k3s2p1_8b_1x64x112x112", "identity_output", max_k3s2p1, Output::kUnchanged));
  suite.push_back(
      pool<uint8_t>("maxpool_k2s2_8b_1x64x112x112", "default", {kLocalMaximum, 64, 112, 2, 2, 0}, Output::kScaled));
  suite.push_back(
      pool<uint8_t>("maxpool_k3s1p1_8b_1x192x28x28", "default", {kLocalMaximum, 192, 28, 3, 1, 1}, Output::kScaled));
  suite.push_back(pool<int16_t>("maxpool_k3s2p1_16b_1x64x112x112", "default", max_k3s2p1, Output::kScaled));
  suite.push_back(pool<uint8_t>("avgpool_k3s2p1_8b_1x64x112x112", "default", average_k3s2p1, Output::kScaled));
  suite.push_back(
      pool<uint8_t>("avgpool_k3s2p1_8b_1x64x112x112", padding_not_counted, average_k3s2p1, Output::kScaled, 1));
  suite.push_back(
      pool<uint8_t>("avgpool_k3s1p1_8b_1x192x28x28", "default", {kLocalAverage, 192, 28, 3, 1, 1}, Output::kScaled));
  suite.push_back(pool<uint8_t>("gavgpool_8b_1x1024x7x7", "default", {kGlobalAverage, 1024, 7}, Output::kScaled));
  suite.push_back(pool<uint8_t>("gmaxpool_8b_1x1024x7x7", "default", {kGlobalMaximum, 1024, 7}, Output::kScaled));
  // Two cases of equal lines: the cost of an output grows with the sides of the window, not with its area.
  suite.push_back(
      pool<uint8_t>("maxpool_k3s1p1_8b_1x16x112x112", "default", {kLocalMaximum, 16, 112, 3, 1, 1}, Output::kScaled));
  suite.push_back(
      pool<uint8_t>("maxpool_k13s1p1_8b_1x16x112x112", "default", {kLocalMaximum, 16, 112, 13, 1, 1}, Output::kScaled));
}

}  // namespace bench
