/// \file conversion_runs.h
/// Calls of single conversion kernels on literal runs.
#ifndef TARVU_TESTS_CONVERT_CONVERSION_RUNS_H
#define TARVU_TESTS_CONVERT_CONVERSION_RUNS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace convert_tests {

template <class From, class To>
using FlatKernel = void (*)(const From *, To *, int16_t, uint32_t, float);
template <class To>
using RoundedKernel = void (*)(const float *, To *, int16_t, uint32_t, uint32_t, float);
template <class From, class To>
using ZeroPointKernel = void (*)(const From *, To *, uint32_t, int16_t, int32_t, float);

template <class From, class To>
std::vector<To> flat(FlatKernel<From, To> kernel, const std::vector<From> &source, int frac_bits = 0,
                     float scale = 1.0f) {
  std::vector<To> destination(source.size());
  kernel(source.data(), destination.data(), static_cast<int16_t>(frac_bits), static_cast<uint32_t>(source.size()),
         scale);
  return destination;
}

template <class To>
std::vector<To> rounded_run(RoundedKernel<To> kernel, const std::vector<float> &source, uint32_t code,
                            int frac_bits = 0, float scale = 1.0f, To before = To{99}) {
  std::vector<To> destination(source.size(), before);
  kernel(source.data(), destination.data(), static_cast<int16_t>(frac_bits), static_cast<uint32_t>(source.size()), code,
         scale);
  return destination;
}

template <class From, class To>
std::vector<To> zero_point_run(ZeroPointKernel<From, To> kernel, const std::vector<From> &source, int32_t zero_point,
                               int frac_bits = 0, float scale = 1.0f) {
  std::vector<To> destination(source.size());
  kernel(source.data(), destination.data(), static_cast<uint32_t>(source.size()), static_cast<int16_t>(frac_bits),
         zero_point, scale);
  return destination;
}

/// What one value becomes in a block and in the tail behind it.
template <class To>
struct Positions {
  To block;
  To tail;
  bool operator==(const Positions &) const = default;
};

template <class To>
std::ostream &operator<<(std::ostream &out, const Positions<To> &at) {
  return out << +at.block << " in a block, " << +at.tail << " in a tail";
}

/// Elements in a block of the rounded and of the zero-point kernels to this type.
template <class To>
inline constexpr size_t kBlock = sizeof(To) == 1 ? 8 : 16;

/// The outcome of a run of one block and one element more, all of the same value; the lanes of the block must agree.
template <class To>
Positions<To> positions(const std::vector<To> &run) {
  for (size_t i = 1; i < kBlock<To>; ++i) EXPECT_EQ(+run[i], +run[0]) << "lane " << i << " of the block";
  return {run[0], run[kBlock<To>]};
}

template <class To>
Positions<To> rounded_at(RoundedKernel<To> kernel, float x, uint32_t code, int frac_bits = 0, float scale = 1.0f) {
  return positions(rounded_run(kernel, std::vector<float>(kBlock<To> + 1, x), code, frac_bits, scale));
}

template <class To>
Positions<To> zero_point_at(ZeroPointKernel<float, To> kernel, float x, int32_t zero_point, int frac_bits = 0,
                            float scale = 1.0f) {
  return positions(zero_point_run(kernel, std::vector<float>(kBlock<To> + 1, x), zero_point, frac_bits, scale));
}

}  // namespace convert_tests

#endif  // TARVU_TESTS_CONVERT_CONVERSION_RUNS_H
