// Integer re-formatting without a way through float, and the entry points that convert runs by format and scale.
#include <cstring>

#include "convert/format_entry.h"
#include "convert/reformat.h"
#include "frame/memory.h"
#include "simd/saturating_shift.h"

namespace tarvu {
namespace {

template <class In, class Out>
void reformat(const uint8_t *from, uint8_t *to, uint32_t count, int shift) {
  const bool in_blocks =
      no_store_precedes_its_load(memory_of(from, count * sizeof(In)), memory_of(to, count * sizeof(Out)));
  if (shift <= kLongestExactShift<In> && in_blocks) {
    shift_and_clamp_run<In, Out>(from, to, count, shift);
    return;
  }
  // Kept: ascending, one element at a time. A wider output in place overwrites elements before they are read, and a long left
  // shift wraps before the clamp.
  for (uint32_t i = 0; i < count; ++i) {
    store(to + i * sizeof(Out), shift_and_clamp<In, Out>(load<In>(from + i * sizeof(In)), shift));
  }
}

void copy_elements(const uint8_t *from, uint8_t *to, uint32_t count, int element_bytes) {
  if (from != to) std::memmove(to, from, size_t{count} * static_cast<size_t>(element_bytes));
}

}  // namespace

Reformat reformat_between(const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  // Kept: widths are sums of a byte, modulo 256.
  const int in_width = static_cast<int8_t>(width_bits(in_fmt));
  const int out_width = static_cast<int8_t>(width_bits(out_fmt));
  const bool in_narrow = in_width == 8 || in_width == 16;
  const bool out_narrow = out_width == 8 || out_width == 16;
  if (!in_narrow || !out_narrow) return {};
  Reformat reformat{static_cast<uint32_t>(in_width / 8), static_cast<uint32_t>(out_width / 8), false, 0, nullptr};
  const int right = in_fmt.frac_bits - out_fmt.frac_bits;
  if (in_width == out_width && right == 0) {
    // Kept: a copy whatever the signs, with no clamp.
    reformat.copies = true;
    reformat.shift = in_width / 8;
    reformat.run = copy_elements;
    return reformat;
  }
  reformat.shift = right >= 0 ? -(right & 31) : (-right & 31);
  // Signedness of both sides is the output's.
  static constexpr decltype(reformat.run) kRuns[2][2][2] = {
      {{tarvu::reformat<uint8_t, uint8_t>, tarvu::reformat<uint8_t, uint16_t>},
       {tarvu::reformat<uint16_t, uint8_t>, tarvu::reformat<uint16_t, uint16_t>}},
      {{tarvu::reformat<int8_t, int8_t>, tarvu::reformat<int8_t, int16_t>},
       {tarvu::reformat<int16_t, int8_t>, tarvu::reformat<int16_t, int16_t>}}};
  reformat.run = kRuns[out_fmt.sign_bits != 0 ? 1 : 0][in_width / 16][out_width / 16];
  return reformat;
}

}  // namespace tarvu

void tarvu_convert_fmt_c(const void *source, void *destination, uint32_t count, const _NN_FMT *in_fmt,
                         const _NN_FMT *out_fmt, const _NN_SCALE *, const _NN_SCALE *) {
  if (count == 0) return;
  tarvu::reformat_run(tarvu::reformat_between(*in_fmt, *out_fmt), static_cast<const uint8_t *>(source),
                      static_cast<uint8_t *>(destination), count);
}

void tarvu_fixtofloat_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::to_floats(static_cast<const T *>(source), destination, fmt->frac_bits, count,
                                 tarvu::scale_of(*scale));
  });
}

void tarvu_floattofix_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                           const _NN_SCALE *scale) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::from_floats(source, static_cast<T *>(destination), fmt->frac_bits, count,
                                   tarvu::scale_of(*scale));
  });
}

void tarvu_floattofix_rnd_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                               const _NN_SCALE *scale, uint32_t rounding_code) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::from_floats_rounded(source, static_cast<T *>(destination), fmt->frac_bits, count, rounding_code,
                                           tarvu::scale_of(*scale));
  });
}

void tarvu_fixtofloat_1d_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::to_floats_1d(static_cast<const T *>(source), destination, count, fmt->frac_bits, zero_point,
                                    tarvu::scale_of(*scale));
  });
}

void tarvu_floattofix_1d_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                              const _NN_SCALE *scale, int32_t zero_point) {
  tarvu::with_element_type(*fmt, [=](auto element) {
    using T = decltype(element);
    tarvu::Kernels<T>::from_floats_1d(source, static_cast<T *>(destination), count, fmt->frac_bits, zero_point,
                                      tarvu::scale_of(*scale));
  });
}
