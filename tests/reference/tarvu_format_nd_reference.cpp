#include "tarvu_format_nd_reference.h"

#include "processor_rules.h"
#include "tarvu_type_convert_reference.h"

namespace reference {
namespace {

template <class From, class To>
using RunKernel = void (*)(const From *source, To *destination, uint32_t count, int16_t frac_bits, int32_t zero_point,
                           float scale);

/// One run: whole blocks over the block part, which for a short run reach past its end, then a tail over the rest.
template <class From, class To>
void convert_run(RunKernel<From, To> kernel, const From *source, To *destination, uint32_t extent, uint32_t block,
                 int16_t frac_bits, int32_t zero_point, float scale) {
  const uint32_t block_part = extent <= block ? extent : extent / block * block;
  for (uint32_t i = 0; i < block_part; i += block) {
    kernel(source + i, destination + i, block, frac_bits, zero_point, scale);
  }
  kernel(source + block_part, destination + block_part, extent - block_part, frac_bits, zero_point, scale);
}

template <class From, class To>
void walk(RunKernel<From, To> kernel, const From *source, To *destination, const uint32_t *shape,
          const uint32_t *stride, uint32_t block, int16_t frac_bits, int32_t zero_point, float scale) {
  uint64_t extent[6];
  for (int k = 0; k < 6; ++k) extent[k] = load<uint32_t>(shape + k) & 0xFFFFu;
  uint64_t step[6] = {0};
  for (int k = 1; k < 6; ++k) step[k] = load<uint32_t>(stride + k);
  for (uint64_t i5 = 0; i5 < extent[5]; ++i5) {
    for (uint64_t i4 = 0; i4 < extent[4]; ++i4) {
      for (uint64_t i3 = 0; i3 < extent[3]; ++i3) {
        for (uint64_t i2 = 0; i2 < extent[2]; ++i2) {
          for (uint64_t i1 = 0; i1 < extent[1]; ++i1) {
            const uint64_t at = i5 * step[5] + i4 * step[4] + i3 * step[3] + i2 * step[2] + i1 * step[1];
            convert_run(kernel, source + at, destination + at, static_cast<uint32_t>(extent[0]), block, frac_bits,
                        zero_point, scale);
          }
        }
      }
    }
  }
}

float scale_of(const _NN_SCALE &record) {
  const float value = static_cast<float>(record.scale_value);
  if (record.scale_shift >= 0) return value / static_cast<float>(shift_left_32(1, record.scale_shift));
  return static_cast<float>(shift_left_32(1, -int32_t{record.scale_shift})) * value;
}

}  // namespace

void uint16tofloat_nd_neon(const uint16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale) {
  walk<uint16_t, float>(reference::uint16tofloat_1d_neon, source, destination, shape, stride, 16, frac_bits, zero_point,
                        scale);
}

void int16tofloat_nd_neon(const int16_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  walk<int16_t, float>(reference::int16tofloat_1d_neon, source, destination, shape, stride, 16, frac_bits, zero_point,
                       scale);
}

void uint8tofloat_nd_neon(const uint8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  walk<uint8_t, float>(reference::uint8tofloat_1d_neon, source, destination, shape, stride, 8, frac_bits, zero_point,
                       scale);
}

void int8tofloat_nd_neon(const int8_t *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale) {
  walk<int8_t, float>(reference::int8tofloat_1d_neon, source, destination, shape, stride, 8, frac_bits, zero_point,
                      scale);
}

void floattouint16_nd_neon(const float *source, uint16_t *destination, const uint32_t *shape, const uint32_t *stride,
                           int16_t frac_bits, int32_t zero_point, float scale) {
  walk<float, uint16_t>(reference::floattouint16_1d_neon, source, destination, shape, stride, 16, frac_bits, zero_point,
                        scale);
}

void floattoint16_nd_neon(const float *source, int16_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  walk<float, int16_t>(reference::floattoint16_1d_neon, source, destination, shape, stride, 16, frac_bits, zero_point,
                       scale);
}

void floattouint8_nd_neon(const float *source, uint8_t *destination, const uint32_t *shape, const uint32_t *stride,
                          int16_t frac_bits, int32_t zero_point, float scale) {
  walk<float, uint8_t>(reference::floattouint8_1d_neon, source, destination, shape, stride, 8, frac_bits, zero_point,
                       scale);
}

void floattoint8_nd_neon(const float *source, int8_t *destination, const uint32_t *shape, const uint32_t *stride,
                         int16_t frac_bits, int32_t zero_point, float scale) {
  walk<float, int8_t>(reference::floattoint8_1d_neon, source, destination, shape, stride, 8, frac_bits, zero_point,
                      scale);
}

void tarvu_fixtofloat_nd_neon(const void *source, float *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::uint8tofloat_nd_neon(static_cast<const uint8_t *>(source), destination, shape, stride, format.frac_bits,
                                    zero_point, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::uint16tofloat_nd_neon(static_cast<const uint16_t *>(source), destination, shape, stride,
                                     format.frac_bits, zero_point, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::int8tofloat_nd_neon(static_cast<const int8_t *>(source), destination, shape, stride, format.frac_bits,
                                   zero_point, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::int16tofloat_nd_neon(static_cast<const int16_t *>(source), destination, shape, stride, format.frac_bits,
                                    zero_point, s);
  }
}

void tarvu_floattofix_nd_neon(const float *source, void *destination, const uint32_t *shape, const uint32_t *stride,
                              const _NN_FMT *fmt, const _NN_SCALE *scale, int32_t zero_point) {
  const _NN_FMT format = load<_NN_FMT>(fmt);
  const int32_t width = int32_t{format.frac_bits} + int32_t{format.int_bits} + int32_t{format.sign_bits};
  const float s = scale_of(load<_NN_SCALE>(scale));
  if (format.sign_bits == 0 && width == 8) {
    reference::floattouint8_nd_neon(source, static_cast<uint8_t *>(destination), shape, stride, format.frac_bits,
                                    zero_point, s);
  }
  if (format.sign_bits == 0 && width == 16) {
    reference::floattouint16_nd_neon(source, static_cast<uint16_t *>(destination), shape, stride, format.frac_bits,
                                     zero_point, s);
  }
  if (format.sign_bits == 1 && width == 8) {
    reference::floattoint8_nd_neon(source, static_cast<int8_t *>(destination), shape, stride, format.frac_bits,
                                   zero_point, s);
  }
  if (format.sign_bits == 1 && width == 16) {
    reference::floattoint16_nd_neon(source, static_cast<int16_t *>(destination), shape, stride, format.frac_bits,
                                    zero_point, s);
  }
}

}  // namespace reference
