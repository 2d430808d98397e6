#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

template <class T>
uint64_t address_of(const std::vector<T> &buffer) {
  return reinterpret_cast<uintptr_t>(buffer.data());
}

/// Both widths, every shift from -40 to 40, planes with and without a tail, and a refused block.
void add_prelu(Report &report) {
  support::Random random(1101);
  for (const int width : {8, 16}) {
    Digest digest;
    for (int shift = -40; shift <= 40; ++shift) {
      std::vector<uint8_t> in(2 * 3 * 101);
      std::vector<uint8_t> out(in.size());
      std::vector<int8_t> slopes(3);
      random.fill(in.data(), in.size());
      random.fill(slopes.data(), slopes.size());
      _NN_PRELU_PARM parm{};
      parm.in_addr = address_of(in);
      parm.out_addr = address_of(out);
      parm.weight_addr = address_of(slopes);
      parm.width = 1 + random.below(101);
      parm.height = 1;
      parm.channels = 3;
      parm.num = shift == 0 ? 0 : 2;
      parm.in_fmt = support::format(width, 3, 1);
      parm.shift = static_cast<int8_t>(shift);
      digest.result(tarvu_prelu_process(&parm));
      digest.bytes(out.data(), out.size());
    }
    report.add("prelu_" + std::to_string(width), digest);
  }
}

/// All formats, windows from 1 to wider than the channels, planes around the tiles, and refused blocks.
void add_lrn(Report &report) {
  support::Random random(1102);
  for (const int width : {8, 16, 32}) {
    Digest digest;
    for (const uint32_t local_size : {1u, 2u, 3u, 5u, 9u, 21u}) {
      for (const uint16_t line : {uint16_t{1}, uint16_t{7}, uint16_t{16}, uint16_t{45}}) {
        constexpr uint16_t kChannels = 11;
        const size_t count = size_t{line} * 3 * kChannels;
        std::vector<float> in(count);
        std::vector<float> out(count);
        std::vector<float> scratch(4 * count + (local_size - 1) * size_t{line} * 3);
        if (width == 32) {
          random.fill_floats(in.data(), count, -30.0f, 30.0f);
        } else {
          random.fill(in.data(), count * sizeof(float));
        }
        _NN_LRN_PARM parm{};
        parm.in_addr = address_of(in);
        parm.out_addr = address_of(out);
        parm.work_buffer = address_of(scratch);
        parm.width = line;
        parm.height = 3;
        parm.channel = kChannels;
        parm.batch = 1;
        parm.in_fmt = support::format(width, 5, random.one_in(2) ? 1 : 0);
        parm.out_fmt = support::format(width, 6, 1);
        parm.in_scale = support::scale(random.between(1, 60), 5);
        parm.out_scale = support::scale(random.between(1, 60), 5);
        parm.local_size = local_size;
        parm.lrn_k = random.between(-1, 3);
        parm.alpha = random.uniform(1e-4f, 2.0f);
        parm.beta = random.uniform(0.1f, 1.5f);
        digest.result(tarvu_lrn_process(&parm));
        if (width == 32) {
          digest.floats(out.data(), count);
        } else {
          digest.bytes(out.data(), count * sizeof(float));
        }
      }
    }
    report.add("lrn_" + std::to_string(width), digest);
  }
}

}  // namespace

void add_activation_cases(Report &report) {
  add_prelu(report);
  add_lrn(report);
}

}  // namespace parity
