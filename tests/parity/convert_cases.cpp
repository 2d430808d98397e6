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

}  // namespace

void add_convert_cases(Report &report) { add_reformat(report); }

}  // namespace parity
