#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

using support::format;

constexpr uint32_t kBatch = 2;
constexpr uint32_t kChannel = 5;
constexpr uint32_t kHeight = 19;
constexpr uint32_t kWidth = 37;
constexpr uint32_t kPadding = 3;
constexpr size_t kTensorBytes = 2 * size_t{kBatch} * kChannel * kHeight * (kWidth + kPadding) + 64;

struct Tensors {
  explicit Tensors(uint64_t seed) : in(kTensorBytes), out(kTensorBytes) {
    support::Random random(seed);
    random.fill(in.data(), in.size());
    random.fill(out.data(), out.size());
  }
  std::vector<uint8_t> in;
  std::vector<uint8_t> out;
};

template <class Parm>
void set_shape(Parm &parm, Tensors &tensors, int in_width) {
  parm.in_addr = reinterpret_cast<uintptr_t>(tensors.in.data());
  parm.out_addr = reinterpret_cast<uintptr_t>(tensors.out.data());
  parm.width = kWidth;
  parm.height = kHeight;
  parm.channel = kChannel;
  parm.batch = kBatch;
  parm.in_line_ofs = kWidth * static_cast<uint32_t>(in_width) / 8 + kPadding;
  parm.in_channel_ofs = kHeight * parm.in_line_ofs;
  parm.in_batch_ofs = kChannel * parm.in_channel_ofs;
}

/// Each axis and width, with equal formats, with fewer and with more fraction bits, and an unsupported format.
void add_reverse(Report &report) {
  for (const int width : {8, 16, 32}) {
    for (int axis = 0; axis < 4; ++axis) {
      Digest digest;
      for (const int out_frac_bits : {4, 2, 6}) {
        Tensors tensors(2001);
        _NN_REVERSE_PARM parm{};
        set_shape(parm, tensors, std::min(width, 16));
        parm.out_line_ofs = parm.in_line_ofs;
        parm.out_channel_ofs = parm.in_channel_ofs;
        parm.out_batch_ofs = parm.in_batch_ofs;
        parm.in_fmt = format(width, 4, 1);
        parm.out_fmt = format(width, out_frac_bits, out_frac_bits == 6 ? 0 : 1);
        parm.axis = static_cast<int8_t>(axis);
        digest.result(tarvu_reverse_process(&parm));
        digest.bytes(tensors.out.data(), tensors.out.size());
      }
      report.add("reverse_" + std::to_string(width) + "_axis_" + std::to_string(axis), digest);
    }
  }
}

/// Each order and pair of widths, with equal and with different formats.
void add_permute(Report &report) {
  for (const int in_width : {8, 16, 32}) {
    for (const int out_width : {8, 16}) {
      Digest digest;
      std::array<int8_t, 4> order = {0, 1, 2, 3};
      do {
        for (const int out_frac_bits : {4, 6}) {
          Tensors tensors(2002);
          _NN_PERMUTE_PARM parm{};
          set_shape(parm, tensors, std::min(in_width, 16));
          const uint32_t extents[4] = {kBatch, kChannel, kHeight, kWidth};
          const auto extent = [&](size_t axis) { return extents[static_cast<size_t>(order[axis])]; };
          parm.out_line_ofs = extent(3) * static_cast<uint32_t>(out_width) / 8;
          parm.out_channel_ofs = extent(2) * parm.out_line_ofs;
          parm.out_batch_ofs = extent(1) * parm.out_channel_ofs;
          parm.in_fmt = format(in_width, 4, 1);
          parm.out_fmt = format(out_width, out_frac_bits, 1);
          for (size_t i = 0; i < 4; ++i) parm.order[i] = order[i];
          digest.result(tarvu_permute_process(&parm));
          digest.bytes(tensors.out.data(), tensors.out.size());
        }
      } while (std::next_permutation(order.begin(), order.end()));
      report.add("permute_" + std::to_string(in_width) + "_to_" + std::to_string(out_width), digest);
    }
  }
}

}  // namespace

void add_tensor_cases(Report &report) {
  add_reverse(report);
  add_permute(report);
}

}  // namespace parity
