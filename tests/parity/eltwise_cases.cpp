#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"

namespace parity {
namespace {

constexpr uint16_t kHeight = 3;
constexpr uint16_t kChannels = 2;
constexpr uint16_t kBatch = 2;
constexpr uint16_t kMostWidth = 77;
constexpr size_t kMostElements = size_t{kMostWidth} * kHeight * kChannels * kBatch;

/// What the operation and its weights may be: the product, four forms of the sum, and a code that prints.
struct Operation {
  int32_t code;
  float coeff0, coeff1;
};
constexpr Operation kOperations[] = {{0, 0.5f, 0.5f}, {1, 1.0f, 1.0f},  {1, 1.0f, -1.0f},
                                     {1, 0.3f, 1.0f}, {1, 0.7f, -1.9f}, {7, 2.0f, 0.25f}};

uint64_t address_of(const std::vector<uint8_t> &bytes) { return reinterpret_cast<uintptr_t>(bytes.data()); }

/// A tensor of room for any width; floats of every kind in one case of four, else of fixed-point size.
std::vector<uint8_t> random_tensor(support::Random &random, int width) {
  std::vector<uint8_t> bytes(4 * kMostElements);
  if (width != 32) {
    random.fill(bytes.data(), bytes.size());
  } else if (random.one_in(4)) {
    random.fill_any_floats(bytes.data(), kMostElements);
  } else {
    random.fill_floats(bytes.data(), kMostElements, -40.0f, 40.0f);
  }
  return bytes;
}

/// Scales that stay powers of two and one that does not.
_NN_SCALE random_scale(support::Random &random) {
  return random.one_in(2) ? support::scale(1, random.between(-1, 2)) : support::scale(random.between(1, 99), 5);
}

struct Tensor {
  _NN_FMT fmt;
  uint32_t line_bytes, channel_bytes, batch_bytes;

  Tensor(int width, int frac_bits, int sign_bits, uint16_t line)
      : fmt(support::format(width, frac_bits, sign_bits)),
        line_bytes(line * static_cast<uint32_t>(width) / 8),
        channel_bytes(kHeight * line_bytes),
        batch_bytes(kChannels * channel_bytes) {}
};

void add_pair(Report &report, int in_width, int out_width) {
  support::Random random(1301);
  Digest digest;
  for (const Operation &operation : kOperations) {
    for (const uint16_t line : {uint16_t{1}, uint16_t{11}, uint16_t{kMostWidth}}) {
      for (int signs = 0; signs < 4; ++signs) {
        const Tensor first(in_width, random.between(-1, 7), signs % 2, line);
        const int second_width = random.one_in(3) ? 16 : in_width;
        const Tensor second(second_width, random.between(-1, 7), signs % 2, line);
        const Tensor result(out_width, random.between(-1, 7), signs / 2, line);
        const std::vector<uint8_t> in0 = random_tensor(random, in_width);
        const std::vector<uint8_t> in1 = random_tensor(random, in_width);
        const std::vector<uint8_t> out(4 * kMostElements, 0x5A);
        const std::vector<uint8_t> scratch(12 * size_t{kMostWidth} * kHeight);
        _NN_ELTWISE_PARM parm{};
        parm.in0_addr = address_of(in0);
        parm.in1_addr = address_of(in1);
        parm.out_addr = address_of(out);
        parm.work_buffer = address_of(scratch);
        parm.width = line;
        parm.height = kHeight;
        parm.channel = kChannels;
        parm.batch = kBatch;
        parm.in0_line_ofs = first.line_bytes;
        parm.in0_channel_ofs = first.channel_bytes;
        parm.in0_batch_ofs = first.batch_bytes;
        parm.in1_line_ofs = second.line_bytes;
        parm.in1_channel_ofs = second.channel_bytes;
        parm.in1_batch_ofs = second.batch_bytes;
        parm.out_line_ofs = result.line_bytes;
        parm.out_channel_ofs = result.channel_bytes;
        parm.out_batch_ofs = result.batch_bytes;
        parm.in0_fmt = first.fmt;
        parm.in1_fmt = second.fmt;
        parm.out_fmt = result.fmt;
        parm.in0_scale = random_scale(random);
        parm.in1_scale = random_scale(random);
        parm.out_scale = random_scale(random);
        parm.op = operation.code;
        parm.coeff0 = operation.coeff0;
        parm.coeff1 = operation.coeff1;
        digest.result(tarvu_eltwise_process(&parm));
        if (out_width == 32) {
          digest.floats(out.data(), out.size() / 4);
        } else {
          digest.bytes(out.data(), out.size());
        }
      }
    }
  }
  report.add("eltwise_" + std::to_string(in_width) + "_to_" + std::to_string(out_width), digest);
}

}  // namespace

/// Every pair of widths, every operation, lines around the blocks, scales that are powers of two and others.
void add_eltwise_cases(Report &report) {
  for (const int in_width : {8, 16, 32}) {
    for (const int out_width : {8, 16, 32}) add_pair(report, in_width, out_width);
  }
}

}  // namespace parity
