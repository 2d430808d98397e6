#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

/// Dense tensors of any width, learned arrays and scratch of one call.
struct Tensors {
  Tensors(support::Random &random, int in_width, int out_width, size_t elements)
      : count(elements), in(4 * count), out(4 * count), first(count), second(count), scratch(2 * count) {
    if (in_width == 32) {
      random.fill_floats(in.data(), count, -30.0f, 30.0f);
    } else {
      random.fill(in.data(), count * static_cast<size_t>(in_width / 8));
    }
    random.fill_floats(first.data(), count, -2.0f, 2.0f);
    random.fill_floats(second.data(), count, -2.0f, 2.0f);
    out_is_float = out_width == 32;
  }

  void add_to(Digest &digest) const {
    if (out_is_float) {
      digest.floats(out.data(), count);
    } else {
      digest.bytes(out.data(), out.size());
    }
  }

  size_t count;
  std::vector<uint8_t> in;
  std::vector<uint8_t> out;
  std::vector<float> first;
  std::vector<float> second;
  std::vector<float> scratch;
  bool out_is_float;
};

template <class T>
uint64_t address_of(const std::vector<T> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.data());
}

/// Every pair of widths, both norms, one scale and one a channel, planes around the blocks.
void add_norm(Report &report) {
  support::Random random(1201);
  for (const int in_width : {8, 16, 32}) {
    for (const int out_width : {8, 16, 32}) {
      Digest digest;
      for (const uint16_t plane :
           {uint16_t{1}, uint16_t{15}, uint16_t{16}, uint16_t{49}, uint16_t{64}, uint16_t{115}}) {
        for (int mode = 0; mode < 4; ++mode) {
          constexpr uint16_t kChannels = 9;
          Tensors tensors(random, in_width, out_width, size_t{plane} * kChannels);
          _NN_NORM_PARM parm{};
          parm.in_addr = address_of(tensors.in);
          parm.out_addr = address_of(tensors.out);
          parm.work_buffer = address_of(tensors.scratch);
          parm.scale_addr = address_of(tensors.first);
          parm.width = plane;
          parm.height = parm.batch = 1;
          parm.channel = kChannels;
          parm.in_fmt = support::format(in_width, 4, mode % 2);
          parm.out_fmt = support::format(out_width, out_width - 3, 1);
          parm.in_scale = support::scale(77, 5);
          parm.out_scale = support::scale(33, 5);
          parm.norm_whole_item = static_cast<uint8_t>(mode / 2);
          parm.shared_scale = static_cast<uint8_t>(mode % 2);
          parm.eps = 1e-3f;
          digest.result(tarvu_norm_process(&parm));
          tensors.add_to(digest);
        }
      }
      report.add("norm_" + std::to_string(in_width) + "_to_" + std::to_string(out_width), digest);
    }
  }
}

/// Every pair of widths and axis, both forms, with and without gamma and beta, runs around the blocks.
void add_layernorm(Report &report) {
  support::Random random(1202);
  for (const int in_width : {8, 16, 32}) {
    for (const int out_width : {8, 16, 32}) {
      Digest digest;
      for (const uint16_t line : {uint16_t{1}, uint16_t{8}, uint16_t{19}, uint16_t{32}, uint16_t{50}}) {
        for (int mode = 0; mode < 8; ++mode) {
          constexpr uint16_t kHeight = 7;
          constexpr uint16_t kChannels = 5;
          Tensors tensors(random, in_width, out_width, size_t{line} * kHeight * kChannels);
          _NN_LAYERNORM_PARM parm{};
          parm.in_addr = address_of(tensors.in);
          parm.out_addr = address_of(tensors.out);
          parm.work_buffer = address_of(tensors.scratch);
          parm.gamma_addr = mode % 2 != 0 ? address_of(tensors.first) : TARVU_LAYERNORM_ABSENT;
          parm.beta_addr = mode / 2 % 2 != 0 ? address_of(tensors.second) : TARVU_LAYERNORM_ABSENT;
          parm.width = line;
          parm.height = kHeight;
          parm.channel = kChannels;
          parm.batch = 1;
          parm.in_fmt = support::format(in_width, 4, 1);
          parm.out_fmt = support::format(out_width, 5, mode % 2);
          parm.in_scale = support::scale(mode < 4 ? 77 : 12345677, 6);
          parm.out_scale = support::scale(33, 5);
          parm.eps = 1e-3f;
          parm.axis = mode % 3 + 1;
          digest.result(mode % 4 == 1 ? tarvu_layernorm_process_neon(&parm) : tarvu_layernorm_process(&parm));
          digest.bytes(&parm.outer_size, sizeof parm.outer_size);
          digest.bytes(&parm.inner_size, sizeof parm.inner_size);
          tensors.add_to(digest);
        }
      }
      report.add("layernorm_" + std::to_string(in_width) + "_to_" + std::to_string(out_width), digest);
    }
  }
}

}  // namespace

void add_norm_cases(Report &report) {
  add_norm(report);
  add_layernorm(report);
}

}  // namespace parity
