/// \file lstm_gates_sweep.cpp
/// Holds LSTM's gates against the mathematics library over all 2^32 floats, and measures by how much the fast functions of the
/// gates differ from it, relative. Takes minutes; run by hand after a change of either:
///
///   lstm_gates_sweep [first] [count]      bit patterns, hexadecimal; all if absent
///
/// Exit code 1 if a gate differs in one bit, or if the error leaves less than half of the tolerance to the library.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "activation/lstm_gates.h"

namespace {

constexpr uint32_t kBlock = 1u << 10;

/// What one of the functions has shown so far.
class Findings {
 public:
  explicit Findings(const char *name) : name_(name) {}

  /// A gate and what it was rounded from, beside the library's value in double. `fast` counts if it is at all used for x.
  void compare(float x, float gate, double fast, double library, bool uses_fast) {
    ++compared_;
    const auto expected = static_cast<float>(library);
    if (std::bit_cast<uint32_t>(gate) != std::bit_cast<uint32_t>(expected) &&
        !(std::isnan(gate) && std::isnan(expected))) {
      if (++different_ <= 10) {
        std::printf("%s of %08x: %08x where the library gives %08x\n", name_, std::bit_cast<uint32_t>(x),
                    std::bit_cast<uint32_t>(gate), std::bit_cast<uint32_t>(expected));
      }
    }
    if (uses_fast && !(std::fabs(fast - library) <= worst_ * std::fabs(library))) {
      worst_ = std::fabs(library) > 0.0 ? std::fabs(fast / library - 1.0) : HUGE_VAL;
    }
  }
  void leave_to_library() { ++left_; }

  bool passed() const {
    std::printf(
        "%s: %llu of %llu differ; largest relative error of the fast function 2^%.2f; %llu vectors left to the "
        "library\n",
        name_, static_cast<unsigned long long>(different_), static_cast<unsigned long long>(compared_),
        std::log2(worst_), static_cast<unsigned long long>(left_));
    return different_ == 0 && compared_ != 0 && worst_ <= tarvu::kGateTolerance / 2;
  }

 private:
  const char *name_;
  uint64_t compared_ = 0;
  uint64_t different_ = 0;
  uint64_t left_ = 0;
  double worst_ = 0.0;
};

double lane(const tarvu::Wide<tarvu::f64xn> &pair, int index) {
  constexpr int kHalf = tarvu::kLanes<tarvu::f32xn> / 2;
  return index < kHalf ? pair.low[index] : pair.high[index - kHalf];
}

void compare(const float *x, Findings &logistic, Findings &tangent) {
  float logistics[kBlock];
  float tangents[kBlock];
  std::memcpy(logistics, x, sizeof logistics);
  std::memcpy(tangents, x, sizeof tangents);
  tarvu::logistic_run(logistics, kBlock);
  tarvu::tanh_run(tangents, kBlock);
  constexpr int kLanes = tarvu::kLanes<tarvu::f32xn>;
  for (uint32_t i = 0; i < kBlock; i += kLanes) {
    const auto vector = tarvu::load<tarvu::f32xn>(x + i);
    if (!tarvu::all(tarvu::fast_logistic(vector).known)) logistic.leave_to_library();
    if (!tarvu::all(tarvu::fast_tanh(vector).known)) tangent.leave_to_library();
    const tarvu::Wide<tarvu::f64xn> minus = tarvu::widen(-vector);
    const tarvu::Wide<tarvu::f64xn> fast_logistics = {tarvu::fast_logistic(minus.low),
                                                      tarvu::fast_logistic(minus.high)};
    const tarvu::Wide<tarvu::f64xn> fast_tangents = tarvu::fast_tanh_magnitude(vector);
    for (int k = 0; k < kLanes; ++k) {
      const float argument = vector[k];
      const auto wide = static_cast<double>(argument);
      const uint32_t at = i + static_cast<uint32_t>(k);
      logistic.compare(argument, logistics[at], lane(fast_logistics, k), 1.0 / (std::exp(-wide) + 1.0),
                       std::fabs(wide) <= 80.0);
      tangent.compare(argument, tangents[at], std::copysign(lane(fast_tangents, k), wide), std::tanh(wide),
                      std::fabs(wide) > 0.0);
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  const uint64_t first = argc > 1 ? std::strtoull(argv[1], nullptr, 16) : 0;
  const uint64_t count = argc > 2 ? std::strtoull(argv[2], nullptr, 16) : (uint64_t{1} << 32) - first;
  Findings logistic("logistic function");
  Findings tangent("hyperbolic tangent");
  for (uint64_t i = first; i + kBlock <= first + count; i += kBlock) {
    float x[kBlock];
    for (uint32_t k = 0; k < kBlock; ++k) x[k] = std::bit_cast<float>(static_cast<uint32_t>(i) + k);
    compare(x, logistic, tangent);
  }
  const bool logistic_passed = logistic.passed();
  return tangent.passed() && logistic_passed ? EXIT_SUCCESS : EXIT_FAILURE;
}
