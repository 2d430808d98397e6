/// \file formats.h
/// Number formats as the operators read them, and what re-formatting between two of them touches.
#ifndef TARVU_CONTRACT_FORMATS_H
#define TARVU_CONTRACT_FORMATS_H

#include "contract/call.h"

namespace contract {

/// Width in bits, as the type queries read it.
inline int32_t width_of(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

/// As re-formatting reads a width: modulo 256.
inline int32_t narrow_width_of(const _NN_FMT &fmt) { return static_cast<int8_t>(width_of(fmt)); }

inline NN_AI_IO_TYPE type_code_of(const _NN_FMT &fmt) {
  const bool is_signed = fmt.sign_bits != 0;
  switch (width_of(fmt)) {
    case 8:
      return is_signed ? NN_AI_IO_TYPE_INT8 : NN_AI_IO_TYPE_UINT8;
    case 16:
      return is_signed ? NN_AI_IO_TYPE_INT16 : NN_AI_IO_TYPE_UINT16;
    case 32:
      return NN_AI_IO_TYPE_32BIT;
    default:
      return NN_AI_IO_TYPE_INVALID;
  }
}

/// Whether a type code is one of the four integer types of 8 and 16 bits.
inline bool is_small(NN_AI_IO_TYPE code) { return code >= NN_AI_IO_TYPE_INT8 && code <= NN_AI_IO_TYPE_UINT16; }

inline uint32_t bytes_of_small(NN_AI_IO_TYPE code) { return code <= NN_AI_IO_TYPE_UINT8 ? 1 : 2; }

/// Element type of a range for one of the four.
inline int32_t range_type_of(NN_AI_IO_TYPE code) { return TARVU_CONTRACT_S8 + static_cast<int32_t>(code); }

/// Element type of a range for integers of a format of `bytes` bytes.
inline int32_t integer_type_of(const _NN_FMT &fmt, uint32_t bytes) {
  const bool is_signed = fmt.sign_bits != 0;
  switch (bytes) {
    case 1:
      return is_signed ? TARVU_CONTRACT_S8 : TARVU_CONTRACT_U8;
    case 2:
      return is_signed ? TARVU_CONTRACT_S16 : TARVU_CONTRACT_U16;
    default:
      return TARVU_CONTRACT_BYTES;
  }
}

inline bool equal_records(const _NN_FMT &a, const _NN_FMT &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

/// What tarvu_convert_fmt_c() does with an element: nothing for 0 bytes.
struct Reformat {
  uint32_t in_bytes;
  uint32_t out_bytes;
};

inline Reformat reformat_of(const _NN_FMT &in, const _NN_FMT &out, bool in_place) {
  const int32_t in_width = narrow_width_of(in);
  const int32_t out_width = narrow_width_of(out);
  const bool known = (in_width == 8 || in_width == 16) && (out_width == 8 || out_width == 16);
  const bool equal = in_width == out_width && in.frac_bits == out.frac_bits;
  if (!known || (equal && in_place)) return {0, 0};
  return {static_cast<uint32_t>(in_width) / 8, static_cast<uint32_t>(out_width) / 8};
}

/// Adds what is to be said of a pair of formats that is re-formatted: that no conversion serves them (elements then pass as they
/// are, or nothing is written), or that the records differ in their reserved byte alone.
void check_reformat(FindingSink &sink, const _NN_FMT &in, const _NN_FMT &out);

/// Says that an extent is 0, with its name.
void check_extent(FindingSink &sink, const char *field, uint64_t extent);

/// Says that a size wraps, where what the operator reckons in 32 bits differs from the true number.
void check_wrap(FindingSink &sink, const char *field, int64_t value, Wide true_size);

}  // namespace contract

#endif  // TARVU_CONTRACT_FORMATS_H
