// Zero-point conversion of tensors of up to six dimensions, and their entry points.
#include "convert/format_entry.h"
#include "convert/multiplier.h"
#include "convert/zero_point.h"

namespace tarvu {
namespace {

/// Elements of a line that are converted in whole blocks. Kept: a line shorter than a block is converted as one whole block.
template <class T>
uint32_t in_blocks(uint32_t line) {
  constexpr uint32_t kBlock = kZeroPointBlock<T>;
  return line == 0 ? 0 : line <= kBlock ? kBlock : line / kBlock * kBlock;
}

/// Calls convert_line(source, destination, extent of dimension 0) for every line, in ascending order, dimension 5 outermost.
template <class In, class Out, class ConvertLine>
void for_each_line(const In *source, Out *destination, const uint32_t *shape, const uint32_t *stride,
                   ConvertLine convert_line) {
  constexpr int kDimensions = 6;
  uint32_t extent[kDimensions];
  size_t position[kDimensions] = {};
  for (int d = 0; d < kDimensions; ++d) {
    extent[d] = shape[d] & 0xFFFFu;  // Kept: the low 16 bits count
    if (d != 0 && extent[d] == 0) return;
  }
  for (;;) {
    size_t element = 0;
    for (int d = 1; d < kDimensions; ++d) element += position[d] * stride[d];
    convert_line(source + element, destination + element, extent[0]);
    int d = 1;
    while (d < kDimensions && ++position[d] == extent[d]) position[d++] = 0;
    if (d == kDimensions) return;
  }
}

template <class T>
void to_floats(const T *source, float *destination, const uint32_t *shape, const uint32_t *stride, int frac_bits,
               int32_t zero_point, float scale) {
  const float multiplier = multiplier_to_float(frac_bits, scale);
  for_each_line(source, destination, shape, stride, [=](const T *from, float *to, uint32_t line) {
    zero_point_to_floats<T>(from, to, line < kZeroPointBlock<T> ? in_blocks<T>(line) : line, zero_point, multiplier);
  });
}

template <class T>
void from_floats(const float *source, T *destination, const uint32_t *shape, const uint32_t *stride, int frac_bits,
                 int32_t zero_point, float scale) {
  const float multiplier = multiplier_from_float(frac_bits, scale);
  for_each_line(source, destination, shape, stride, [=](const float *from, T *to, uint32_t line) {
    const uint32_t blocked = in_blocks<T>(line);
    floats_to_zero_point_in_block<T>(from, to, blocked, zero_point, multiplier);
    if (line > blocked) {
      floats_to_zero_point_in_tail<T>(from + blocked, to + blocked, line - blocked, zero_point, multiplier);
    }
  });
}

}  // namespace
}  // namespace tarvu

void int8tofloat_nd_neon(const int8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void uint8tofloat_nd_neon(const uint8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void int16tofloat_nd_neon(const int16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void uint16tofloat_nd_neon(const uint16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}

void floattoint8_nd_neon(const float *source, int8_t *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void floattouint8_nd_neon(const float *source, uint8_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void floattoint16_nd_neon(const float *source, int16_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}
void floattouint16_nd_neon(const float *source, uint16_t *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, shape, stride, frac_bits, zero_point, scale);
}

void tarvu_fixtofloat_nd_neon(const void *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::to_floats_nd(static_cast<const T *>(source), destination, shape, stride, fmt->frac_bits,
                                    zero_point, tarvu::scale_of(*scale));
  });
}

void tarvu_floattofix_nd_neon(const float *source, void *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::from_floats_nd(source, static_cast<T *>(destination), shape, stride, fmt->frac_bits, zero_point,
                                      tarvu::scale_of(*scale));
  });
}
