#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

/// Every pair of widths and signs, every direction of the shift, runs of every length of two blocks and more, apart
/// and in place.
void add_reformat(Report &report) {
  constexpr uint32_t kCount = 300;
  support::Random random(1001);
  std::vector<uint8_t> in(2 * kCount);
  std::vector<uint8_t> out(2 * kCount);
  for (const int in_width : {8, 16}) {
    for (const int out_width : {8, 16}) {
      for (const int sign_bits : {0, 1}) {
        Digest digest;
        for (const int difference : {-33, -32, -18, -9, -3, -1, 0, 1, 2, 7, 15, 31, 32, 40}) {
          const _NN_FMT in_fmt = support::format(in_width, 5 + difference, 1);
          const _NN_FMT out_fmt = support::format(out_width, 5, sign_bits);
          for (const uint32_t count : {1u, 7u, 16u, 31u, 33u, 64u, 65u, 100u, kCount}) {
            random.fill(in.data(), in.size());
            random.fill(out.data(), out.size());
            tarvu_convert_fmt_c(in.data(), out.data(), count, &in_fmt, &out_fmt, nullptr, nullptr);
            digest.bytes(out.data(), out.size());
            tarvu_convert_fmt_c(in.data(), in.data(), count, &in_fmt, &out_fmt, nullptr, nullptr);
            digest.bytes(in.data(), in.size());
          }
        }
        report.add("convert_fmt_" + std::to_string(in_width) + "_to_" + (sign_bits == 1 ? "s" : "u") +
                       std::to_string(out_width),
                   digest);
      }
    }
  }
}

/// Calls action(format, scale, count) over element types, fraction bits, scales and run lengths.
template <class Action>
void for_each_conversion(Action action) {
  for (const int width : {8, 16}) {
    for (const int sign_bits : {0, 1}) {
      for (const int frac_bits : {-6, -1, 0, 5, 15, 31, 40}) {
        for (const _NN_SCALE &scale : {support::scale(1, 0), support::scale(-3, 2), support::scale(77, -3)}) {
          for (const uint32_t count : {1u, 15u, 16u, 40u, 83u}) {
            action(support::format(width, frac_bits, sign_bits), scale, count);
          }
        }
      }
    }
  }
}

/// Integers over their full range to floats, floats of every kind to integers, by every entry point.
void add_conversions(Report &report) {
  constexpr uint32_t kCount = 128;
  constexpr uint32_t kShape[] = {11, 2, 2, 1, 1, 1};
  constexpr uint32_t kStride[] = {0, 20, 40, 0, 0, 0};
  support::Random random(1002);
  std::vector<uint8_t> integers(2 * kCount);
  std::vector<float> floats(kCount);
  Digest to_float, to_fixed, to_fixed_rounded, to_float_1d, to_fixed_1d, to_float_nd, to_fixed_nd;
  for_each_conversion([&](const _NN_FMT &fmt, const _NN_SCALE &scale, uint32_t count) {
    const int32_t zero_point = random.between(-300, 300);
    const auto integers_to = [&](Digest &digest, auto convert) {
      random.fill(integers.data(), integers.size());
      convert();
      digest.floats(floats.data(), floats.size());
    };
    const auto floats_to = [&](Digest &digest, auto convert) {
      random.fill_any_floats(floats.data(), floats.size());
      random.fill_floats(floats.data(), kCount / 2, -300.0f, 300.0f);
      convert();
      digest.bytes(integers.data(), integers.size());
    };
    uint8_t *const fixed = integers.data();
    float *const real = floats.data();
    integers_to(to_float, [&] { tarvu_fixtofloat_neon(fixed, real, count, &fmt, &scale); });
    integers_to(to_float_1d, [&] { tarvu_fixtofloat_1d_neon(fixed, real, count, &fmt, &scale, zero_point); });
    integers_to(to_float_nd, [&] { tarvu_fixtofloat_nd_neon(fixed, real, kShape, kStride, &fmt, &scale, zero_point); });
    floats_to(to_fixed, [&] { tarvu_floattofix_neon(real, fixed, count, &fmt, &scale); });
    floats_to(to_fixed_1d, [&] { tarvu_floattofix_1d_neon(real, fixed, count, &fmt, &scale, zero_point); });
    floats_to(to_fixed_nd, [&] { tarvu_floattofix_nd_neon(real, fixed, kShape, kStride, &fmt, &scale, zero_point); });
    for (uint32_t code = 0; code < 11; ++code) {
      floats_to(to_fixed_rounded, [&] { tarvu_floattofix_rnd_neon(real, fixed, count, &fmt, &scale, code); });
    }
  });
  report.add("fixtofloat", to_float);
  report.add("floattofix", to_fixed);
  report.add("floattofix_rnd", to_fixed_rounded);
  report.add("fixtofloat_1d", to_float_1d);
  report.add("floattofix_1d", to_fixed_1d);
  report.add("fixtofloat_nd", to_float_nd);
  report.add("floattofix_nd", to_fixed_nd);
}

}  // namespace

void add_convert_cases(Report &report) {
  add_reformat(report);
  add_conversions(report);
}

}  // namespace parity
