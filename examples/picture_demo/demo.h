/// \file demo.h
/// What the stages of the picture example share: tensors in memory and the record of the layers and pictures.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H
#define TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "table.h"
#include "tarvu.h"

namespace demo {

/// Extents in the order of a parameter block; width varies fastest.
struct Shape {
  uint16_t width = 1;
  uint16_t height = 1;
  uint16_t channel = 1;
  uint16_t batch = 1;
};

/// A dense tensor.
struct Tensor {
  Shape shape;
  _NN_FMT format{};
  std::vector<uint8_t> bytes;

  Tensor() = default;
  Tensor(Shape the_shape, _NN_FMT the_format);

  uint32_t element_bytes() const;
  uint32_t line_bytes() const { return shape.width * element_bytes(); }
  uint32_t channel_bytes() const { return shape.height * line_bytes(); }
  uint32_t batch_bytes() const { return shape.channel * channel_bytes(); }
  uint64_t address() const { return reinterpret_cast<uintptr_t>(bytes.data()); }
};

/// An unsigned format of `frac_bits` fraction bits in `width_bits`.
_NN_FMT unsigned_format(int frac_bits, int width_bits);

/// The fields that most blocks share: addresses, extents, offsets and formats.
template <class Block>
Block block_of(const Tensor &in, const Tensor &out) {
  Block block = {};
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.width = in.shape.width;
  block.height = in.shape.height;
  block.channel = in.shape.channel;
  block.batch = in.shape.batch;
  block.in_line_ofs = in.line_bytes();
  block.in_channel_ofs = in.channel_bytes();
  block.in_batch_ofs = in.batch_bytes();
  block.out_line_ofs = out.line_bytes();
  block.out_channel_ofs = out.channel_bytes();
  block.out_batch_ofs = out.batch_bytes();
  block.in_fmt = in.format;
  block.out_fmt = out.format;
  return block;
}

/// FNV-1a in 64 bits.
uint64_t digest_of(const std::vector<uint8_t> &bytes);

/// An interleaved picture with its caption, and a note where the picture may surprise.
struct Picture {
  std::string caption;
  std::string note;
  Tensor pixels;
};

/// Runs layers and keeps their record, and that of the pictures that come out.
class Demo {
 public:
  /// `machine` and `emulated` as in Run.
  Demo(std::string output_folder, std::string machine, bool emulated)
      : output_folder_(std::move(output_folder)), run_{std::move(machine), emulated, {}} {}

  /// Calls `process` on the finished block, times it and takes the digest of its output.
  template <class Block>
  void run(const std::string &name, _QX_RESULT (*process)(const Block *), const Block &block, const Tensor &in,
           const Tensor &out) {
    time_and_record(
        name, [&] { return process(&block); }, in, out);
  }

  /// Runs a conversion, which has no block and no result, in the same way.
  template <class Call>
  void run(const std::string &name, Call call, const Tensor &in, const Tensor &out) {
    auto const convert = [&]() -> _QX_RESULT {
      call();
      return QX_OK;
    };
    time_and_record(name, convert, in, out);
  }

  /// Announces a stage.
  void begin(const std::string &stage);

  /// Writes an interleaved picture, as a file of the caption's name with '_' for ' '.
  void show(const std::string &caption, const Tensor &interleaved, const std::string &note = "");

  /// Keeps a line of the ending summary.
  void report(const std::string &line) { findings_.push_back(line); }

  const Run &layers() const { return run_; }
  const std::vector<Picture> &pictures() const { return pictures_; }

  /// Path of an output file.
  std::string path(const std::string &file_name) const { return output_folder_ + "/" + file_name; }

  void print_findings() const;

  /// One line a layer: digest and name. Equal files mean equal results.
  void write_digests() const;

 private:
  /// What the layer prints is kept from standard output and reported.
  void time_and_record(const std::string &name, const std::function<_QX_RESULT()> &call, const Tensor &in,
                       const Tensor &out);

  std::string output_folder_;
  Run run_;
  std::vector<Picture> pictures_;
  std::vector<std::string> findings_;
};

/// Floats, as the 32-bit format that the operators take them by.
inline constexpr _NN_FMT kFloats = {0, 31, 1, 0};

inline constexpr _NN_FMT kByte = {0, 8, 0, 0};

/// Re-orders axes: order[i] is the input axis that becomes output axis i (0 batch, 1 channel, 2 height, 3 width).
using Order = std::array<int8_t, 4>;
inline constexpr Order kInterleavedToPlanes = {0, 3, 1, 2};
inline constexpr Order kPlanesToInterleaved = {0, 2, 3, 1};
inline constexpr Order kKeep = {0, 1, 2, 3};
Tensor permute(Demo &demo, const std::string &name, const Tensor &in, Order order, _NN_FMT out_format);

/// Turns planes of bytes back into an interleaved picture and writes it.
Tensor show_planes(Demo &demo, const std::string &caption, const Tensor &planes, const std::string &note = "");

enum class Pooling : uint32_t { kMaximum = 0, kAverage = 1, kGlobalAverage = 3 };

/// Reduces each tile of `width` x `height` elements to one. `post_shift` bits less are kept of it.
Tensor pool_tiles(Demo &demo, const std::string &name, const Tensor &in, Pooling mode, int width, int height,
                  int post_shift = 0);

/// Axes of a tensor without batch, as Gather counts them.
enum class Axis : uint8_t { kChannel = 0, kHeight = 1 };

/// Takes the slices of a tensor at the given positions along an axis.
Tensor gather(Demo &demo, const std::string &name, const Tensor &in, Axis axis, const std::vector<uint16_t> &positions);

/// Stops the example if a layer did not undo another.
void expect_same(const Tensor &a, const Tensor &b, const std::string &what);

/// Re-orders the axes of an interleaved picture, mirrors, flips and re-formats it, and writes what comes out. Returns the
/// picture's planes.
Tensor rearranging_stages(Demo &demo, const Tensor &picture);

/// Takes planes of bytes to floats and back, with scales and zero points.
void conversion_stages(Demo &demo, const Tensor &planes);

/// Makes pyramids of halved sizes of planes, by maximum and by average, and the average of each plane.
void pooling_stages(Demo &demo, const Tensor &planes);

/// Takes a list of class scores through softmax, by floats and by table, and finds the five largest.
void score_stages(Demo &demo, const std::string &scores_path);

/// Bends a picture and takes a strip of its lines in another order.
void resampling_stages(Demo &demo, const Tensor &planes);

/// Runs a detector's tail, with class scores that are computed from the picture, and draws the boxes with their classes
/// and scores.
void detection_stages(Demo &demo, const Tensor &picture);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H
