/// \file pool_case.h
/// Pooling blocks for tests: element types, a block that changes nothing but what a test sets, and one-plane calls.
#ifndef TARVU_TESTS_POOL_POOL_CASE_H
#define TARVU_TESTS_POOL_POOL_CASE_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/support/formats.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/stdout_capture.h"

namespace pool_test {

/// One of the four element types that pooling serves.
struct Type {
  int width;  ///< bits
  int sign_bits;

  size_t bytes() const { return static_cast<size_t>(width) / 8; }
  _NN_FMT fmt() const { return support::format(width, 3, sign_bits); }
};

inline constexpr Type kInt8{8, 1};
inline constexpr Type kUint8{8, 0};
inline constexpr Type kInt16{16, 1};
inline constexpr Type kUint16{16, 0};
inline constexpr Type kTypes[] = {kInt8, kUint8, kInt16, kUint16};

enum Mode : uint32_t { kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage };

/// What every byte of an output holds before a call.
inline constexpr uint8_t kUntouchedByte = 0x5A;
/// An 8-bit output element that was not written.
inline constexpr int32_t kUntouched = 0x5A;

/// Reads one element of a type.
inline int32_t element_at(const uint8_t *address, Type type) {
  uint16_t bits = 0;
  std::memcpy(&bits, address, type.bytes());
  if (type.width == 8) return type.sign_bits != 0 ? static_cast<int8_t>(bits) : static_cast<uint8_t>(bits);
  return type.sign_bits != 0 ? static_cast<int16_t>(bits) : bits;
}

/// One batch item of one channel, multipliers 1, shifts 0, a window of 1 x 1 with step 1, no padding.
inline _NN_POOL_PARM plain_block(Type in, Type out) {
  _NN_POOL_PARM block{};
  block.in_addr = support::unreadable_address();
  block.out_addr = support::unreadable_address();
  block.work_buffer = support::unreadable_address();
  block.channel = 1;
  block.batch = 1;
  block.in_fmt = in.fmt();
  block.out_fmt = out.fmt();
  block.in_scale = support::scale(1, 0);
  block.out_scale = support::scale(1, 0);
  block.kernel_w = 1;
  block.kernel_h = 1;
  block.stride_w = 1;
  block.stride_h = 1;
  return block;
}

/// A dense plane and the output grid that it is pooled to.
class Plane {
 public:
  _NN_POOL_PARM block;

  Plane(Type in, Type out, int width, int height, const std::vector<int32_t> &elements)
      : block(plain_block(in, out)), out_(out), input_(elements.size() * in.bytes()) {
    for (size_t i = 0; i < elements.size(); ++i) {
      const auto bits = static_cast<uint16_t>(elements[i]);
      std::memcpy(input_.data() + i * in.bytes(), &bits, in.bytes());
    }
    block.in_addr = input_.address();
    block.width = static_cast<uint16_t>(width);
    block.height = static_cast<uint16_t>(height);
    block.in_line_ofs = static_cast<uint32_t>(static_cast<size_t>(width) * in.bytes());
  }

  Plane &mode(Mode mode, uint32_t non_count_pad = 0) {
    block.mode = mode;
    block.non_count_pad = non_count_pad;
    return *this;
  }
  Plane &columns(int kernel, int stride, int pad_left = 0, int pad_right = 0) {
    block.kernel_w = static_cast<uint8_t>(kernel);
    block.stride_w = static_cast<uint8_t>(stride);
    block.pad_left = static_cast<uint8_t>(pad_left);
    block.pad_right = static_cast<uint8_t>(pad_right);
    return *this;
  }
  Plane &rows(int kernel, int stride, int pad_top = 0, int pad_bottom = 0) {
    block.kernel_h = static_cast<uint8_t>(kernel);
    block.stride_h = static_cast<uint8_t>(stride);
    block.pad_top = static_cast<uint8_t>(pad_top);
    block.pad_bottom = static_cast<uint8_t>(pad_bottom);
    return *this;
  }
  Plane &floor_mode(uint32_t value) {
    block.floor_mode = value;
    return *this;
  }
  Plane &multipliers(int32_t in, int32_t out) {
    block.in_scale.scale_value = in;
    block.out_scale.scale_value = out;
    return *this;
  }
  Plane &shifts(int in, int out, int post = 0) {
    block.in_scale.scale_shift = static_cast<int8_t>(in);
    block.out_scale.scale_shift = static_cast<int8_t>(out);
    block.post_shift = static_cast<int8_t>(post);
    return *this;
  }

  /// Pools into a grid of exactly this size, all of which held kUntouchedByte, and returns it line after line.
  std::vector<int32_t> pooled(size_t columns, size_t rows) {
    const support::GuardedMemory output(columns * rows * out_.bytes());
    output.fill(kUntouchedByte);
    block.out_addr = output.address();
    block.out_line_ofs = static_cast<uint32_t>(columns * out_.bytes());
    support::StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_pool_process(&block);
    EXPECT_EQ(capture.text(), "");
    EXPECT_EQ(result, QX_OK);
    EXPECT_EQ(output.guard_damage(), "");
    std::vector<int32_t> elements;
    for (size_t i = 0; i < columns * rows; ++i) elements.push_back(element_at(output.data() + i * out_.bytes(), out_));
    return elements;
  }

 private:
  Type out_;
  support::GuardedMemory input_;
};

/// Pools a single element by the global maximum.
inline int32_t requantised(Type in, Type out, int32_t element, int32_t in_value, int32_t out_value, int in_shift,
                           int out_shift, int post_shift = 0) {
  Plane plane(in, out, 1, 1, {element});
  plane.mode(kGlobalMaximum).multipliers(in_value, out_value).shifts(in_shift, out_shift, post_shift);
  return plane.pooled(1, 1)[0];
}

/// The fields of a block on one line, for the trace of a failing case.
inline std::string describe(const _NN_POOL_PARM &b) {
  std::ostringstream out;
  out << "in " << int{b.in_fmt.frac_bits} + b.in_fmt.int_bits + b.in_fmt.sign_bits << "/" << int{b.in_fmt.sign_bits}
      << " out " << int{b.out_fmt.frac_bits} + b.out_fmt.int_bits + b.out_fmt.sign_bits << "/"
      << int{b.out_fmt.sign_bits} << " extents " << b.width << " " << b.height << " " << b.channel << " " << b.batch
      << " in offsets " << b.in_line_ofs << " " << b.in_channel_ofs << " " << b.in_batch_ofs << " out offsets "
      << b.out_line_ofs << " " << b.out_channel_ofs << " " << b.out_batch_ofs << " mode " << b.mode << " kernel "
      << int{b.kernel_w} << " " << int{b.kernel_h} << " stride " << int{b.stride_w} << " " << int{b.stride_h}
      << " pads top " << int{b.pad_top} << " bottom " << int{b.pad_bottom} << " left " << int{b.pad_left} << " right "
      << int{b.pad_right} << " floor_mode " << b.floor_mode << " non_count_pad " << b.non_count_pad << " in_scale "
      << b.in_scale.scale_value << " " << int{b.in_scale.scale_shift} << " out_scale " << b.out_scale.scale_value << " "
      << int{b.out_scale.scale_shift} << " post_shift " << int{b.post_shift};
  return out.str();
}

}  // namespace pool_test

#endif  // TARVU_TESTS_POOL_POOL_CASE_H
