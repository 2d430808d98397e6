/// \file random.h
/// A seeded generator with the same sequence on every platform. Every random test names its seed, so that a failure can be
/// replayed: TARVU_TEST_SEED=<seed> ./tarvu_tests --gtest_filter=<test>.
#ifndef TARVU_TESTS_SUPPORT_RANDOM_H
#define TARVU_TESTS_SUPPORT_RANDOM_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>

#include "tests/support/special_floats.h"

namespace support {

struct Random {
  uint64_t seed;
  uint64_t state;

  explicit Random(uint64_t start) : seed(start), state(start) {}

  uint64_t next() {  // SplitMix64
    uint64_t z = (state += 0x9E3779B97F4A7C15u);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
  }

  /// 0 to bound - 1.
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(((next() >> 32) * bound) >> 32); }

  /// first to last, both included.
  int32_t between(int32_t first, int32_t last) {
    return static_cast<int32_t>(first + static_cast<int64_t>(below(static_cast<uint32_t>(int64_t{last} - first + 1))));
  }

  /// True once in `n` times.
  bool one_in(uint32_t n) { return below(n) == 0; }

  template <class T>
  T pick(std::initializer_list<T> choices) {
    return choices.begin()[below(static_cast<uint32_t>(choices.size()))];
  }

  /// Uniform in [first, last).
  float uniform(float first, float last) {
    const double unit = static_cast<double>(next() >> 11) * 0x1p-53;
    return static_cast<float>(first + (static_cast<double>(last) - first) * unit);
  }

  /// Any bit pattern, or with one chance in four one of the special floats.
  float any_float() {
    if (one_in(4)) return kSpecialFloats[below(static_cast<uint32_t>(std::size(kSpecialFloats)))];
    return std::bit_cast<float>(static_cast<uint32_t>(next()));
  }

  void fill(void *address, size_t bytes) {
    auto *to = static_cast<unsigned char *>(address);
    for (size_t i = 0; i < bytes; ++i) to[i] = static_cast<unsigned char>(next() >> 24);
  }

  void fill_floats(void *address, size_t count, float first, float last) {
    auto *to = static_cast<unsigned char *>(address);
    for (size_t i = 0; i < count; ++i) {
      const float value = uniform(first, last);
      std::memcpy(to + i * sizeof value, &value, sizeof value);
    }
  }

  void fill_any_floats(void *address, size_t count) {
    auto *to = static_cast<unsigned char *>(address);
    for (size_t i = 0; i < count; ++i) {
      const float value = any_float();
      std::memcpy(to + i * sizeof value, &value, sizeof value);
    }
  }

  std::string trace() const { return "TARVU_TEST_SEED=" + std::to_string(seed); }
};

/// The generator of a test: its own seed, or the one that the environment asks to replay.
/// Use: `Random random = test_random(17); SCOPED_TRACE(random.trace());`
inline Random test_random(uint64_t seed) {
  const char *replay = std::getenv("TARVU_TEST_SEED");
  return Random(replay != nullptr ? std::strtoull(replay, nullptr, 0) : seed);
}

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_RANDOM_H
