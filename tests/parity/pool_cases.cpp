#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

struct Type {
  int width;
  int sign_bits;
  const char *name;
};
constexpr Type kTypes[] = {{8, 1, "s8"}, {8, 0, "u8"}, {16, 1, "s16"}, {16, 0, "u16"}};

struct Operation {
  uint32_t mode;
  uint32_t non_count_pad;
  const char *name;
};
constexpr Operation kOperations[] = {{0, 0, "maximum"},
                                     {1, 0, "average"},
                                     {1, 1, "average_padding_not_counted"},
                                     {2, 0, "global_maximum"},
                                     {3, 0, "global_average"}};

/// Common windows (2 x 2 and 3 x 3) every second time, else any small one, and a large one now and then. Near pads do not
/// exceed the stride, so that every window lies in the plane.
void choose_windows(support::Random &random, _NN_POOL_PARM &parm) {
  const auto bytes = [&](int32_t first, int32_t last) { return static_cast<uint8_t>(random.between(first, last)); };
  if (random.one_in(2)) {
    parm.kernel_w = parm.kernel_h = bytes(2, 3);
    parm.stride_w = parm.stride_h = parm.kernel_w == 2 ? uint8_t{2} : bytes(1, 2);
    parm.pad_left = parm.pad_top = bytes(0, 1);
    parm.pad_right = parm.pad_bottom = bytes(0, 1);
    return;
  }
  const int32_t most = random.one_in(4) ? 40 : 5;
  parm.kernel_w = bytes(1, most);
  parm.kernel_h = bytes(1, most);
  parm.stride_w = bytes(random.one_in(8) ? 0 : 1, 4);
  parm.stride_h = bytes(random.one_in(8) ? 0 : 1, 4);
  parm.pad_left = bytes(0, parm.stride_w);
  parm.pad_top = bytes(0, parm.stride_h);
  parm.pad_right = bytes(0, 5);
  parm.pad_bottom = bytes(0, 5);
}

/// The identity, multipliers that a network would have, and any, with shifts in both directions.
void choose_output(support::Random &random, _NN_POOL_PARM &parm, int width_delta) {
  const auto any_scale = [&](int32_t least, int32_t greatest, int least_shift, int greatest_shift) {
    const int32_t value = random.between(least, greatest);
    return support::scale(value, random.between(least_shift, greatest_shift));
  };
  constexpr int32_t kMost = std::numeric_limits<int32_t>::max();
  switch (random.below(4)) {
    case 0:
      parm.in_scale = support::scale(1, 0);
      parm.out_scale = support::scale(1, -width_delta);
      return;
    case 1:
      parm.in_scale = any_scale(1, 127, 2, 6);
      parm.out_scale = any_scale(1, 127, 4 - width_delta, 8 - width_delta);
      return;
    case 2:
      parm.in_scale = any_scale(-40, 40, -2, 4);
      parm.out_scale = any_scale(-40, 40, -6, 6);
      parm.post_shift = static_cast<int8_t>(random.between(-3, 3));
      return;
    default:
      parm.in_scale = any_scale(-kMost, kMost, -128, 127);
      parm.out_scale = any_scale(-kMost, kMost, -128, 127);
      parm.post_shift = static_cast<int8_t>(random.between(-128, 127));
  }
}

/// The most windows along an axis.
uint32_t most_windows(int extent, int kernel, int stride, int pads) {
  const int span = extent + pads - kernel;
  return static_cast<uint32_t>(stride == 0 || span < 0 ? 2 : span / stride + 2);
}

void add_block(support::Random &random, Digest &digest, const Operation &operation, const Type &in_type,
               const Type &out_type) {
  const auto in_bytes = static_cast<uint32_t>(in_type.width / 8);
  const auto out_bytes = static_cast<uint32_t>(out_type.width / 8);
  _NN_POOL_PARM parm{};
  parm.mode = operation.mode;
  parm.non_count_pad = operation.non_count_pad;
  parm.in_fmt = support::format(in_type.width, 3, in_type.sign_bits);
  parm.out_fmt = support::format(out_type.width, 3, out_type.sign_bits);
  parm.width = static_cast<uint16_t>(random.one_in(12) ? random.between(900, 2500) : random.between(0, 70));
  parm.height = static_cast<uint16_t>(random.between(0, 12));
  parm.channel = static_cast<uint16_t>(random.between(1, 5));
  parm.batch = static_cast<uint16_t>(random.between(1, 2));
  parm.floor_mode = random.below(2);
  choose_windows(random, parm);
  choose_output(random, parm, in_type.width - out_type.width);
  parm.in_line_ofs = parm.width * in_bytes + random.below(4);
  parm.in_channel_ofs = parm.height * parm.in_line_ofs + random.below(4);
  parm.in_batch_ofs = parm.channel * parm.in_channel_ofs;
  const bool global = operation.mode >= 2;
  const uint32_t columns =
      global ? 1 : most_windows(parm.width, parm.kernel_w, parm.stride_w, parm.pad_left + parm.pad_right);
  const uint32_t lines =
      global ? 1 : most_windows(parm.height, parm.kernel_h, parm.stride_h, parm.pad_top + parm.pad_bottom);
  // Now and then output lines overlap: the later line stays.
  parm.out_line_ofs = random.one_in(6) ? std::max(1u, columns * out_bytes / 2) : columns * out_bytes + random.below(4);
  parm.out_channel_ofs = lines * parm.out_line_ofs + columns * out_bytes;
  parm.out_batch_ofs = parm.channel * parm.out_channel_ofs;
  std::vector<uint8_t> in(size_t{parm.batch} * parm.in_batch_ofs + 1);
  std::vector<uint8_t> out(size_t{parm.batch} * parm.out_batch_ofs + 1, uint8_t{0x5A});
  random.fill(in.data(), in.size());
  parm.in_addr = reinterpret_cast<uintptr_t>(in.data()) + random.below(2);
  parm.out_addr = reinterpret_cast<uintptr_t>(out.data()) + random.below(2);
  digest.result(tarvu_pool_process(&parm));
  digest.bytes(out.data(), out.size());
}

/// Types and modes that are refused, each with its line.
void add_refused(Report &report) {
  Digest digest;
  for (const int width : {0, 8, 24, 32}) {
    for (const uint32_t mode : {0u, 4u, 0xFFFFFFFFu}) {
      if (width == 8 && mode == 0) continue;
      _NN_POOL_PARM parm{};
      parm.mode = mode;
      parm.in_fmt = support::format(8, 3, 1);
      parm.out_fmt = support::format(width, 3, 1);
      digest.result(tarvu_pool_process(&parm));
      std::swap(parm.in_fmt, parm.out_fmt);
      digest.result(tarvu_pool_process(&parm));
    }
  }
  report.add("pool_refused", digest);
}

}  // namespace

/// Every operation from every type: to all four types, 60 blocks each.
void add_pool_cases(Report &report) {
  uint64_t seed = 1201;
  for (const Operation &operation : kOperations) {
    for (const Type &in : kTypes) {
      support::Random random(seed++);
      Digest digest;
      for (const Type &out : kTypes) {
        for (int i = 0; i < 60; ++i) add_block(random, digest, operation, in, out);
      }
      report.add(std::string("pool_") + operation.name + "_" + in.name, digest);
    }
  }
  add_refused(report);
}

}  // namespace parity
