/// \file floats.h
/// What operators that compute in float have in common: which formats their conversions know, items without gaps, and arrays of
/// floats in scratch memory.
#ifndef TARVU_CONTRACT_FLOATS_H
#define TARVU_CONTRACT_FLOATS_H

#include "contract/formats.h"

namespace contract {

/// Bytes of an element that the conversions between integers and floats know; 0 for any other format.
inline uint32_t converted_bytes(const _NN_FMT &fmt) {
  if (fmt.sign_bits != 0 && fmt.sign_bits != 1) return 0;
  const int32_t width = width_of(fmt);
  return width == 8 ? 1 : width == 16 ? 2 : 0;
}

/// An element as it lies in a tensor: 0 bytes where it is not touched.
struct Element {
  uint32_t bytes;
  int32_t type;
};

inline constexpr Element kFloatElement = {4, TARVU_CONTRACT_F32};

inline Element converted_element(const _NN_FMT &fmt) {
  const uint32_t bytes = converted_bytes(fmt);
  return {bytes, integer_type_of(fmt, bytes)};
}

/// As converted_element(), with a width of 32 bits as floats in place.
inline Element placed_element(const _NN_FMT &fmt) {
  return type_code_of(fmt) == NN_AI_IO_TYPE_32BIT ? kFloatElement : converted_element(fmt);
}

/// Extents whose elements follow one another.
struct Extents {
  uint32_t width;
  uint32_t height;
  uint32_t channel;

  Wide true_count() const { return Wide{width} * height * channel; }
  uint32_t count() const { return width * height * channel; }  ///< as the operators reckon it
};

/// Elements that follow one another. A number that wraps makes one run.
inline void extend_dense(Range &range, const Extents &extents) {
  if (extents.true_count() != extents.count()) return extend(range, extents.count(), range.element_bytes);
  const int64_t line = int64_t{extents.width} * range.element_bytes;
  extend(range, extents.width, range.element_bytes, TARVU_CONTRACT_AXIS_WIDTH);
  extend(range, extents.height, line, TARVU_CONTRACT_AXIS_HEIGHT);
  extend(range, extents.channel, line * extents.height, TARVU_CONTRACT_AXIS_CHANNEL);
}

/// Adds a run of floats.
inline void add_floats(RangeSink &sink, const char *field, uint64_t address, int32_t role, uint64_t count,
                       bool is_exact = true) {
  Range range = range_of(field, address, role, TARVU_CONTRACT_F32, 4);
  range.exact = is_exact ? 1 : 0;
  extend(range, count, 4);
  add(sink, range);
}

/// Adds scratch memory that floats pass through. How much of it is used is left open, since results are the same without.
inline void add_scratch(RangeSink &sink, uint64_t address, uint64_t first_byte, uint64_t floats) {
  Range range = range_of("work_buffer", address, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_F32, 4);
  range.exact = 0;
  range.alignment = 4;
  range.offset = static_cast<int64_t>(first_byte);
  extend(range, floats, 4);
  add(sink, range);
}

/// Says that the bytes of an array of floats, reckoned in 32 bits, wrap.
inline void check_float_bytes(FindingSink &sink, const char *field, Wide floats) {
  check_wrap(sink, field, static_cast<uint32_t>(4 * floats), 4 * floats);
}

/// Says that an offset of lines that is not read is not what lies between lines without gaps. An offset of 0 is taken to be unset.
inline void check_dense_lines(FindingSink &sink, const Id &id, const char *field, uint32_t offset, uint32_t height,
                              uint64_t line_bytes) {
  if (offset != 0 && offset != line_bytes && height > 1 && line_bytes != 0) {
    add(sink, id, field, offset, {static_cast<int64_t>(line_bytes), 0, 0});
  }
}

}  // namespace contract

#endif  // TARVU_CONTRACT_FLOATS_H
