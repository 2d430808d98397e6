#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

using support::format;
using support::scale;

struct Shape {
  uint16_t width, height, channel;
};

/// Items of a few pieces and of less than one; lengths with and without a rest.
constexpr Shape kShapes[] = {{37, 5, 3}, {1, 29, 11}, {1000, 5, 1}, {21, 211, 2}, {16, 4, 4}, {3, 1, 1}};
constexpr uint32_t kBatch = 2;

/// Floats in bits of all kinds, one run tame and one wild.
void fill_floats(support::Random &random, std::vector<float> &floats) {
  random.fill_floats(floats.data(), floats.size() / 2, -40.0f, 40.0f);
  random.fill_any_floats(floats.data() + floats.size() / 2, floats.size() - floats.size() / 2);
}

/// Each axis, over formats that are converted, floats, and one that no conversion serves.
template <class Parm>
void add_softmax(Report &report, const std::string &name, _QX_RESULT (*process)(const Parm *)) {
  const _NN_FMT in_formats[] = {format(8, 3, 1),   format(8, 4, 0),  format(16, 9, 1),
                                format(16, -2, 0), format(32, 0, 1), format(32, 0, 0)};
  const _NN_FMT out_formats[] = {format(8, 7, 1), format(8, 8, 0), format(16, 15, 1), format(16, -1, 0),
                                 format(32, 0, 1)};
  for (const int axis : {1, 2, 3, -1, 0}) {
    Digest digest;
    support::Random random(3001);
    for (const Shape &shape : kShapes) {
      const size_t count = size_t{shape.width} * shape.height * shape.channel;
      for (const _NN_FMT &in_fmt : in_formats) {
        for (const _NN_FMT &out_fmt : out_formats) {
          std::vector<float> in(kBatch * count), out(kBatch * count), scratch(2 * count, 0.25f);
          fill_floats(random, in);
          Parm parm{};
          parm.in_addr = reinterpret_cast<uintptr_t>(in.data());
          parm.out_addr = reinterpret_cast<uintptr_t>(out.data());
          parm.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
          parm.width = shape.width;
          parm.height = shape.height;
          parm.channel = shape.channel;
          parm.batch = kBatch;
          parm.in_batch_ofs = parm.out_batch_ofs = static_cast<uint32_t>(4 * count);
          parm.in_fmt = in_fmt;
          parm.out_fmt = out_fmt;
          parm.in_scale = scale(29, 5);
          parm.out_scale = scale(119, 7);
          parm.axis = static_cast<int8_t>(axis);
          if constexpr (requires { parm.in_zero_point; }) {
            parm.in_zero_point = 5;
            parm.out_zero_point = -3;
          }
          digest.result(process(&parm));
          if (out_fmt.frac_bits == 0) {
            digest.floats(out.data(), out.size());
          } else {
            digest.bytes(out.data(), 4 * out.size());
          }
        }
      }
    }
    report.add(name + "_axis_" + std::to_string(axis), digest);
  }
}

/// Every number of fraction bits that shifts in its own way, runs of every length, ranges that wrap and that do not.
void add_table(Report &report) {
  Digest digest;
  support::Random random(3002);
  for (const int frac_bits : {0, 3, 5, 6, 8, 13, 22, 200}) {
    for (uint32_t count = 0; count <= 80; ++count) {
      const int32_t reach = random.pick({10, 700, 12000, 32767});
      std::vector<int16_t> in(count), out(count);
      for (int16_t &x : in) x = static_cast<int16_t>(random.between(-reach - 1, reach));
      digest.result(vendor_submax_s16(in.data(), out.data(), count, static_cast<uint8_t>(frac_bits)));
      digest.bytes(out.data(), 2 * out.size());
    }
  }
  report.add("softmax_table", digest);
}

void add_fast_exp(Report &report) {
  Digest digest;
  for (uint64_t bits = 0; bits < uint64_t{1} << 32; bits += 65521) {
    const auto pattern = static_cast<uint32_t>(bits);
    float x;
    std::memcpy(&x, &pattern, sizeof x);
    const float e = fast_exp(x);
    digest.floats(&e, 1);
  }
  report.add("fast_exp", digest);
}

}  // namespace

void add_softmax_cases(Report &report) {
  add_softmax<_NN_SOFTMAX_PARM>(report, "softmax", tarvu_softmax_process);
  add_softmax<_NN_SOFTMAX_ASYM_PARM>(report, "softmax_asym", tarvu_softmax_asym_process);
  add_table(report);
  add_fast_exp(report);
}

}  // namespace parity
