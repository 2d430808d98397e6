#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/parity/digest.h"
#include "tests/support/formats.h"
#include "tests/support/random.h"
#include "tests/tensor/heap_watch.h"

namespace parity {
namespace {

using support::format;

uint64_t address_of(const std::vector<uint8_t> &bytes) { return reinterpret_cast<uintptr_t>(bytes.data()); }

std::vector<uint8_t> random_bytes(uint64_t seed, size_t count) {
  std::vector<uint8_t> bytes(count);
  support::Random(seed).fill(bytes.data(), bytes.size());
  return bytes;
}

/// One to four coordinates in a shared batch, direct and re-formatted, indices of each width; 32-bit inputs fail.
void add_gather_nd(Report &report) {
  constexpr uint16_t kExtent = 5;
  constexpr uint16_t kTuples = 86;
  constexpr size_t kElements = size_t{kExtent} * kExtent * kExtent * kExtent;
  for (const int width : {8, 16, 32}) {
    for (uint16_t coordinates = 1; coordinates <= 4; ++coordinates) {
      Digest digest;
      for (const int index_width : {8, 16}) {
        for (const int out_frac_bits : {4, 2}) {
          const std::vector<uint8_t> in = random_bytes(4001, 4 * kElements);
          const std::vector<uint8_t> out = random_bytes(4002, 4 * kElements * kTuples);
          std::vector<uint8_t> indices(size_t{2} * kTuples * coordinates);
          support::Random random(4003);
          for (size_t i = 0; i < indices.size(); i += 2) {
            indices[i] = static_cast<uint8_t>(random.below(2 * kExtent));
            indices[i + 1] = index_width == 8 ? static_cast<uint8_t>(random.below(2 * kExtent)) : uint8_t{0};
          }
          std::vector<float> work(size_t{kTuples} * coordinates);
          _NN_GATHERND_PARM parm{};
          parm.in_addr = address_of(in) + 1;
          parm.out_addr = address_of(out);
          parm.ind_addr = address_of(indices);
          parm.work_buffer = reinterpret_cast<uintptr_t>(work.data());
          parm.in_width = parm.in_height = parm.in_channel = parm.in_batch = kExtent;
          parm.ind_width = coordinates;
          parm.ind_height = kTuples;
          parm.batch_dims = coordinates < 4 ? 1 : 0;
          const uint32_t slice_rank = 4 - coordinates - parm.batch_dims;
          parm.out_width = static_cast<uint16_t>(slice_rank == 0 ? 1 : slice_rank == 1 ? kExtent : kExtent * kExtent);
          parm.out_height = kTuples;
          parm.in_fmt = format(width, 4, 1);
          parm.out_fmt = format(width, out_frac_bits, 1);
          parm.ind_fmt = format(index_width, 1, 1);
          const selection_test::HeapWatch watch;
          digest.result(tarvu_gathernd_process(&parm));
          digest.bytes(out.data(), out.size());
        }
      }
      report.add("gathernd_" + std::to_string(width) + "_coordinates_" + std::to_string(coordinates), digest);
    }
  }
}

/// Each axis and width, indices of both signs with fractions and a scale, and an unsupported output.
void add_one_hot(Report &report) {
  constexpr uint16_t kHeight = 70;
  constexpr uint16_t kChannel = 3;
  constexpr uint16_t kBatch = 2;
  constexpr int32_t kDepth = 37;
  constexpr size_t kIndices = size_t{kHeight} * kChannel * kBatch;
  for (const int width : {8, 16, 32}) {
    for (int32_t axis = 0; axis <= 4; ++axis) {
      Digest digest;
      for (const int index_width : {8, 16}) {
        const std::vector<uint8_t> in = random_bytes(4011, 2 * kIndices);
        const std::vector<uint8_t> values = random_bytes(4012, 4);
        const std::vector<uint8_t> out = random_bytes(4013, 2 * kIndices * kDepth);
        const uint32_t element = width == 8 ? 1 : 2;
        const uint32_t extents[4] = {kBatch, kChannel, kHeight, kDepth};
        std::vector<uint32_t> shape(extents, extents + 3);
        shape.insert(shape.begin() + std::min(axis, 3), extents[3]);
        _NN_ONEHOT_PARM parm{};
        parm.in_addr = address_of(in);
        parm.out_addr = address_of(out);
        parm.values_addr = address_of(values);
        parm.height = kHeight;
        parm.channel = kChannel;
        parm.batch = kBatch;
        parm.in_line_ofs = static_cast<uint32_t>(index_width) / 8;
        parm.in_channel_ofs = kHeight * parm.in_line_ofs;
        parm.in_batch_ofs = kChannel * parm.in_channel_ofs;
        parm.out_line_ofs = shape[3] * element;
        parm.out_channel_ofs = shape[2] * parm.out_line_ofs;
        parm.out_batch_ofs = shape[1] * parm.out_channel_ofs;
        parm.in_fmt = format(index_width, 1, 1);
        parm.out_fmt = format(width, 3, 1);
        parm.values_fmt = format(16, 5, 1);
        parm.in_scale = support::scale(3, index_width == 8 ? 2 : 10);
        parm.axis = axis;
        parm.depth = kDepth;
        digest.result(tarvu_onehot_process(&parm));
        digest.bytes(out.data(), out.size());
      }
      report.add("onehot_" + std::to_string(width) + "_axis_" + std::to_string(axis), digest);
    }
  }
}

struct Shape {
  uint16_t channels, width, height, out_width, out_height;
};

/// Both layouts and signs; a lone channel and groups of eight; shifts to both sides; narrow outputs and tails.
void add_grid_sample(Report &report) {
  const Shape shapes[] = {
      {1, 40, 30, 29, 7}, {3, 11, 9, 21, 6}, {8, 20, 20, 16, 5}, {19, 9, 12, 13, 4}, {5, 8, 8, 6, 3}};
  for (const bool is_planar : {false, true}) {
    for (const Shape &s : shapes) {
      Digest digest;
      for (const int sign_bits : {0, 1}) {
        for (const int grid_frac_bits : {7, 8}) {
          for (const int out_frac_bits : {2, 4, 14}) {
            const size_t image = size_t{s.channels} * s.width * s.height;
            const size_t points = size_t{s.out_width} * s.out_height;
            const std::vector<uint8_t> in = random_bytes(4021, 4 * image + 4096);
            std::vector<uint8_t> grid = random_bytes(4022, 2 * points + 16);
            for (uint8_t &value : grid) value = grid_frac_bits == 7 ? value / 2 : value;
            const std::vector<uint8_t> out = random_bytes(4023, points * (s.channels + 8u));
            const uint16_t in_planar[4] = {s.width, s.height, s.channels, 1};
            const uint16_t in_interleaved[4] = {s.channels, 1, s.width, s.height};
            const uint16_t out_planes[4] = {s.out_width, s.out_height, s.channels, 1};
            const uint16_t grid_planar[4] = {2, s.out_width, s.out_height, 1};
            const uint16_t grid_interleaved[4] = {7, s.out_width, 1, s.out_height};
            _NN_GRIDSAMPLE_PARM parm{};
            std::copy_n(is_planar ? in_planar : in_interleaved, 4, parm.in_shape);
            std::copy_n(out_planes, 4, parm.out_shape);
            std::copy_n(is_planar ? grid_planar : grid_interleaved, 4, parm.grid_shape);
            parm.in_addr = address_of(in);
            parm.grid_addr = address_of(grid);
            parm.out_addr = address_of(out);
            parm.in_fmt = format(8, 4, sign_bits);
            parm.out_fmt = format(8, out_frac_bits, 1);
            parm.grid_fmt = format(8, grid_frac_bits, 0);
            parm.row_group = 1;
            digest.result(tarvu_gridsample_process(&parm));
            digest.bytes(out.data(), out.size());
          }
        }
      }
      report.add((is_planar ? "gridsample_planar_c" : "gridsample_interleaved_c") + std::to_string(s.channels), digest);
    }
  }
}

}  // namespace

void add_resample_cases(Report &report) {
  add_gather_nd(report);
  add_one_hot(report);
  add_grid_sample(report);
}

}  // namespace parity
