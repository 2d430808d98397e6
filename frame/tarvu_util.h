/// \file tarvu_util.h
/// What every operator shares beside the public frame functions: the printed lines.
#ifndef TARVU_FRAME_TARVU_UTIL_H
#define TARVU_FRAME_TARVU_UTIL_H

#include "tarvu.h"

namespace tarvu {

/// Width in bits of a format's elements.
inline int width_bits(const _NN_FMT &fmt) { return fmt.frac_bits + fmt.int_bits + fmt.sign_bits; }

/// The same taken from a byte, as LSTM and fully-connected post-processing add it up: modulo 256.
inline int width_bits_in_byte(const _NN_FMT &fmt) { return static_cast<uint8_t>(width_bits(fmt)); }

/// Prints "unsupported input type" in the usual shape for the function that checked, and gives QX_ERR_UNSUPPORTED.
_QX_RESULT unsupported_input_type(const char *function, int32_t type);
/// As unsupported_input_type(), for the output.
_QX_RESULT unsupported_output_type(const char *function, int32_t type);

}  // namespace tarvu

#endif  // TARVU_FRAME_TARVU_UTIL_H
