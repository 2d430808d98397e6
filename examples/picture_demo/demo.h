/// \file demo.h
/// What the stages of the picture example share: tensors in memory and the record of the layers that ran.
#ifndef TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H
#define TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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

/// One row of the table.
struct Layer {
  std::string name;
  std::string shape;
  std::string formats;
  _QX_RESULT result = QX_OK;
  double milliseconds = 0;
  uint64_t digest = 0;
};

/// FNV-1a in 64 bits.
uint64_t digest_of(const std::vector<uint8_t> &bytes);

/// Runs layers and keeps their record.
class Demo {
 public:
  explicit Demo(std::string output_folder) : output_folder_(std::move(output_folder)) {}

  /// Calls `process` on the finished block, times it and takes the digest of its output.
  template <class Block>
  void run(const std::string &name, _QX_RESULT (*process)(const Block *), const Block &block, const Tensor &in,
           const Tensor &out) {
    auto const start = std::chrono::steady_clock::now();
    _QX_RESULT const result = process(&block);
    std::chrono::duration<double, std::milli> const time = std::chrono::steady_clock::now() - start;
    record(name, result, time.count(), in, out);
  }

  /// Runs a conversion, which has no block and no result, in the same way.
  template <class Call>
  void run(const std::string &name, Call call, const Tensor &in, const Tensor &out) {
    auto const start = std::chrono::steady_clock::now();
    call();
    std::chrono::duration<double, std::milli> const time = std::chrono::steady_clock::now() - start;
    record(name, QX_OK, time.count(), in, out);
  }

  /// Path of an output file.
  std::string path(const std::string &file_name) const { return output_folder_ + "/" + file_name; }

  const std::vector<Layer> &layers() const { return layers_; }
  void print_table() const;

  /// One line a layer: digest and name. Equal files mean equal results.
  void write_digests() const;

 private:
  void record(const std::string &name, _QX_RESULT result, double milliseconds, const Tensor &in, const Tensor &out);

  std::string output_folder_;
  std::vector<Layer> layers_;
};

/// Floats, as the 32-bit format that the operators take them by.
inline constexpr _NN_FMT kFloats = {0, 31, 1, 0};

/// Turns planes of bytes back into an interleaved picture and writes it.
Tensor show_planes(Demo &demo, const std::string &name, const Tensor &planes);

/// Stops the example if a layer did not undo another.
void expect_same(const Tensor &a, const Tensor &b, const std::string &what);

/// Re-orders the axes of an interleaved picture, mirrors, flips and re-formats it, and writes what comes out. Returns the
/// picture's planes.
Tensor rearranging_stages(Demo &demo, const Tensor &picture);

/// Takes planes of bytes to floats and back, with scales and zero points.
void conversion_stages(Demo &demo, const Tensor &planes);

}  // namespace demo

#endif  // TARVU_EXAMPLES_PICTURE_DEMO_DEMO_H
