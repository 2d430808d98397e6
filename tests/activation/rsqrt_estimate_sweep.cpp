/// \file rsqrt_estimate_sweep.cpp
/// Holds the reciprocal square root estimate of Norm against its plain definition over all 2^32 floats. Run by hand:
///
///   rsqrt_estimate_sweep instruction [first] [count]    the processor's FRSQRTE, on arm64 only
///   rsqrt_estimate_sweep library [first] [count]        tarvu_norm_process(), one call for each float
///
/// `first` and `count` bit patterns, hexadecimal; all if absent. The first proves the definition, the second that the
/// library follows it; the tests hold a sample of the second. Exit code 1 if anything differs, 2 if nothing was compared.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tarvu.h"
#include "tests/reference/tarvu_norm_reference.h"

namespace {

#if defined(__aarch64__)
constexpr bool kHasInstruction = true;
float instruction(float x) {
  float result;
  __asm__("frsqrte %s0, %s1" : "=w"(result) : "w"(x));
  return result;
}
#else
constexpr bool kHasInstruction = false;
float instruction(float) { return 0.0f; }
#endif

/// tarvu_norm_process() on one block of 16 positions whose squares vanish, so that the sum of a position is `eps`
/// alone, with powers of two that carry the estimate to the output without a rounding.
class Library {
 public:
  Library() {
    for (float &x : input_) x = 0x1p-80f;
    block_.in_addr = reinterpret_cast<uintptr_t>(input_);
    block_.out_addr = reinterpret_cast<uintptr_t>(output_);
    block_.scale_addr = reinterpret_cast<uintptr_t>(&learned_);
    block_.width = 16;
    block_.height = block_.channel = block_.batch = 1;
    block_.in_fmt = block_.out_fmt = _NN_FMT{0, 31, 1, 0};
  }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  /// The output for the sum x: of the first position that is not as expected, or of position 0.
  float output(float x) {
    block_.eps = x;
    tarvu_norm_process(&block_);
    const float right = expected(x);
    for (const float out : output_) {
      if (std::memcmp(&out, &right, sizeof out) != 0 && !std::isnan(right)) return out;
      if (std::isnan(right) && !std::isnan(out)) return out;
    }
    return output_[0];
  }

  static float expected(float x) {
    // Adding the vanished square makes a positive zero of a negative one.
    return 0x1p-80f * (0x1p20f * reference::reciprocal_square_root_estimate(x + 0.0f));
  }

 private:
  alignas(16) float input_[16];
  alignas(16) float output_[16] = {};
  float learned_ = 0x1p20f;
  _NN_NORM_PARM block_{};
};

/// Compares `ours` with `expected`, functions of a float, from bit pattern `first` on; returns the exit code.
template <class Ours, class Expected>
int sweep(uint64_t first, uint64_t count, Ours ours, Expected expected) {
  uint64_t different = 0;
  for (uint64_t i = first; i < first + count; ++i) {
    const float x = std::bit_cast<float>(static_cast<uint32_t>(i));
    const float a = ours(x);
    const float b = expected(x);
    if (std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (std::isnan(a) && std::isnan(b))) continue;
    if (++different > 10) continue;
    std::printf("%08x: %08x where the definition gives %08x\n", static_cast<unsigned>(i), std::bit_cast<uint32_t>(a),
                std::bit_cast<uint32_t>(b));
  }
  std::printf("%llu of %llu inputs differ\n", static_cast<unsigned long long>(different),
              static_cast<unsigned long long>(count));
  if (count == 0) return 2;
  return different == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  const uint64_t first = argc > 2 ? std::strtoull(argv[2], nullptr, 16) : 0;
  const uint64_t count = argc > 3 ? std::strtoull(argv[3], nullptr, 16) : (uint64_t{1} << 32) - first;
  if (mode == "library") {
    Library library;
    return sweep(
        first, count, [&library](float x) { return library.output(x); }, Library::expected);
  }
  if (mode == "instruction" && kHasInstruction) {
    return sweep(first, count, instruction, reference::reciprocal_square_root_estimate);
  }
  std::fprintf(stderr, "usage: rsqrt_estimate_sweep %slibrary [first] [count]\n",
               kHasInstruction ? "instruction|" : "");
  return 2;
}
