#include <cstddef>
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

constexpr uint32_t kBatch = 3;
constexpr uint32_t kChannel = 5;
constexpr uint32_t kHeight = 7;
constexpr uint32_t kWidth = 141;
constexpr size_t kElements = size_t{kBatch} * kChannel * kHeight * kWidth;
constexpr size_t kTensorBytes = 2 * kElements + 4096;

uint64_t address_of(const std::vector<uint8_t> &bytes) { return reinterpret_cast<uintptr_t>(bytes.data()); }

std::vector<uint8_t> random_bytes(uint64_t seed, size_t count = kTensorBytes) {
  std::vector<uint8_t> bytes(count);
  support::Random(seed).fill(bytes.data(), bytes.size());
  return bytes;
}

/// Each type and axis, the largest and the smallest, few picks in order and all of a line as it is; 32-bit inputs fail.
void add_topk(Report &report) {
  for (const int width : {8, 16, 32}) {
    for (int8_t axis = 0; axis < 4; ++axis) {
      Digest digest;
      for (const int sign_bits : {0, 1}) {
        for (const int largest : {0, 1}) {
          for (const int sorted : {0, 1}) {
            const std::vector<uint8_t> in = random_bytes(3001);
            const std::vector<uint8_t> values = random_bytes(3002);
            const std::vector<uint8_t> indices = random_bytes(3003);
            std::vector<uint32_t> work(kWidth);
            const uint32_t extents[] = {kBatch, kChannel, kHeight, kWidth};
            _NN_TOPK_PARM parm{};
            parm.in_addr = address_of(in) + 1;
            parm.out_addr = address_of(values);
            parm.out_index_addr = address_of(indices);
            parm.work_buffer = reinterpret_cast<uintptr_t>(work.data());
            parm.width = kWidth;
            parm.height = kHeight;
            parm.channel = kChannel;
            parm.batch = kBatch;
            parm.out_line_ofs = parm.out_index_line_ofs = 2 * kWidth;
            parm.out_channel_ofs = parm.out_index_channel_ofs = kHeight * parm.out_line_ofs;
            parm.out_batch_ofs = parm.out_index_batch_ofs = kChannel * parm.out_channel_ofs;
            parm.in_fmt = format(width, 4, sign_bits);
            parm.axis = axis;
            parm.largest = static_cast<int8_t>(largest);
            parm.sorted = static_cast<int8_t>(sorted);
            parm.k = sorted != 0 ? 2 : extents[axis];
            digest.result(tarvu_topk_process(&parm));
            digest.bytes(values.data(), values.size());
            digest.bytes(indices.data(), indices.size());
          }
        }
      }
      report.add("topk_" + std::to_string(width) + "_axis_" + std::to_string(axis), digest);
    }
  }
}

/// Positions on an axis of three, by an index type of `width` bits; every fifth is -1 if `negative`.
std::vector<uint8_t> positions(size_t count, int width, bool negative) {
  const auto bytes = static_cast<size_t>(width) / 8;
  std::vector<uint8_t> list(count * bytes);
  support::Random random(3004);
  for (size_t i = 0; i < count; ++i) {
    const uint32_t position = random.below(3);
    const bool minus_one = negative && i % 5 == 4;
    for (size_t k = 0; k < bytes; ++k) {
      list[i * bytes + k] = static_cast<uint8_t>(minus_one ? 0xFF : k == 0 ? position : 0);
    }
  }
  return list;
}

/// Equal formats, another sign, fewer and more fraction bits, another width, no output elements.
std::vector<_NN_FMT> output_formats(int in_width) {
  const int width = in_width == 32 ? 16 : in_width;
  return {format(width, 4, 1), format(width, 4, 0),      format(width, 2, 1),
          format(width, 7, 0), format(24 - width, 3, 1), format(32, 4, 1)};
}

