// Zero-point conversion of flat runs.
#include "convert/multiplier.h"
#include "convert/zero_point.h"
#include "tarvu.h"

namespace tarvu {
namespace {

template <class T>
void to_floats(const T *source, float *destination, uint32_t count, int frac_bits, int32_t zero_point, float scale) {
  zero_point_to_floats<T>(source, destination, count, zero_point, multiplier_to_float(frac_bits, scale));
}

template <class T>
void from_floats(const float *source, T *destination, uint32_t count, int frac_bits, int32_t zero_point, float scale) {
  const float multiplier = multiplier_from_float(frac_bits, scale);
  const uint32_t in_blocks = count / kZeroPointBlock<T> * kZeroPointBlock<T>;
  floats_to_zero_point_in_block<T>(source, destination, in_blocks, zero_point, multiplier);
  floats_to_zero_point_in_tail<T>(source + in_blocks, destination + in_blocks, count - in_blocks, zero_point,
                                  multiplier);
}

}  // namespace
}  // namespace tarvu

void int8tofloat_1d_neon(const int8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, count, frac_bits, zero_point, scale);
}
void uint8tofloat_1d_neon(const uint8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, count, frac_bits, zero_point, scale);
}
void int16tofloat_1d_neon(const int16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, count, frac_bits, zero_point, scale);
}
void uint16tofloat_1d_neon(const uint16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale) {
  tarvu::to_floats(source, destination, count, frac_bits, zero_point, scale);
}

void floattoint8_1d_neon(const float *source, int8_t *destination, uint32_t count, int16_t frac_bits,
                         int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, count, frac_bits, zero_point, scale);
}
void floattouint8_1d_neon(const float *source, uint8_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, count, frac_bits, zero_point, scale);
}
void floattoint16_1d_neon(const float *source, int16_t *destination, uint32_t count, int16_t frac_bits,
                          int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, count, frac_bits, zero_point, scale);
}
void floattouint16_1d_neon(const float *source, uint16_t *destination, uint32_t count, int16_t frac_bits,
                           int32_t zero_point, float scale) {
  tarvu::from_floats(source, destination, count, frac_bits, zero_point, scale);
}
