/// \file conversion_check.h
/// Checks of one conversion kernel against its twin, and the inputs that they are fed with.
#ifndef TARVU_TESTS_CONVERT_CONVERSION_CHECK_H
#define TARVU_TESTS_CONVERT_CONVERSION_CHECK_H

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "tests/convert/conversion_kernels.h"
#include "tests/support/differential.h"

namespace convert_tests {

inline std::string describe(const Kernel &kernel, const Settings &s) {
  std::ostringstream out;
  out << kernel.name << ", frac_bits " << s.frac_bits << ", scale " << std::hexfloat << s.scale << ", code "
      << s.rounding_code << ", zero point " << s.zero_point << ", rounding mode " << s.rounding_mode;
  return out.str();
}

inline support::Element destination_element(const Kernel &kernel) {
  if (kernel.to_float) return support::Element::kFloat;
  if (kernel.destination_bytes == 1) return support::Element::k8Bit;
  return kernel.destination_bytes == 2 ? support::Element::k16Bit : support::Element::k32Bit;
}

/// The fraction bits around which the making of the multiplier changes, and some of everyday use.
inline constexpr int16_t kFracBitsLadder[] = {-32768, -129, -128, -65, -64, -63, -62, -33, -32, -31, -30,  -29,
                                              -17,    -8,   -2,   -1,  0,   1,   4,   7,   8,   15,  16,   29,
                                              30,     31,   32,   33,  62,  63,  64,  65,  127, 128, 32767};

inline constexpr float kScaleLadder[] = {1.0f,
                                         0.5f,
                                         0.75f,
                                         1.0f / 3.0f,
                                         -1.0f,
                                         0.0f,
                                         -0.0f,
                                         0x1.92p-7f,
                                         1e-38f,
                                         std::numeric_limits<float>::denorm_min(),
                                         1e38f,
                                         std::numeric_limits<float>::infinity(),
                                         std::numeric_limits<float>::quiet_NaN()};

inline constexpr int32_t kZeroPointLadder[] = {
    0, 1, -1, 7, -10, 128, -128, 200, 32768, -32768, 100000, 2147483647, -2147483647 - 1};

/// Fifty floats around a value, in steps of one unit in the last place.
inline void append_neighbours(std::vector<float> &all, float centre) {
  float below = centre;
  float above = centre;
  all.push_back(centre);
  for (int i = 0; i < 25; ++i) {
    below = std::nextafterf(below, -std::numeric_limits<float>::infinity());
    above = std::nextafterf(above, std::numeric_limits<float>::infinity());
    all.push_back(below);
    all.push_back(above);
  }
}

/// Every exponent with both signs, the ties of small numbers and their neighbours, the limits of all types, random
/// values.
inline std::vector<float> sweep_floats() {
  std::vector<float> all(std::begin(support::kSpecialFloats), std::end(support::kSpecialFloats));
  constexpr uint32_t kMantissas[] = {0x0, 0x1, 0x2AAAAA, 0x3FFFFF, 0x400000, 0x400001, 0x555555, 0x7FFFFE, 0x7FFFFF};
  for (uint32_t sign_and_exponent = 0; sign_and_exponent < 512; ++sign_and_exponent) {
    for (const uint32_t mantissa : kMantissas) all.push_back(std::bit_cast<float>(sign_and_exponent << 23 | mantissa));
  }
  for (int twice = -530; twice <= 530; ++twice) {
    const float value = 0.5f * static_cast<float>(twice);
    all.push_back(value);
    all.push_back(std::nextafterf(value, -1e9f));
    all.push_back(std::nextafterf(value, 1e9f));
  }
  for (const float centre : {32766.5f, 32767.5f, 32768.5f, 65534.5f, 65535.5f, 4194304.0f, 8388608.0f, 16777216.0f,
                             2147483648.0f, 4294967296.0f}) {
    append_neighbours(all, centre);
    append_neighbours(all, -centre);
  }
  support::Random random(77);
  for (int i = 0; i < 1000; ++i) {
    all.push_back(random.uniform(-300.0f, 300.0f));
    all.push_back(random.uniform(-70000.0f, 70000.0f));
    all.push_back(random.any_float());
  }
  while (all.size() % 16 != 0) all.push_back(0.0f);
  return all;
}

inline std::vector<uint8_t> bytes_of(const std::vector<float> &floats) {
  std::vector<uint8_t> bytes(floats.size() * sizeof(float));
  std::memcpy(bytes.data(), floats.data(), bytes.size());
  return bytes;
}

/// All values of an 8-bit or 16-bit element in ascending order of their bits.
inline std::vector<uint8_t> all_integers(size_t element_bytes) {
  std::vector<uint8_t> bytes;
  for (uint32_t value = 0; value < 1u << (8 * element_bytes); ++value) {
    for (size_t i = 0; i < element_bytes; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
  }
  return bytes;
}

/// Cuts the input into calls of `run` elements, the last one shorter, and compares all output and all text. A run of
/// one element less than the block puts every element in a tail, a run of whole blocks puts every element in a block.
inline ::testing::AssertionResult same_in_runs_of(uint32_t run, const Kernel &kernel, std::span<const uint8_t> source,
                                                  const Settings &settings) {
  const uint32_t count = static_cast<uint32_t>(source.size() / kernel.source_bytes);
  std::vector<uint8_t> ours(count * kernel.destination_bytes, 0xA5);
  std::vector<uint8_t> expected = ours;
  auto convert_all = [&](Call call, std::vector<uint8_t> &to) {
    support::StdoutCapture capture;
    std::fesetround(settings.rounding_mode);
    for (uint32_t i = 0; i < count; i += run) {
      call(source.data() + i * kernel.source_bytes, to.data() + i * kernel.destination_bytes, std::min(run, count - i),
           settings);
    }
    std::fesetround(FE_TONEAREST);
    return capture.text();
  };
  const std::string our_text = convert_all(kernel.product, ours);
  const std::string expected_text = convert_all(kernel.reference, expected);
  if (our_text != expected_text) {
    return ::testing::AssertionFailure() << describe(kernel, settings) << ": printed text differs, " << our_text.size()
                                         << " bytes against " << expected_text.size();
  }
  const ::testing::AssertionResult same = support::same_elements("output", ours.data(), expected.data(), ours.size(),
                                                                 destination_element(kernel), {run, kernel.block});
  if (same) return same;
  const auto first = std::mismatch(ours.begin(), ours.end(), expected.begin()).first - ours.begin();
  const size_t index = static_cast<size_t>(first) / kernel.destination_bytes;
  uint32_t bits = 0;
  std::memcpy(&bits, source.data() + index * kernel.source_bytes, kernel.source_bytes);
  return ::testing::AssertionFailure() << describe(kernel, settings) << ": " << same.message()
                                       << "; the first bytes that differ come from the input 0x" << std::hex << bits;
}

/// Every element once in a block and once in a tail.
inline ::testing::AssertionResult same_in_blocks_and_tails(const Kernel &kernel, std::span<const uint8_t> source,
                                                           const Settings &settings) {
  const uint32_t count = static_cast<uint32_t>(source.size() / kernel.source_bytes);
  const ::testing::AssertionResult in_blocks =
      same_in_runs_of(count / kernel.block * kernel.block, kernel, source, settings);
  if (!in_blocks) return in_blocks;
  return same_in_runs_of(kernel.block - 1, kernel, source, settings);
}

/// One call between guards, at a given distance in bytes from the page that faults, with random elements.
inline ::testing::AssertionResult same_between_guards(const Kernel &kernel, uint32_t count, const Settings &settings,
                                                      support::Fault fault, size_t misalign, support::Random &random) {
  const support::GuardedMemory source(count * kernel.source_bytes, {fault, 1, misalign});
  const support::GuardedMemory destination(count * kernel.destination_bytes, {fault, 1, misalign});
  if (kernel.to_float) {
    random.fill(source.data(), source.size());
  } else if (random.one_in(2)) {
    random.fill_any_floats(source.data(), count);
  } else {
    random.fill_floats(source.data(), count, -300.0f, 300.0f);
  }
  destination.fill(0x5A);
  support::Differential differential;
  differential.track(source, "source");
  differential.track(destination, "destination", destination_element(kernel), {count, kernel.block});
  auto call = [&](Call function) { function(source.data(), destination.data(), count, settings); };
  const ::testing::AssertionResult same =
      differential.same([&] { call(kernel.product); }, [&] { call(kernel.reference); });
  if (same) return same;
  return ::testing::AssertionFailure() << describe(kernel, settings) << ", count " << count << ", misaligned by "
                                       << misalign << ": " << same.message();
}

/// All run lengths from nothing to past two blocks, at both ends of a page, half of them at odd addresses.
inline ::testing::AssertionResult same_for_all_run_lengths(std::span<const Kernel> kernels, support::Random &random) {
  for (const Kernel &kernel : kernels) {
    for (uint32_t count = 0; count <= 2 * kernel.block + 3; ++count) {
      for (const support::Fault fault : {support::Fault::kBehind, support::Fault::kInFront}) {
        Settings settings;
        settings.frac_bits = static_cast<int16_t>(random.between(-9, 9));
        settings.scale = random.pick({1.0f, 1.0f, 0.75f, 0.3f, -0.5f, 3.0f});
        settings.rounding_code = random.below(13);
        settings.zero_point = random.between(-300, 300);
        const size_t misalign = random.one_in(2) ? 0 : random.below(16);
        const ::testing::AssertionResult same = same_between_guards(kernel, count, settings, fault, misalign, random);
        if (!same) return same;
      }
    }
  }
  return ::testing::AssertionSuccess();
}

}  // namespace convert_tests

#endif  // TARVU_TESTS_CONVERT_CONVERSION_CHECK_H