/// Each pair of widths; every rank and axis in every relation of the formats.
void add_gather(Report &report) {
  constexpr uint32_t kIndices = 12;
  for (const int in_width : {8, 16, 32}) {
    for (const int index_width : {8, 16, 32, 24}) {
      Digest digest;
      const uint32_t element_bytes = in_width == 8 ? 1 : 2;
      const std::vector<uint8_t> list = positions(kIndices, index_width, true);
      for (const _NN_FMT &out_fmt : output_formats(in_width)) {
        for (uint8_t rank = 2; rank <= 4; ++rank) {
          for (uint8_t axis = 0; axis < rank; ++axis) {
            const std::vector<uint8_t> in = random_bytes(3005);
            const std::vector<uint8_t> out = random_bytes(3006);
            const std::vector<uint8_t> work = random_bytes(3007);
            const uint32_t extents[] = {19, 3, rank > 2 ? 3u : 0, rank > 3 ? 3u : 0};
            uint32_t out_extents[] = {extents[0], extents[1], extents[2], extents[3]};
            out_extents[rank - 1 - axis] = kIndices;
            _NN_GATHER_PARM parm{};
            parm.in_addr = address_of(in) + 1;
            parm.out_addr = address_of(out);
            parm.ind_addr = address_of(list);
            parm.work_buffer = address_of(work);
            parm.in_height = static_cast<uint16_t>(extents[1]);
            parm.in_channel = static_cast<uint16_t>(extents[2]);
            parm.in_batch = static_cast<uint16_t>(extents[3]);
            parm.ind_width = kIndices;
            parm.out_width = static_cast<uint16_t>(out_extents[0]);
            parm.out_height = static_cast<uint16_t>(out_extents[1]);
            parm.out_channel = static_cast<uint16_t>(out_extents[2]);
            parm.out_batch = static_cast<uint16_t>(out_extents[3]);
            parm.in_line_ofs = extents[0] * element_bytes + 3;
            parm.in_channel_ofs = 3 * parm.in_line_ofs;
            parm.in_batch_ofs = 3 * parm.in_channel_ofs;
            parm.out_line_ofs = out_extents[0] * 2 + 4;
            parm.out_channel_ofs = out_extents[1] * parm.out_line_ofs;
            parm.out_batch_ofs = out_extents[2] * parm.out_channel_ofs;
            parm.in_fmt = format(in_width, 4, 1);
            parm.ind_fmt = format(index_width, 0, 1);
            parm.out_fmt = out_fmt;
            parm.axis = axis;
            digest.result(tarvu_gather_process(&parm));
            digest.bytes(out.data(), out.size());
          }
        }
      }
      report.add("gather_" + std::to_string(in_width) + "_by_" + std::to_string(index_width), digest);
    }
  }
}

/// Each pair of widths; every rank and axis in every relation of the formats, without and with indices of -1.
void add_gather_element(Report &report) {
  for (const int in_width : {8, 16, 32}) {
    for (const int index_width : {8, 16, 32, 24}) {
      Digest digest;
      const uint32_t element_bytes = in_width == 8 ? 1 : 2;
      for (const _NN_FMT &out_fmt : output_formats(in_width)) {
        for (uint8_t rank = 2; rank <= 4; ++rank) {
          for (uint8_t axis = 0; axis < rank; ++axis) {
            const std::vector<uint8_t> in = random_bytes(3008);
            const std::vector<uint8_t> out = random_bytes(3009);
            const std::vector<uint8_t> list = positions(37 * 3 * 3 * 3, index_width, axis % 2 == 0);
            const std::vector<uint8_t> work = random_bytes(3010, 2);
            _NN_GATHERELEMENT_PARM parm{};
            parm.in_addr = address_of(in) + 1;
            parm.out_addr = address_of(out);
            parm.ind_addr = address_of(list);
            parm.work_buffer = address_of(work);
            parm.in_height = parm.out_height = 3;
            parm.in_channel = parm.out_channel = rank > 2 ? 3 : 0;
            parm.in_batch = parm.out_batch = rank > 3 ? 3 : 0;
            parm.out_width = 37;
            parm.in_line_ofs = 37 * element_bytes + 3;
            parm.in_channel_ofs = 3 * parm.in_line_ofs;
            parm.in_batch_ofs = 3 * parm.in_channel_ofs;
            parm.ind_line_ofs = 37 * static_cast<uint32_t>(index_width) / 8;
            parm.ind_channel_ofs = 3 * parm.ind_line_ofs;
            parm.ind_batch_ofs = 3 * parm.ind_channel_ofs;
            parm.in_fmt = format(in_width, 4, 1);
            parm.ind_fmt = format(index_width, 0, 1);
            parm.out_fmt = out_fmt;
            parm.axis = axis;
            digest.result(tarvu_gatherelement_process(&parm));
            digest.bytes(out.data(), out.size());
          }
        }
      }
      report.add("gather_element_" + std::to_string(in_width) + "_by_" + std::to_string(index_width), digest);
    }
  }
}

}  // namespace

void add_select_cases(Report &report) {
  add_topk(report);
  add_gather(report);
  add_gather_element(report);
}

}  // namespace parity
