/// \file tarvu.h
/// Neural-network layer operators for the CPU of embedded 64-bit Arm Linux: the whole public interface of libtarvu.
///
/// A caller fills one parameter block per layer and calls one function. The caller owns the block, the tensors and the scratch
/// memory; the library keeps nothing between calls and, but for Gather ND, allocates nothing. Any function may be called at any
/// time and from any thread, as long as calls that run at the same time use distinct blocks, tensors and scratch memory.
///
/// What holds for every block:
/// - Addresses are 64-bit and never checked. Extents stand in the order width, height, channel, batch, with width varying
///   fastest; axes are numbered the other way: 0 batch, 1 channel, 2 height, 3 width. Offsets are bytes, so lines may be padded.
/// - A stored integer x stands for `x * 2^-frac_bits * scale`. Elements are little-endian.
/// - Scratch memory is taken from `work_buffer` upwards in multiples of 4 bytes, from its start in every call. There is no limit
///   check: the byte counts below are what the caller must provide. What it holds after a call is unspecified; only the work
///   area of LSTM and the decoded boxes of detection output are told.
/// - A reported failure prints one line on standard output with `printf` and returns a negative code. What is not told as a
///   failure passes in silence. A crash loses lines kept back for a file or pipe: `fflush(stdout)`, or `setvbuf` at the start.
#ifndef TARVU_H
#define TARVU_H

#include <stdint.h>

/// Marks what the library exports.
#if defined(__GNUC__)
#define TARVU_API __attribute__((visibility("default")))
#else
#define TARVU_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

// ---------------------------------------------------------------------------------------------------------------------
// Shared records, type codes and result codes
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup records Shared records, type codes and result codes
/// \{

/// Number format of a tensor. The element width in bits is `frac_bits + int_bits + sign_bits`; legal sums are 8, 16 and 32.
typedef struct _NN_FMT {
  int8_t frac_bits;      ///< fraction bits: one stored unit is worth 2^-frac_bits; may be negative
  int8_t int_bits;       ///< integer bits; where the three do not add up, many operators say nothing: see their fields
  int8_t sign_bits;      ///< 1 signed, 0 unsigned; any other: signed to the type queries, unknown to the conversions
  uint8_t fmt_reserved;  ///< no meaning; Permute alone compares it, together with the other three bytes
} _NN_FMT;

/// Scale of a tensor: `scale_value / 2^scale_shift`. Left {0} it multiplies by 0, in silence; {1, 0} leaves values as they are.
typedef struct _NN_SCALE {
  int32_t scale_value;    ///< numerator
  int8_t scale_shift;     ///< binary logarithm of the divisor
  uint8_t reserved_0[3];  ///< not read
} _NN_SCALE;

/// Element type code of a format.
typedef enum NN_AI_IO_TYPE {
  NN_AI_IO_TYPE_INVALID = -1,  ///< no element width of 8, 16 or 32 bits
  NN_AI_IO_TYPE_INT8 = 0,      ///< signed 8-bit
  NN_AI_IO_TYPE_UINT8 = 1,     ///< unsigned 8-bit
  NN_AI_IO_TYPE_INT16 = 2,     ///< signed 16-bit
  NN_AI_IO_TYPE_UINT16 = 3,    ///< unsigned 16-bit
  NN_AI_IO_TYPE_32BIT = 4,     ///< 32-bit: a float to what computes in floats, a signed integer to the gather family
  NN_AI_IO_TYPE_UINT32 = 5     ///< unsigned 32-bit, from the two gather queries only
} NN_AI_IO_TYPE;

/// Result code of an operator: one of the `QX_` values.
typedef int32_t _QX_RESULT;

/// Result codes.
enum {
  QX_OK = 0,                ///< success, also for an empty tensor
  QX_ERR_UNSUPPORTED = -1,  ///< element type, axis, mode, order or other selector that no kernel handles
  QX_ERR_OVER_LIMIT = -10,  ///< table index over its limit; `vendor_submax_s16` only
  QX_ERR_PARAM = -34,       ///< zero extent or invalid parameter found by a parameter check
  QX_ERR_NO_MEMORY = -37    ///< heap allocation failed; Gather ND only
};

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Queries and frame
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup frame Queries and frame
/// \{

/// Returns the constant text "02.19.2406110", the version of the operator set.
TARVU_API const char *prebuilt_ai_get_lib_version(void);

/// Returns 0. Kept for runtimes that ask before they load a network; reads nothing and has no effect.
TARVU_API int32_t nn_check_net_parm(void);

/// Takes scratch memory: returns the address held by `*cursor` and advances `*cursor` by `size` rounded up to a multiple of 4.
/// The rounding is done in 32 bits, so a size within 3 of 2^32 advances by 0. There is no limit and no failure, and the
/// alignment is that of the cursor at the start.
/// \param cursor a local copy of a block's scratch address
/// \param size bytes
TARVU_API void *tarvu_getbuffrom(uint64_t *cursor, uint32_t size);

/// Type code of a format: a width of 8 gives 0 (signed) or 1, a width of 16 gives 2 (signed) or 3, a width of 32 gives 4, any
/// other width -1. Signed is any `sign_bits` but 0.
TARVU_API NN_AI_IO_TYPE tarvu_get_fmt_type(const _NN_FMT *fmt);

/// As tarvu_get_fmt_type(), but a width of 32 gives 4 (signed) or 5 (unsigned).
TARVU_API NN_AI_IO_TYPE tarvu_get_gather_fmt_type(const _NN_FMT *fmt);

/// The same function as tarvu_get_gather_fmt_type(), under the name that Gather element uses.
TARVU_API NN_AI_IO_TYPE tarvu_get_gatherelement_fmt_type(const _NN_FMT *fmt);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Fixed-point re-formatting
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup reformat Fixed-point re-formatting
/// \{

/// Moves `count` integer elements from one format to another: a power-of-two re-scaling by the difference of the `frac_bits`
/// and a change of width with saturation. Never rounds to nearest: a right shift drops bits (towards minus infinity for a
/// signed output, towards zero for an unsigned one).
///
/// - Equal widths and equal `frac_bits`: copies the bytes, whatever the `sign_bits`, if the width is 8 or 16 and the addresses
///   differ; otherwise does nothing, also for two tensors of 32-bit elements.
/// - Otherwise the elements are walked in ascending order. A source element is read as signed if the OUTPUT's `sign_bits` is
///   not 0, else as unsigned; the input's own `sign_bits` is not looked at. It is shifted in 32 bits by the difference modulo 32
///   (a left shift may wrap) and clamped to the output's range. There is no clamp on a right shift from 8 to signed 8 bits and
///   from any width to signed 16 bits, where nothing can overflow but by a 16-bit element's sign.
/// - Input or output widths other than 8 and 16 write nothing. Widths are sums modulo 256.
///
/// \param source `count` elements of the input format, at any address
/// \param destination `count` elements of the output format, at any address. May equal `source`; with a wider output the walk
///        then overwrites elements before it reads them, so only the first element comes out right
/// \param count elements
/// \param in_fmt format of the source
/// \param out_fmt format of the destination
/// \param in_scale never read; may be any address
/// \param out_scale never read; may be any address
TARVU_API void tarvu_convert_fmt_c(const void *source, void *destination, uint32_t count, const _NN_FMT *in_fmt,
                                   const _NN_FMT *out_fmt, const _NN_SCALE *in_scale, const _NN_SCALE *out_scale);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Flat conversion between integers and floats
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup flat_conversion Flat conversion between integers and floats
/// \{

/// Float to unsigned 32-bit: y = (x + b) * m as one addition and one multiplication, each rounded, never fused; then y
/// is clamped and converted towards zero. Below 0.0 gives 0, above 4294967296.0 gives 4294967295, NaN gives 0.
///
/// - f >= 0: b = 0.0 and m = 2^f * scale. Nothing is rounded to nearest.
/// - f < 0: b = 2^(-f - 1) and m = 2^f * scale, formed in double and narrowed. The bias is half a unit of the output
///   only where the scale is 1.0, since it is added ahead of the scale: positive values then round half up, negative
///   ones are moved by half a unit upwards and truncated towards zero.
///
/// The powers of two are made by shifting the integer 1: in signed 32 bits for a distance up to 30, in signed 64 bits
/// with the distance modulo 64 beyond, so a distance of 63 gives -2^63 and one of 64 gives 1. Source and destination
/// stand at any address and must not overlap.
///
/// The scale multiplies here as it does in the other direction: a caller that wants the reciprocal passes it.
/// \param source `count` floats
/// \param destination `count` elements; nothing else is written
/// \param frac_bits f, fraction bits of the output
/// \param count elements, less than 2^31; 0 does nothing
/// \param scale multiplier of the run
TARVU_API void floattouint32_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count,
                                  float scale);

/// Float to signed 32-bit, as floattouint32_neon(): below -2147483648.0 gives -2147483648, above 2147483648.0 gives
/// 2147483647, and so does 2147483648.0 itself.
TARVU_API void floattoint32_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Float to unsigned 16-bit, as floattouint32_neon(): below 0.0 gives 0, above 65535.0 gives 65535.
TARVU_API void floattouint16_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count,
                                  float scale);

/// Float to signed 16-bit, as floattouint32_neon(): below -32768.0 gives -32768, above 32767.0 gives 32767.
TARVU_API void floattoint16_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Float to unsigned 8-bit, as floattouint32_neon(): below 0.0 gives 0, above 255.0 gives 255.
TARVU_API void floattouint8_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Float to signed 8-bit, as floattouint32_neon(): below -128.0 gives -128, above 127.0 gives 127.
TARVU_API void floattoint8_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count,
                                float scale);

/// Unsigned 32-bit to float: the element converted to float (values of more than 24 significant bits are rounded),
/// times m.
///
/// - f >= 0: m = 2^-f * scale, formed in double and narrowed.
/// - f < 0: m = 2^-f * scale as a product of two floats.
///
/// The powers of two, and what may overlap, are as in floattouint32_neon().
///
/// \param source `count` elements
/// \param destination `count` floats; nothing else is written
/// \param frac_bits f, fraction bits of the input
/// \param count elements, less than 2^31; 0 does nothing
/// \param scale multiplier of the run
TARVU_API void uint32tofloat_neon(const uint32_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                  float scale);

/// Signed 32-bit to float, as uint32tofloat_neon().
TARVU_API void int32tofloat_neon(const int32_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Unsigned 16-bit to float, as uint32tofloat_neon().
TARVU_API void uint16tofloat_neon(const uint16_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                  float scale);

/// Signed 16-bit to float, as uint32tofloat_neon().
TARVU_API void int16tofloat_neon(const int16_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Unsigned 8-bit to float, as uint32tofloat_neon().
TARVU_API void uint8tofloat_neon(const uint8_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                 float scale);

/// Signed 8-bit to float, as uint32tofloat_neon().
TARVU_API void int8tofloat_neon(const int8_t *source, float *destination, int16_t frac_bits, uint32_t count,
                                float scale);

/// Splits interleaved bytes into planes: with q = total_bytes / lanes, `destination[i * q + j] = source[j * lanes + i]`
/// for every lane i and every j below q. The `total_bytes % lanes` bytes at the end are neither read nor written. 0
/// lanes, or fewer bytes than lanes, do nothing. The runs must not overlap.
/// \param source `total_bytes` bytes
/// \param destination `lanes * q` bytes
/// \param lanes bytes in one interleaved group
/// \param total_bytes bytes
TARVU_API void permute_data_in(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes);

/// Interleaves planes of bytes, the inverse of permute_data_in(): `destination[j * lanes + i] = source[i * q + j]`.
TARVU_API void permute_data_out(const uint8_t *source, uint8_t *destination, uint32_t lanes, uint32_t total_bytes);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Rounded conversion of floats to integers
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup rounded_conversion Rounded conversion of floats to integers
/// \{

/// Float to unsigned 32-bit by a chosen rounding: y = m * x, clamped to [0.0, 4294967296.0], rounded by the code,
/// converted towards zero with saturation and stored. NaN gives 0.
///
/// m = 2^f * scale as a product of floats for f >= 0, formed in double and narrowed for f < 0. There is no bias. The
/// power of two comes from a signed 32-bit shift with its distance modulo 32, so a distance of 31 gives -2^31 and one
/// of 32 gives 1.
///
/// The run is cut into blocks of 16 elements (8 for the 8-bit targets) and a tail of the rest. A block adds and rounds
/// in float. A tail adds in double (code 3: in float), which tells just under one half from one half: y = 0x1.fffffep-2
/// with code 5 is 1 in a block and 0 in a tail. t is y truncated to a signed 32-bit integer, abs(t) leaves the least
/// integer as it is.
///
/// | code | rounds to | block | tail |
/// |---|---|---|---|
/// | 0 | minus infinity | floor(y) | same |
/// | 1 | plus infinity | ceil(y) | same |
/// | 2 | zero | trunc(y) | same |
/// | 3 | nearest, ties away from zero | round(y), exact | y + 0.5 (y > 0), y - 0.5 (y < 0) in float, truncated |
/// | 4 | nearest, ties down | ceil(y - 0.5) | same |
/// | 5 | nearest, ties up | floor(y + 0.5) | same |
/// | 6, y > 0 | nearest, ties to zero | ceil(y - 0.5) | same |
/// | 6, else | nearest, ties to zero | -ceil(abs(y) - 0.5) | -ceil(abs(t) - 0.5) |
/// | 7, y > 0 | nearest, ties away from zero | floor(y + 0.5) | same |
/// | 7, else | nearest, ties away from zero | -floor(abs(y) + 0.5) | -floor(abs(t) + 0.5) |
/// | 8 | nearest, ties to even | always so | nearbyint(y), by the rounding environment |
/// | 9 | nearest, ties to odd | t even: as code 10; t odd: as code 6 | same |
/// | 10 | nearest, ties away from zero | y > 0: floor(y + 0.5); else ceil(y - 0.5) | same |
/// | 11 | the rounding environment | rint(y) | same |
/// | other | nothing | writes no element of the block | y truncated towards zero |
///
/// A tail so loses the fraction of negative values with the codes 6, 7 and 9: -2.7 with code 6 is -3 in a block and -2
/// in a tail.
///
/// An unknown code prints the line "no rounding method!!!\r\n", once for each block and once for each element of the
/// tail.
/// \param source `count` floats
/// \param destination `count` elements; nothing else is written
/// \param frac_bits f, fraction bits of the output
/// \param count elements, less than 2^31; 0 does nothing and prints nothing
/// \param rounding_code a code of the table
/// \param scale multiplier of the run
TARVU_API void floattouint32_rnd_neon(const float *source, uint32_t *destination, int16_t frac_bits, uint32_t count,
                                      uint32_t rounding_code, float scale);

/// Float to signed 32-bit, as floattouint32_rnd_neon(), clamped to [-2147483648.0, 2147483648.0]. The least integer
/// comes out as 2147483647 from a tail with the codes 6 and 7, since abs(t) is negative there.
TARVU_API void floattoint32_rnd_neon(const float *source, int32_t *destination, int16_t frac_bits, uint32_t count,
                                     uint32_t rounding_code, float scale);

/// Float to unsigned 16-bit, as floattouint32_rnd_neon(), clamped to [0.0, 65535.0].
TARVU_API void floattouint16_rnd_neon(const float *source, uint16_t *destination, int16_t frac_bits, uint32_t count,
                                      uint32_t rounding_code, float scale);

/// Float to signed 16-bit, as floattouint32_rnd_neon(), clamped to [-32768.0, 32767.0].
TARVU_API void floattoint16_rnd_neon(const float *source, int16_t *destination, int16_t frac_bits, uint32_t count,
                                     uint32_t rounding_code, float scale);

/// Float to unsigned 8-bit, as floattouint32_rnd_neon(), clamped to [0.0, 255.0]. Blocks hold 8 elements.
TARVU_API void floattouint8_rnd_neon(const float *source, uint8_t *destination, int16_t frac_bits, uint32_t count,
                                     uint32_t rounding_code, float scale);

/// Float to signed 8-bit, as floattouint32_rnd_neon(), clamped to [-128.0, 127.0]. Blocks hold 8 elements. Code 11
/// prints the line "toint8 to rint\r\n" for each block ahead of rounding it; this is no failure.
TARVU_API void floattoint8_rnd_neon(const float *source, int8_t *destination, int16_t frac_bits, uint32_t count,
                                    uint32_t rounding_code, float scale);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Zero-point conversion of flat runs
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup zero_point_runs Zero-point conversion of flat runs
/// \{

/// Unsigned 8-bit to float: the element less `zero_point`, as a wrapping signed 32-bit difference, converted to float,
/// times m. An element below the zero point gives a negative float. m is that of uint32tofloat_neon().
/// \param source `count` elements
/// \param destination `count` floats; nothing else is written
/// \param count elements, less than 2^31; 0 does nothing
/// \param frac_bits f, fraction bits of the input
/// \param zero_point integer that stands for 0.0, any value
/// \param scale multiplier of the run
TARVU_API void uint8tofloat_1d_neon(const uint8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                                    int32_t zero_point, float scale);

/// Signed 8-bit to float, as uint8tofloat_1d_neon().
TARVU_API void int8tofloat_1d_neon(const int8_t *source, float *destination, uint32_t count, int16_t frac_bits,
                                   int32_t zero_point, float scale);

/// Unsigned 16-bit to float, as uint8tofloat_1d_neon().
TARVU_API void uint16tofloat_1d_neon(const uint16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                                     int32_t zero_point, float scale);

/// Signed 16-bit to float, as uint8tofloat_1d_neon().
TARVU_API void int16tofloat_1d_neon(const int16_t *source, float *destination, uint32_t count, int16_t frac_bits,
                                    int32_t zero_point, float scale);

/// Float to unsigned 8-bit: y = m * x, r = y rounded half up, r converted to a 32-bit integer towards zero with
/// saturation (NaN gives 0), `zero_point` added with wrapping in 32 bits, the sum clamped to [0, 255] and stored. m is
/// that of floattouint32_neon().
///
/// The run is cut into blocks of 8 elements and a tail of the rest, which differ:
/// - r is floor(y + 0.5), in float in a block, in double in the tail: y = 0x1.fffffep-2 rounds to 1 in a block and to 0
///   in the tail.
/// - A block converts r to an unsigned integer and takes the unsigned minimum with 255: a negative r leaves the zero
///   point alone, and a negative sum, from a negative zero point, gives 255. The tail converts to a signed integer, and
///   a negative sum gives 0. With zero point 10 and m = 1, -3.0 gives 10 in a block and 7 in the tail; with -10, 5.0
///   gives 255 and 0.
///
/// \param source `count` floats
/// \param destination `count` elements; nothing else is written
/// \param count elements, less than 2^31; 0 does nothing
/// \param frac_bits f, fraction bits of the output; there is no bias for f < 0
/// \param zero_point integer that stands for 0.0, any value
/// \param scale multiplier of the run
TARVU_API void floattouint8_1d_neon(const float *source, uint8_t *destination, uint32_t count, int16_t frac_bits,
                                    int32_t zero_point, float scale);

/// Float to signed 8-bit, as floattouint8_1d_neon(), but block and tail both convert r to a signed integer and clamp
/// the signed sum to [-128, 127]. They differ in the rounding of y alone.
TARVU_API void floattoint8_1d_neon(const float *source, int8_t *destination, uint32_t count, int16_t frac_bits,
                                   int32_t zero_point, float scale);

/// Float to unsigned 16-bit, as floattouint8_1d_neon() with blocks of 16 elements and the range [0, 65535].
TARVU_API void floattouint16_1d_neon(const float *source, uint16_t *destination, uint32_t count, int16_t frac_bits,
                                     int32_t zero_point, float scale);

/// Float to signed 16-bit, as floattoint8_1d_neon() with blocks of 16 elements and the range [-32768, 32767].
TARVU_API void floattoint16_1d_neon(const float *source, int16_t *destination, uint32_t count, int16_t frac_bits,
                                    int32_t zero_point, float scale);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Zero-point conversion of tensors of up to six dimensions
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup zero_point_tensors Zero-point conversion of tensors of up to six dimensions
/// \{

/// Unsigned 8-bit to float for each line of a tensor, the elements as in uint8tofloat_1d_neon().
///
/// Lines run along dimension 0 and are dense. For every position (i1, .. i5) one line starts at element
/// `i1 * stride[1] + .. + i5 * stride[5]` of the source and at the same element of the destination; lines are walked in
/// ascending order, dimension 5 outermost. An extent of 0 writes nothing.
///
/// A line is converted in whole blocks of 8 elements (16 for the 16-bit types) and a tail of the rest, but a line
/// shorter than one block is converted as one whole block: up to 7 (15) elements past such a line are read and written,
/// and the caller keeps that memory available on both sides. Where lines lie back to back, each line rewrites what the
/// one before it overran.
/// \param source tensor of elements
/// \param destination tensor of floats, laid out with the same strides
/// \param shape six extents in elements, dimension 0 innermost; only the low 16 bits of each count
/// \param stride six distances in elements, for source and destination alike; `stride[0]` is not read
/// \param frac_bits f, fraction bits of the input
/// \param zero_point integer that stands for 0.0, any value
/// \param scale multiplier of all elements
TARVU_API void uint8tofloat_nd_neon(const uint8_t *source, float *destination, const uint32_t *shape,
                                    const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Signed 8-bit to float, as uint8tofloat_nd_neon().
TARVU_API void int8tofloat_nd_neon(const int8_t *source, float *destination, const uint32_t *shape,
                                   const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Unsigned 16-bit to float, as uint8tofloat_nd_neon(), with blocks of 16 elements.
TARVU_API void uint16tofloat_nd_neon(const uint16_t *source, float *destination, const uint32_t *shape,
                                     const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Signed 16-bit to float, as uint8tofloat_nd_neon(), with blocks of 16 elements.
TARVU_API void int16tofloat_nd_neon(const int16_t *source, float *destination, const uint32_t *shape,
                                    const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Float to unsigned 8-bit: lines, blocks of 8 and overrun as in uint8tofloat_nd_neon(), elements of blocks and tails
/// as in floattouint8_1d_neon().
TARVU_API void floattouint8_nd_neon(const float *source, uint8_t *destination, const uint32_t *shape,
                                    const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Float to signed 8-bit: lines, blocks of 8 and overrun as in uint8tofloat_nd_neon(), elements of blocks and tails as
/// in floattoint8_1d_neon().
TARVU_API void floattoint8_nd_neon(const float *source, int8_t *destination, const uint32_t *shape,
                                   const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Float to unsigned 16-bit: lines, blocks of 16 and overrun as in uint8tofloat_nd_neon(), elements of blocks and tails
/// as in floattouint16_1d_neon().
TARVU_API void floattouint16_nd_neon(const float *source, uint16_t *destination, const uint32_t *shape,
                                     const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// Float to signed 16-bit: lines, blocks of 16 and overrun as in uint8tofloat_nd_neon(), elements of blocks and tails
/// as in floattoint16_1d_neon().
TARVU_API void floattoint16_nd_neon(const float *source, int16_t *destination, const uint32_t *shape,
                                    const uint32_t *stride, int16_t frac_bits, int32_t zero_point, float scale);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Conversion by format and scale
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup conversion_by_format Conversion by format and scale
/// \{

/// Integers to floats by the kernel of the format: `sign_bits` 0 or 1 and a width (sum of the three bytes, in 32 bits)
/// of 8 or 16 choose uint8tofloat_neon(), uint16tofloat_neon(), int8tofloat_neon() or int16tofloat_neon(). Any other
/// format, 32-bit ones and `sign_bits` of 2 and more included, does nothing and reports nothing.
///
/// The scale record becomes the float `scale_value / 2^scale_shift`: the value is converted to float and divided by the
/// power, or multiplied by it where the shift is negative. The power is 1 shifted left in signed 32 bits with the
/// distance modulo 32, so a distance of 31 gives -2^31 and one of 32 gives 1.
/// \param source `count` elements of the format, at any address
/// \param destination `count` floats, at any address
/// \param count elements, less than 2^31
/// \param fmt format of the source
/// \param scale scale of the source
TARVU_API void tarvu_fixtofloat_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                                     const _NN_SCALE *scale);

/// Floats to integers by the kernel of the format, as tarvu_fixtofloat_neon(): floattouint8_neon(),
/// floattouint16_neon(), floattoint8_neon() or floattoint16_neon(). The scale multiplies here too; for the reciprocal,
/// the record has to hold it.
TARVU_API void tarvu_floattofix_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                                     const _NN_SCALE *scale);

/// Floats to integers with a rounding code, as tarvu_floattofix_neon(), by floattouint8_rnd_neon(),
/// floattouint16_rnd_neon(), floattoint8_rnd_neon() or floattoint16_rnd_neon(), which print the lines told there.
TARVU_API void tarvu_floattofix_rnd_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                                         const _NN_SCALE *scale, uint32_t rounding_code);

/// Integers to floats with a zero point, as tarvu_fixtofloat_neon(), by uint8tofloat_1d_neon() and its three siblings.
TARVU_API void tarvu_fixtofloat_1d_neon(const void *source, float *destination, uint32_t count, const _NN_FMT *fmt,
                                        const _NN_SCALE *scale, int32_t zero_point);

/// Floats to integers with a zero point, as tarvu_floattofix_neon(), by floattouint8_1d_neon() and its three siblings.
TARVU_API void tarvu_floattofix_1d_neon(const float *source, void *destination, uint32_t count, const _NN_FMT *fmt,
                                        const _NN_SCALE *scale, int32_t zero_point);

/// A tensor of integers to floats with a zero point, format and scale as in tarvu_fixtofloat_neon(), shape, strides and
/// overrun as in uint8tofloat_nd_neon(), which does the work with its three siblings.
TARVU_API void tarvu_fixtofloat_nd_neon(const void *source, float *destination, const uint32_t *shape,
                                        const uint32_t *stride, const _NN_FMT *fmt, const _NN_SCALE *scale,
                                        int32_t zero_point);

/// A tensor of floats to integers with a zero point, the way back of tarvu_fixtofloat_nd_neon(), by
/// floattouint8_nd_neon() and its three siblings.
TARVU_API void tarvu_floattofix_nd_neon(const float *source, void *destination, const uint32_t *shape,
                                        const uint32_t *stride, const _NN_FMT *fmt, const _NN_SCALE *scale,
                                        int32_t zero_point);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// PReLU
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup prelu PReLU
/// \{

/// Parameter block of tarvu_prelu_process(). Tensors are dense, width varying fastest.
typedef struct _NN_PRELU_PARM {
  uint64_t in_addr;      ///< input tensor
  uint64_t out_addr;     ///< output tensor in the input's format; may equal the input
  uint64_t weight_addr;  ///< `channels` signed 8-bit slopes
  uint32_t width;        ///< extent, elements
  uint32_t height;       ///< extent, lines
  uint32_t channels;     ///< extent, planes
  uint32_t num;          ///< extent, batch items: must not be 0, but only the first item is computed
  _NN_FMT in_fmt;        ///< format of both tensors: its width, 8 or 16, else nothing is written; always read as signed
  uint32_t reserved_0;   ///< not read
  int8_t shift;          ///< right shift of every product, bits; 0 to 31 by design
} _NN_PRELU_PARM;

/// Parametric rectifier in integers ("Delving Deep into Rectifiers", 2015):
/// `out = saturate(max(x, 0) + ((min(x, 0) * w) >> shift))` with the slope w of the element's channel. The product is
/// exact, the shift arithmetic without rounding, the result saturated to the element's range (8 or 16 bits, always
/// signed: 200 in an unsigned 8-bit tensor is -56).
///
/// Only the first batch item is computed, whatever `num` says; the rest of the output stays as it was. The result of a
/// shift outside 0 to 31 depends on the place of the element in its plane: see tarvu_prelu_neon_func_int8(). A width
/// other than 8 and 16 does nothing. Takes no scratch memory.
/// \return QX_OK; QX_ERR_PARAM with nothing written, for an extent of 0, after the line
///         "\033[1;31mERR:tarvu_prelu_checkparm() shape should be positive, but input is %dx%dx%dx%d(num x channels x
///         height x width)\r\n\033[0m" (unbroken) with `num`, `channels`, `height` and `width`
TARVU_API _QX_RESULT tarvu_prelu_process(const _NN_PRELU_PARM *parm);

/// PReLU with one slope: `out[i] = saturate(max(x, 0) + ((min(x, 0) * weight) >> shift))`.
///
/// A shift outside 0 to 31 is no design case, but has a fixed result: the first `count / 16 * 16` elements shift a
/// 16-bit lane, left by `-shift` for a negative one with the bits above the top lost (a shift of -16 to -128 leaves 0),
/// right otherwise so that 32 and more leave only the sign; the last `count % 16` elements shift a 32-bit word right by
/// `shift` modulo 32. Both saturate afterwards. With weight 3 and shift -1, -2 gives -12 in a block and -1 in the tail.
/// \param in `count` elements, at any address
/// \param out `count` elements; may equal `in`, else must not overlap it
/// \param weight slope
/// \param count elements
/// \param shift bits
/// \return 0
TARVU_API int32_t tarvu_prelu_neon_func_int8(const int8_t *in, int8_t *out, int8_t weight, uint32_t count,
                                             int8_t shift);

/// As tarvu_prelu_neon_func_int8() for 16-bit elements; the first `count / 8 * 8` elements shift a 32-bit lane (32 and
/// more to the left leave 0), the last `count % 8` a 32-bit word as there.
TARVU_API int32_t tarvu_prelu_neon_func_int16(const int16_t *in, int16_t *out, int8_t weight, uint32_t count,
                                              int8_t shift);

/// PReLU with a slope looked up per element: with w the slope at index `((i / divisor_a) % modulus) / divisor_b`,
/// `out[i] = saturate(max(x, 0) + ((min(x, 0) * w) >> (shift % 32)))` in 32 bits, saturated once at the end.
///
/// The first division is signed, the remainder and the second division are unsigned, all in 32 bits. A division by 0
/// gives 0, a modulus of 0 leaves the value as it is. Slopes per channel for planes of P elements: `divisor_a` 1,
/// `modulus` channels * P, `divisor_b` P.
/// \param in `count` elements, at any address
/// \param weights slopes, as many as the indices reach
/// \param out `count` elements; may equal `in`, else must not overlap it
/// \param modulus see above
/// \param shift bits; its low five bits count, as a value from 0 to 31
/// \param count elements; below 1 does nothing
/// \param divisor_a see above
/// \param divisor_b see above
/// \return 0
TARVU_API int32_t tarvu_prelu_c_func_int8(const int8_t *in, const int8_t *weights, int8_t *out, uint32_t modulus,
                                          int8_t shift, int32_t count, int32_t divisor_a, uint32_t divisor_b);

/// As tarvu_prelu_c_func_int8() for 16-bit elements; the slopes stay 8-bit.
TARVU_API int32_t tarvu_prelu_c_func_int16(const int16_t *in, const int8_t *weights, int16_t *out, uint32_t modulus,
                                           int8_t shift, int32_t count, int32_t divisor_a, uint32_t divisor_b);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Softmax
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup softmax Softmax
/// \{

/// Parameter block of the softmax functions. Within a batch item tensors are dense: `channel` planes of `height` lines
/// of `width` elements.
typedef struct _NN_SOFTMAX_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; may equal the input where the element widths are equal
  uint64_t work_buffer;      ///< scratch memory, see each function; the table form does not read it
  uint16_t width;            ///< extent of axis 3, elements
  uint16_t height;           ///< extent of axis 2, lines
  uint16_t channel;          ///< extent of axis 1, planes; in the table form the elements of a batch item
  uint16_t batch;            ///< extent of axis 0, items
  uint32_t in_line_ofs;      ///< not read
  uint32_t in_channel_ofs;   ///< not read
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input; signed 32-bit means floats; other sums: silently not read
  _NN_FMT out_fmt;           ///< format of the output; a width other than 8 and 16 means floats
  _NN_SCALE in_scale;        ///< scale of the input, {0}: all inputs are 0; no effect on floats
  _NN_SCALE out_scale;       ///< multiplier of the output, {0}: all outputs are 0; no effect on floats
  int8_t axis;               ///< 1 channel, 2 height, 3 width; below 0 the whole batch item
} _NN_SOFTMAX_PARM;

/// Softmax along one axis in single-precision floats: `out = e / sum(e)` over each group of elements along `axis`, with
/// `e = fast_exp(max(x - m, -87.0f))`, m the largest of the group and of -1e7, and the division done as `e * (1.0f /
/// sum)`. Each group adds up to 1 within float rounding; single outputs are some percent off the exact softmax.
///
/// For every batch item in turn:
/// 1. The input is converted to floats: `*tofloat_neon()` of the type that `sign_bits` 0 or 1 and a width of 8 or 16
///    select, with the scale as a float (`scale_value / 2^scale_shift`, the power shifted in 32 bits modulo 32). A
///    signed 32-bit format copies the floats at `in_addr`: of the FIRST item for every item. Any other format
///    converts nothing and computes on what the scratch memory holds.
/// 2. The axis is picked: 1 groups the `channel` elements of each column, `width * height` apart, and sums as
///    tarvu_softmax_axis2_4vec() does; 2 takes tarvu_softmax_axis2_4vec() (where `width` is 1 the groups are contiguous:
///    tarvu_softmax_axis3_4vec()), 3 tarvu_softmax_axis3_4vec(), an axis below 0 and any axis whose item is a single
///    group tarvu_softmax_axisn_1dim_vec().
/// 3. The result is converted by `floatto*_neon()` if the output's width is 8 or 16 and its `sign_bits` 0 or 1, written
///    as floats straight to the output if the width is any other, and dropped if only the `sign_bits` are another.
///
/// A maximum keeps NaN, so a NaN makes its whole group NaN. In a group that holds +infinity these elements come out as
/// if they were far below (infinity less infinity is NaN, and fast_exp() of NaN is 0.0).
///
/// Scratch: two arrays of `width * height * channel` floats, used again for every item; the second is left alone if the
/// output is written as floats. Extents of 0 write nothing.
/// \return the result of the last batch item: QX_OK; QX_ERR_UNSUPPORTED with the item's output unwritten, for an axis
///         of 0 or above 3, after the line "\033[1;31mERR:tarvu_softmax_process_one_batch() Softmax cpu Layer is not
///         support axis = 0 or axis > 3, please convert dimensions.\r\n\033[0m" (unbroken), once for each item. A batch
///         of 0 gives QX_OK
TARVU_API _QX_RESULT tarvu_softmax_process(const _NN_SOFTMAX_PARM *parm);

/// One batch item of tarvu_softmax_process(), with its result, scratch memory and line.
/// \param parm `batch`, `out_addr` and the batch offsets are not read; `in_addr` only for float input
/// \param in the item's input; not read for float input, which is taken from `in_addr`
/// \param out the item's output
TARVU_API _QX_RESULT tarvu_softmax_process_one_batch(const _NN_SOFTMAX_PARM *parm, const void *in, void *out);

/// Softmax over consecutive elements of the whole tensor, kept for runtimes that call it in place of
/// tarvu_softmax_process(): converts `batch * channel * height * width` elements from `in_addr` as there (float input
/// is copied whole), computes, and converts as many to `out_addr`.
///
/// - `axis` 1 and `height * width` above 1: the columns along the channels of the first item, as there; the rest of the
///   result is what the second scratch array held (or the output, if it is written as floats).
/// - Otherwise, with L the extent of `axis` (1 for an axis below 0 or above 3), `height * channel * width / L` groups
///   of L consecutive elements from the start, none if L is 0; what lies behind them is as above. For any axis but 3
///   these are not the elements along the axis.
///
/// `batch` must not be 0 but for axis 0, which then has no groups: the groups of one item are computed all the same, on
/// scratch memory that nobody sized.
///
/// Scratch: two arrays of `batch * channel * height * width` floats.
/// \return QX_OK, with no line printed, for any axis
TARVU_API _QX_RESULT tarvu_softmax_process_0(const _NN_SOFTMAX_PARM *parm);

/// Softmax of floats along the height of one item: the groups are the `height` elements of each column of a plane,
/// `width` apart. A column's sum is taken in the order of the axis from 0.0f.
/// \param in `width * height * channel` floats, at any address
/// \param out as many floats, which hold the exponentials on the way; must not overlap `in`
/// \param parm the extents and, in tarvu_softmax_axis3_4vec(), the axis are read, nothing else
TARVU_API void tarvu_softmax_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);

/// Softmax of floats over contiguous groups: `channel * height` groups of `width` elements, or, where `axis` is 2,
/// `channel * width` groups of `height` elements.
///
/// The sum of a group of L exponentials has a fixed order. One accumulator of four lanes starts at 0.0f. For each 16
/// elements lane k adds the elements 4k, 4k + 1, 4k + 2 and 4k + 3 of the block in this order, then for each 4 elements
/// of the rest lane k adds element k. The lanes are added as `(((lane0 + 0.0f) + lane1) + lane2) + lane3`, then the
/// last `L % 4` exponentials one at a time. Arguments as for tarvu_softmax_axis2_4vec().
TARVU_API void tarvu_softmax_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);

/// As tarvu_softmax_axis3_4vec() over one group of `width * height * channel` elements.
TARVU_API void tarvu_softmax_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm);

/// Approximate exponential ("A Fast, Compact Approximation of the Exponential Function", 1999): the bit pattern of the
/// result is `(x * 1.442695f + 126.934906f) * 2^23`, product and sum each rounded to float, converted towards zero to
/// an unsigned 32-bit integer with saturation. From -87 to 0 it is 0.9559 to 1.0147 times exp(x); fast_exp(0) is
/// 0.967453.
///
/// Below about -87.98 the result is 0.0; above about 88.8 the bits run through infinity, NaN and negative numbers up to
/// 0xFFFFFFFF. NaN gives 0.0.
TARVU_API float fast_exp(float x);

/// Converts signed 16-bit integers to floats, in spite of its name: `in[i] / 2^shift`, for a negative shift `in[i] *
/// 2^-shift`. The power is 1 shifted left in signed 32 bits modulo 32, so a distance of 31 gives -2^31.
/// \param in `count` elements, at any address
/// \param out `count` floats; must not overlap `in`
/// \param shift bits
/// \param count elements; below 1 does nothing
/// \return 0
TARVU_API int32_t dataTransform_u16tofloat(const int16_t *in, float *out, int8_t shift, int32_t count);

/// Writes floats to a new text file, one a line in the format "%.8f\n". A debugging aid.
/// \param path file name
/// \param values `count` floats
/// \param count floats; below 1 leaves the file empty
/// \return 0; -1 if the file cannot be opened for writing
TARVU_API int32_t write_file(const char *path, const float *values, int32_t count);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Softmax with zero points
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup softmax_zero_point Softmax with zero points
/// \{

/// Parameter block of the softmax functions with zero points.
typedef struct _NN_SOFTMAX_ASYM_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; may equal the input where the element widths are equal
  uint64_t work_buffer;      ///< scratch memory: two arrays of `width * height * channel` floats
  uint16_t width;            ///< extent of axis 3, elements
  uint16_t height;           ///< extent of axis 2, lines
  uint16_t channel;          ///< extent of axis 1, planes
  uint16_t batch;            ///< extent of axis 0, items
  uint32_t in_line_ofs;      ///< not read
  uint32_t in_channel_ofs;   ///< not read
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input; signed 32-bit means floats; other sums: silently not read
  _NN_FMT out_fmt;           ///< format of the output; a width other than 8 and 16 means floats
  _NN_SCALE in_scale;        ///< scale of the input, {0}: all inputs are 0; no effect on floats
  _NN_SCALE out_scale;       ///< multiplier of the output, {0}: all are the zero point; no effect on floats
  uint32_t reserved_0;       ///< not read
  int32_t in_zero_point;     ///< integer that stands for 0.0 in the input, and in a signed 8-bit output
  uint32_t reserved_1;       ///< not read
  int32_t out_zero_point;    ///< integer that stands for 0.0 in the output; no effect on a signed 8-bit output
  int8_t axis;               ///< 1 channel, 2 height, 3 width; below 0 the whole batch item
} _NN_SOFTMAX_ASYM_PARM;

/// tarvu_softmax_process() for tensors with a zero point: the same, but converted by `*tofloat_1d_neon()` with
/// `in_zero_point` and by `floatto*_1d_neon()` with `out_zero_point`. A signed 8-bit output takes `in_zero_point`
/// instead. The conversions at the end treat blocks and tail of an item differently, see floattouint8_1d_neon() and
/// floattoint8_1d_neon().
///
/// Float input, float output, scratch memory, axes and the batch loop are those of tarvu_softmax_process().
/// \return as tarvu_softmax_process(); the line names tarvu_softmax_asym_process_one_batch()
TARVU_API _QX_RESULT tarvu_softmax_asym_process(const _NN_SOFTMAX_ASYM_PARM *parm);

/// Does nothing and returns 0. Kept for runtimes that look it up by name; it reads no argument, whatever it is called
/// with.
TARVU_API _QX_RESULT tarvu_dli_softmax_process(void);

/// One batch item of tarvu_softmax_asym_process(), with its result, scratch memory and line.
/// \param parm `batch`, `out_addr` and the batch offsets are not read; `in_addr` only for float input
/// \param in the item's input; not read for float input, which is taken from `in_addr`
/// \param out the item's output
TARVU_API _QX_RESULT tarvu_softmax_asym_process_one_batch(const _NN_SOFTMAX_ASYM_PARM *parm, const void *in, void *out);

/// The same as tarvu_softmax_axis2_4vec(), bit for bit.
TARVU_API void tarvu_softmax_asym_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);

/// The same as tarvu_softmax_axis3_4vec(), bit for bit, with the axis of this block.
TARVU_API void tarvu_softmax_asym_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);

/// The same as tarvu_softmax_axisn_1dim_vec(), bit for bit.
TARVU_API void tarvu_softmax_asym_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Softmax by table
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup softmax_table Softmax by table
/// \{

/// Numerator of a softmax in integers: for each of `batch` dense runs of `channel` signed 16-bit elements,
/// `out = round(16384 * exp(x - max))`, with x and max brought to 6 fraction bits. No sum is formed: the largest
/// element gives 16384, and normalising is left to the reader. See vendor_submax_s16() for the arithmetic.
///
/// Reads `in_addr`, `out_addr`, `channel`, `batch` and `in_fmt.frac_bits` (as an unsigned byte), nothing else; items
/// follow one another without gaps. The output may be the input. Takes no scratch memory.
/// \return QX_OK, also where an item failed: its line is all that is seen of it; QX_ERR_PARAM with nothing written, if
///         vendor_ais_checkparm() fails
TARVU_API _QX_RESULT vendor_softmax_process(const _NN_SOFTMAX_PARM *parm);

/// One run of vendor_softmax_process(): brings the elements to 6 fraction bits in `out`, subtracts their maximum with
/// wrapping in 16 bits, and replaces each difference v by entry `v + 671` of a table, `round(16384 * exp(v / 64))`; a
/// difference below -671 gives 0.
///
/// More than 6 fraction bits are brought down by an arithmetic right shift without rounding (by 16 and more leaves only
/// the sign), fewer than 6 brought up by a left shift within 16 bits, with the bits above the top lost.
///
/// With fewer than 6 fraction bits the end of the run is different: of the last `count % 8` elements, all if they are
/// at most 5, and those behind the first 4 if they are 6 or 7, are shifted right by `26 + frac_bits` instead, which
/// leaves 0 or -1; these values take part in the maximum. With 0 fraction bits the run 1, 2 so gives 16384 twice.
///
/// Where the values span 32768 or more, a difference wraps above 0: the run ends at the first such element. The
/// elements before it are table values; it and those behind it stay as differences.
/// \param in `count` elements, at any address
/// \param out `count` elements; may equal `in`, else must not overlap it
/// \param count elements; 0 does nothing
/// \param frac_bits fraction bits of the input
/// \return 0; QX_ERR_OVER_LIMIT after the line "\033[1;31mERR:vendor_submax_s16() idx %d over limit %d\r\n\033[0m" with
///         `v + 8191` and 8191, for a difference v above 0
TARVU_API _QX_RESULT vendor_submax_s16(const int16_t *in, int16_t *out, uint32_t count, uint8_t frac_bits);

/// Check of the block of vendor_softmax_process(): `batch` and then `channel` must not be 0.
/// \return 0; 2 after the line
///         "\033[1;31mERR:vendor_ais_checkparm() batch num should be positive, but input is 0\r\n\033[0m" or
///         "\033[1;31mERR:vendor_ais_checkparm() channel should be positive, but input is 0\r\n\033[0m"
TARVU_API int32_t vendor_ais_checkparm(const _NN_SOFTMAX_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// LRN
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup lrn LRN
/// \{

/// Parameter block of tarvu_lrn_process(). Within a batch item tensors are dense.
typedef struct _NN_LRN_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; may equal the input where the element widths are equal
  uint64_t work_buffer;      ///< scratch memory, see tarvu_lrn_process()
  uint16_t width;            ///< extent, elements
  uint16_t height;           ///< extent, lines
  uint16_t channel;          ///< extent, planes
  uint16_t batch;            ///< extent, items
  uint32_t in_line_ofs;      ///< not read
  uint32_t in_channel_ofs;   ///< not read
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input: signed is any `sign_bits` but 0; a width but 8 and 16 is floats
  _NN_FMT out_fmt;           ///< format of the output, as the input's
  _NN_SCALE in_scale;        ///< scale of the input, {0}: all inputs are 0; no effect on floats
  _NN_SCALE out_scale;       ///< multiplier of the output, {0}: all outputs are 0; no effect on floats
  uint32_t reserved_0;       ///< not read
  uint32_t local_size;       ///< channels in the window; must be odd
  int32_t lrn_k;             ///< constant k of the formula
  float alpha;               ///< must be above 0
  float beta;                ///< must be above 0
} _NN_LRN_PARM;

/// Local response normalisation across channels ("ImageNet Classification with Deep Convolutional Neural Networks",
/// 2012): `out[c] = in[c] * fast_Pow(k + alpha / local_size * sum, -beta)`, sum being that of the squares of the
/// `local_size` channels around c at the same position, clipped at the first and last channel. The order of the float
/// operations is told at tarvu_lrn_neon_func().
///
/// For every batch item in turn the input is converted by `*tofloat_neon()`, computed, and converted by
/// `floatto*_neon()`, with the scales as floats as in tarvu_softmax_process(). Floats are read and written where they
/// lie. Both conversions run over T = `batch * channel * height * width` elements for EVERY item, though each computes
/// one: with a batch above 1 they read and write past the two arrays of one item, and past the ends of the tensors from
/// the second item on. A caller with a batch above 1 provides for it: T elements readable and writable behind the
/// start of each item, and T floats behind the start of the last scratch array.
///
/// Scratch: with P = `width * height`, T floats of sums, `(channel + local_size - 1) * P` of squares, `channel * P` of
/// input and `channel * P` of output, in this order.
/// \return QX_OK, or with nothing written QX_ERR_PARAM: for an even `local_size`, ahead of all else, after the line
///         "\033[1;31mERR:tarvu_lrn_process() LRN only supports odd values for local_size!\r\n\033[0m"; for an extent
///         of 0, or `alpha` or `beta` at or below 0, after the line
///         "\033[1;31mERR:tarvu_lrn_checkparm() shape should be positive, but input is %dx%dx%dx%d(num x channels x
///         width x height),%dx%fx%f(size x beta x alpha)\r\n\033[0m" (unbroken) with batch, channel, width, height,
///         local_size, beta and alpha
TARVU_API _QX_RESULT tarvu_lrn_process(const _NN_LRN_PARM *parm);

/// LRN of floats. For each item, with P = `width * height`, all in single precision and in this order:
///
/// 1. Every sum starts at `(float)((double)lrn_k / (double)alpha_n)`, the constant in units of `alpha_n`.
/// 2. `squares` gets `half` planes of zeros, the squares of the item, and zeros to its end.
/// 3. `sums` of channel 0 adds the planes 0 to `local_size - 1` of `squares`, one after the other.
/// 4. `sums[c] = (sums[c - 1] + squares[c + local_size - 1]) - squares[c - 1]` for the other channels, so that rounding
///    errors run on along the channels.
/// 5. `out = in * fast_Pow(alpha_n * sums, -beta)`.
///
/// Where a sum becomes infinity less infinity, the NaN that fast_Pow() takes is 0x7FC00000 on every processor. A NaN that
/// comes in is taken with its own bits, of several in a window the first that is added.
/// \param in `num * channels * P` floats, at any address
/// \param out as many floats; may equal `in`, else must not overlap the other arrays
/// \param sums as many floats of scratch memory
/// \param squares `(channels + local_size - 1) * P` floats of scratch memory, used again for every item
/// \param lrn_k constant of the formula, signed
/// \param num items, back to back; 0 does nothing
/// \param local_size channels in the window
/// \param channels extent, planes
/// \param alpha_n `alpha / local_size`
/// \param beta exponent
/// \param width extent, elements
/// \param height extent, lines
/// \param half planes of the window in front of its channel, `(local_size - 1) / 2`
/// \return 0
TARVU_API int32_t tarvu_lrn_neon_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k,
                                      uint32_t num, uint32_t local_size, uint32_t channels, float alpha_n, float beta,
                                      uint32_t width, uint32_t height, uint32_t half);

/// As tarvu_lrn_neon_func(), but `lrn_k` counts as unsigned (-1 is 4294967295), and a square is the double
/// `pow(x, 2.0)` rounded to float.
TARVU_API int32_t tarvu_lrn_c_func(const float *in, float *out, float *sums, float *squares, int32_t lrn_k,
                                   uint32_t num, uint32_t local_size, uint32_t channels, float alpha_n, float beta,
                                   uint32_t width, uint32_t height, uint32_t half);

/// Approximate power on the bit pattern of a float: with i the pattern of x less 0x3F7893F8, wrapping in 32 bits, the
/// pattern of the result is `(float)i * p + 1064866816.0f`, each step rounded to float, converted towards zero to a
/// signed 32-bit integer with saturation; NaN gives 0. For positive x and p = -0.75 it is 0.9488 to 1.0326 times x^p;
/// fast_Pow(1.0f, -0.75f) is 0.949265.
TARVU_API float fast_Pow(float x, float p);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Norm
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup norm Norm
/// \{

/// Parameter block of tarvu_norm_process(). A batch item is dense: `channel` planes of `width * height` elements,
/// width fastest.
typedef struct _NN_NORM_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor
  uint64_t work_buffer;      ///< scratch: 8 * width * height * channel bytes, whatever the formats are
  uint64_t scale_addr;       ///< learned scales, floats: `channel` values, or one if `shared_scale` is not 0
  uint16_t width;            ///< extent, elements
  uint16_t height;           ///< extent, lines
  uint16_t channel;          ///< extent, planes
  uint16_t batch;            ///< extent, items
  uint32_t in_line_ofs;      ///< not read
  uint32_t in_channel_ofs;   ///< not read
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input; 32 bits is a float tensor; other sums: silently not read
  _NN_FMT out_fmt;           ///< format of the output; 32 bits is a float tensor; other sums: silently not written
  uint32_t reserved_0;       ///< not read
  _NN_SCALE in_scale;        ///< scale of the input, for its conversion to float; {0}: all inputs are 0
  _NN_SCALE out_scale;       ///< scale of the output, for its conversion from float; {0}: all outputs are 0
  uint8_t norm_whole_item;   ///< not 0: one norm for a whole batch item; 0: one for each position, across channels
  uint8_t shared_scale;      ///< not 0: `scale_addr` holds one value for all channels
  float eps;                 ///< added to the sum of squares
} _NN_NORM_PARM;

/// Divides by an L2 norm and multiplies by a learned scale: `out = in * scale[c] / sqrt(sum(in^2) + eps)`, the
/// channel-wise scaled L2 normalisation of ParseNet (Liu, Rabinovich and Berg, 2015).
///
/// Each batch item is converted with tarvu_fixtofloat_neon() into the first of two scratch arrays of
/// `n = width * height * channel` floats (a 32-bit product), computed in float into the second, and converted with
/// tarvu_floattofix_neon(). A 32-bit input is used in place of the first array, a 32-bit output in place of the
/// second. A format that the conversions do not know is not converted: the input is then what scratch memory held,
/// the output stays as it is. Every float operation is rounded by itself; nothing is fused.
///
/// - `norm_whole_item` not 0. The squares are summed in float: the first `n & ~15` in blocks of 16, a block adding
///   `((a + b) + c) + d` of the squares of its elements 4k, 4k + 1, 4k + 2 and 4k + 3 to lane k of four lanes; then
///   `((lane 0 + lane 1) + lane 2) + lane 3`; then the last `n & 15`, one at a time. The factor `1 / sqrt(sum + eps)`
///   is formed in double and rounded to float; then `out = in * (factor * scale)`.
/// - `norm_whole_item` 0, the first `P & ~15` of the `P = width * height` positions: the sum of a position starts at
///   `eps` and takes one square after the other by channel, in float. The factor is the Arm processor's reciprocal
///   square root estimate (FRSQRTE), unrefined, with some 8 significant bits; then `out = in * (scale * factor)`.
/// - `norm_whole_item` 0, the last `P & 15` positions: the sum starts at 0, `eps` is added to it last, in float, and
///   the factor is `1 / sqrt(sum)`, formed in double and rounded to float; then `out = in * (factor * scale)`. So the
///   last positions of a plane are exact where the ones before are coarse: a plane of 100 positions has 96 coarse
///   ones.
///
/// A sum of 0 gives a factor of infinity and so NaN for an element that is 0, on every path. The output may be the
/// input itself, with the same element width and batch offset; otherwise the two must not overlap. A zero extent
/// writes nothing; the one value at `scale_addr` of a shared scale may be read even so.
/// \return QX_OK
TARVU_API _QX_RESULT tarvu_norm_process(const _NN_NORM_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Layer normalisation
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup layernorm Layer normalisation
/// \{

/// Address that marks an absent gamma or beta array of _NN_LAYERNORM_PARM: thirty-six one bits. Null does not.
#define TARVU_LAYERNORM_ABSENT UINT64_C(0xFFFFFFFFF)

/// Parameter block of tarvu_layernorm_process() and tarvu_layernorm_process_neon(). Both tensors are dense. The
/// operators write to the block: to `outer_size`, `inner_size` and `axis`.
typedef struct _NN_LAYERNORM_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor
  uint64_t work_buffer;      ///< scratch: 8 * width * height * channel * batch bytes, whatever the formats are
  uint64_t gamma_addr;       ///< `inner_size` factors, floats of the caller, or TARVU_LAYERNORM_ABSENT
  uint64_t beta_addr;        ///< `inner_size` summands, floats of the caller, or TARVU_LAYERNORM_ABSENT
  uint16_t width;            ///< extent, elements
  uint16_t height;           ///< extent, lines
  uint16_t channel;          ///< extent, planes
  uint16_t batch;            ///< extent, items
  uint32_t in_line_ofs;      ///< not read
  uint32_t in_channel_ofs;   ///< not read
  uint32_t in_batch_ofs;     ///< not read
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  uint32_t out_batch_ofs;    ///< not read
  _NN_FMT in_fmt;            ///< format of the input; 32 bits is a float tensor; other sums: silently not read
  _NN_FMT out_fmt;           ///< format of the output; 32 bits is a float tensor; other sums: silently not written
  uint8_t reserved_0[8];     ///< not read
  _NN_SCALE in_scale;        ///< scale of the input, for its conversion to float; {0}: all inputs are 0
  _NN_SCALE out_scale;       ///< scale of the output, for its conversion from float; {0}: all outputs are 0
  uint32_t outer_size;       ///< written: runs in a batch item
  uint32_t inner_size;       ///< written: elements of a run
  uint8_t reserved_1[20];    ///< not read
  float eps;                 ///< added to the variance
  int32_t axis;              ///< first axis of a run, 1 channel to 3 width; written back, 4 more if 0 or below
} _NN_LAYERNORM_PARM;

/// Shifts each run of a tensor to mean 0 and scales it to variance 1, then applies the optional gamma and beta:
/// `out = (in - mean) / sqrt(variance + eps) * gamma[i] + beta[i]` (Ba, Kiros and Hinton, Layer Normalization, 2016).
///
/// A run is all of a batch item from `axis` inwards: with W, H, C the extents, axis 1 gives 1 run of C * H * W
/// elements in an item, axis 2 gives C runs of H * W, axis 3 gives C * H runs of W, axis 4 and above C * H * W runs
/// of 1. An `axis` of 0 or below has 4 added first, so -1 is the width and 0 becomes 4. -4 becomes 0, one run of the
/// whole tensor, batch included; it is walked `batch` times all the same, one tensor's length further each time, so
/// with a batch above 1 it leaves the tensor, and the caller must own what lies there. Below -4 is not allowed. The
/// sizes are 32-bit products and stand in the block afterwards, as the axis does.
///
/// The whole tensor is converted with tarvu_fixtofloat_neon() into the first of two scratch arrays of one float for
/// each element, computed into the second, and converted with tarvu_floattofix_rnd_neon() to nearest, ties away from
/// 0. A 32-bit input is used in place of the first array, a 32-bit output in place of the second. A format that the
/// conversions do not know is not converted: the input is then what scratch memory held, the output stays as it is.
///
/// A run of L elements, in double: `mean = sum(x) / L`, the sum in index order; the sum of the squares of
/// `d = x - mean` in index order, one fused multiply-add for each; `inv = 1 / sqrt(sum / L + eps)`; `y = d * inv`,
/// rounded to float. Then in float `y = y * gamma[i]` and `y = y + beta[i]`, each where its array is present, rounded
/// each. A run without variance gives 0, or NaN if `eps` is 0 as well.
///
/// The output may be the input itself, with the same element width; otherwise the two must not overlap. A zero extent
/// writes nothing but the block.
/// \return QX_OK
TARVU_API _QX_RESULT tarvu_layernorm_process(_NN_LAYERNORM_PARM *parm);

/// As tarvu_layernorm_process(), for data whose mean is known to be 187.03314 (bits 0x433B087C): that constant stands
/// for the mean of every run, and all but the root is in float, rounded by each operation and never fused.
///
/// A run of L elements: the squares of `d = x - 187.03314f` are summed, the first `L & ~15` in blocks of 16, a block
/// adding `((a + b) + c) + d` of its squares 4k, 4k + 1, 4k + 2 and 4k + 3 to lane k of four lanes; then
/// `((lane 0 + lane 1) + lane 2) + lane 3`; then the last `L & 15`, one at a time. `inv = 1 / sqrt(sum / L + eps)`, the
/// quotient and the sum in float, the root and the reciprocal in double, rounded to float. `y = d * inv`, then gamma
/// and beta.
///
/// Block and tail differ: for the last `L & 15` elements of a run the `y` before gamma and beta is written over the
/// float input, which is the input tensor itself where that is 32-bit; and without gamma and beta these elements are
/// not written to the result, which keeps there what the float output, or the second scratch array, held before.
/// \return QX_OK
TARVU_API _QX_RESULT tarvu_layernorm_process_neon(_NN_LAYERNORM_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Eltwise
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup eltwise Eltwise
/// \{

/// Parameter block of tarvu_eltwise_process(). Three tensors of one shape. A fixed-point plane is dense, its line
/// offset is not read; the lines of a float tensor (32 bits) lie at its line offset, which may be 0 to use one line
/// for all.
typedef struct _NN_ELTWISE_PARM {
  uint64_t in0_addr;         ///< first input
  uint64_t in1_addr;         ///< second input
  uint64_t out_addr;         ///< output
  uint64_t work_buffer;      ///< scratch: 12 * width * height bytes, whatever the formats are
  uint16_t width;            ///< extent, elements
  uint16_t height;           ///< extent, lines
  uint16_t channel;          ///< extent, planes
  uint16_t batch;            ///< extent, items
  uint32_t in0_line_ofs;     ///< bytes between lines of the first input, if it is a float tensor
  uint32_t in0_channel_ofs;  ///< bytes between channels of the first input
  uint32_t in0_batch_ofs;    ///< bytes between batch items of the first input
  uint32_t in1_line_ofs;     ///< bytes between lines of the second input, if it is a float tensor
  uint32_t in1_channel_ofs;  ///< bytes between channels of the second input
  uint32_t in1_batch_ofs;    ///< bytes between batch items of the second input
  uint32_t out_line_ofs;     ///< bytes between lines of the output, if it is a float tensor
  uint32_t out_channel_ofs;  ///< bytes between channels of the output
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in0_fmt;           ///< format of the first input; other sums than 8, 16 and 32: silently not read
  _NN_FMT in1_fmt;           ///< format of the second input, likewise
  _NN_FMT out_fmt;           ///< format of the output; other sums: silently not written
  _NN_SCALE in0_scale;       ///< scale of the first input, for its conversion to float; {0}: it is 0
  _NN_SCALE in1_scale;       ///< scale of the second input, for its conversion to float; {0}: it is 0
  _NN_SCALE out_scale;       ///< scale of the output, for its conversion from float; {0}: all outputs are 0
  int32_t op;                ///< 0 product, 1 weighted sum
  float coeff0;              ///< weight of the first input in the sum
  float coeff1;              ///< weight of the second input in the sum
} _NN_ELTWISE_PARM;

/// Multiplies or adds two tensors: `out = in0 * in1`, or `out = coeff0 * in0 + coeff1 * in1` with both products and
/// the sum rounded to float and nothing fused.
///
/// Works plane by plane in float. A 32-bit tensor is a float tensor, read or written where it stands; the plane of
/// any other tensor goes through a scratch plane of `width * height` floats, with tarvu_fixtofloat_neon() and
/// tarvu_floattofix_neon(). The kinds mix freely. The three scratch planes stand in the order first input, second
/// input, result. A format that the conversions do not know is not converted: the input is then what scratch memory
/// held, the output stays as it is.
///
/// The output may be an input itself, with the same element width and offsets; otherwise it must not overlap an
/// input. A zero extent writes nothing.
/// \return QX_OK, also where `op` is neither 0 nor 1: that prints the line
///         "\033[1;31mERR:tarvu_eltwise_process() Eltwise layer: unsupported operation %d!\n\033[0m" with `op`, once in
///         a call and whatever the extents, and then gives the weighted sum
TARVU_API _QX_RESULT tarvu_eltwise_process(const _NN_ELTWISE_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// LSTM
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup lstm LSTM
/// \{

/// Parameter block of tarvu_lstm_process() and lstm_process_c(). With T = `batch` time steps, N = `channel` parallel
/// sequences, I = `width * height` input values and D = `hidden_size` hidden units; all sizes are 32-bit products.
/// Tensors have the time step slowest, then the sequence, then the I or D values, with no gaps. All arrays belong to
/// the caller.
typedef struct _NN_LSTM_PARM {
  uint64_t in_addr;               ///< input sequence, T * N * I elements
  uint64_t static_addr;           ///< static input, N * I elements; read only if `use_static` is not 0
  uint64_t out_addr;              ///< output, T * N * D elements: the hidden states
  uint64_t work_buffer;           ///< work area, floats with no gaps: T * N * I inputs, N * I static inputs (also if
                                  ///< `use_static` is 0), N * D cell states, T * N * D hidden states
  uint64_t cont_addr;             ///< T * N bytes [t][n]: 0 starts a sequence anew, anything else continues it
  uint64_t input_weights[4];      ///< float matrices of D rows of I; gates in the order input, forget, output, cell
  uint64_t static_weights[4];     ///< float matrices of D rows of I; gates in the order input, output, forget, cell
  uint64_t recurrent_weights[4];  ///< float matrices of D rows of D; gates in the order input, forget, output, cell
  uint64_t biases[4];             ///< float vectors of D; gates in the order input, forget, output, cell
  uint16_t width;                 ///< first factor of I
  uint16_t height;                ///< second factor of I
  uint16_t channel;               ///< N, parallel sequences
  uint16_t batch;                 ///< T, time steps
  uint8_t reserved_0[44];         ///< not read
  _NN_FMT in_fmt;                 ///< format of both inputs; other sums than 8 and 16: floats in the work area
  uint8_t reserved_1[4];          ///< not read
  _NN_FMT out_fmt;                ///< format of the output; other sums than 8 and 16: silently not written
  uint8_t reserved_2[24];         ///< not read
  int32_t use_static;             ///< not 0: the static input takes part
  uint32_t hidden_size;           ///< D, hidden units
} _NN_LSTM_PARM;

/// Runs a long short-term memory layer over a whole sequence (Hochreiter and Schmidhuber, 1997, with the forget gate
/// of Gers, Schmidhuber and Cummins, 2000): converts the input, and if `use_static` is not 0 the static input, into
/// the work area, runs lstm_process_c(), and converts the hidden states to the output.
///
/// The conversions are those of int16tofloat_neon() and floattoint16_neon() and their like for signed and unsigned 8
/// and 16 bits, with a scale of 1.0; there are no scale records. Widths are sums modulo 256. Any other width, or a
/// `sign_bits` other than 0 and 1, is not converted: the inputs are then what stands in the work area, where a caller
/// with float data puts it, and the output is not written, so such a caller finds the hidden states in the work area.
/// \return QX_OK
TARVU_API _QX_RESULT tarvu_lstm_process(const _NN_LSTM_PARM *parm);

/// The recurrence of tarvu_lstm_process(), from the inputs in the work area to the cell states and hidden states
/// behind them, both of which it sets to 0 first (with T = 0 the cell states alone). Reads `work_buffer`,
/// `cont_addr`, the weights and biases, the extents, `use_static` and `hidden_size`.
///
/// For each step t, sequence n and unit j in ascending order, with x the input of (t, n), s the static input of n, h
/// the hidden states of (t - 1, n) and c the cell state of (n, j):
///
///     g  = sum_k Wx[j][k] * x[k]  +  sum_k Ws[j][k] * s[k]  +  sum_k Wh[j][k] * h[k]  +  b[j]        (of each gate)
///     i = sigmoid(g_input), f = sigmoid(g_forget), o = sigmoid(g_output), u = tanh(g_cell)
///     c = f * c + i * u
///     hidden[t][n][j] = o * tanh(c)
///
/// The s terms are left out if `use_static` is 0; if the byte of (t, n) at `cont_addr` is 0, the h terms are left out
/// and `c = i * u`. A gate's sum starts at 0 and takes its terms one after the other in the order above, k ascending.
/// Products and sums are floats, rounded each and never fused; both `tanh` and the product with o are in double and
/// rounded to float.
///
/// The hidden states before those of step 0 are the cell states, since these lie directly before them. So a first
/// step whose byte is not 0 reads the cell states of its sequence for h: 0 from unit j upwards, and below j the new
/// ones.
TARVU_API void lstm_process_c(const _NN_LSTM_PARM *parm);

/// `1 / (exp(-x) + 1)`: computed in double with the mathematics library's `exp` and rounded to float.
TARVU_API float sigmoid(float x);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Fully-connected post-processing
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup fc_post Fully-connected post-processing
/// \{

/// Parameter block of tarvu_fc_post_process(). The three _NN_SCALE are integer multipliers with right shifts, not
/// scales.
typedef struct _NN_FC_POST_PARM {
  uint64_t in_addr;          ///< partial results: number k of output j at byte `j * element size + k * in_line_ofs`
  uint64_t out_addr;         ///< output vector, dense within a batch item; must not overlap the input
  uint64_t reserved_0;       ///< not read
  uint64_t bias_addr;        ///< `width` signed 32-bit corrections, subtracted
  uint16_t width;            ///< outputs of a batch item
  uint16_t height;           ///< partial results of an output
  uint16_t channel;          ///< not read
  uint16_t batch;            ///< batch items
  uint32_t in_line_ofs;      ///< bytes between two partial results of one output; any number, the elements may overlap
  uint32_t in_channel_ofs;   ///< not read
  int32_t in_batch_ofs;      ///< bytes between batch items of the input; may be negative
  uint32_t out_line_ofs;     ///< not read
  uint32_t out_channel_ofs;  ///< not read
  int32_t out_batch_ofs;     ///< bytes between batch items of the output; may be negative
  _NN_FMT in_fmt;            ///< format of the partial results, unsigned bytes; other sums: signed 32-bit elements
  _NN_FMT out_fmt;           ///< format of the output, likewise
  _NN_SCALE mul_a;           ///< first multiplier and shift; {0} multiplies by 0
  _NN_SCALE mul_b;           ///< second multiplier and shift; {0} multiplies by 0
  _NN_SCALE neg_mul;         ///< further multiplier and shift for negative totals; {0} multiplies these by 0
} _NN_FC_POST_PARM;

/// Requantises the partial results of a fully-connected layer, with a leaky rectifier (Maas, Hannun and Ng, 2013) for
/// negative totals, in 64-bit integers:
///
///     total  = sum_k in[j, k] - bias[j]
///     out[j] = saturate(round(total * mul_a * mul_b / 2^s_pos))               if total >= 0
///     out[j] = saturate(round(total * mul_a * mul_b * neg_mul / 2^s_neg))     if total < 0
///
/// - `-bias[j]` is formed in 32 bits, so -2^31 stays what it is. Byte offsets are unsigned 32-bit and wrap.
/// - Multipliers are the `scale_value`s. `s_pos` is the sum of the `scale_shift`s of `mul_a` and `mul_b`, `s_neg` is
///   `s_pos` and that of `neg_mul`, each read as a signed 8-bit value. All products wrap in 64 bits.
/// - With p the product and s its shift: for s above 0 and `r = 1 << (s - 1)`, `(p + r) >> s` if p is not negative,
///   else `-((r - p) >> s)`: halves away from zero, rounded once. The choice of the multiplier looks at the total,
///   the choice of the rounding at p. For s of 0 or below, `p << -s`. Every count is taken modulo 64, every operation
///   wraps, right shifts are arithmetic, and only the last step saturates.
/// - The element type is signed or unsigned 8-bit or 16-bit where `sign_bits` is 1 or 0 and the width, a sum modulo
///   256, is 8 or 16. Everything else is a signed 32-bit element. The distance between elements is the width divided
///   by 8, whatever the type: a width of 24 has 4-byte elements every 3 bytes, and outputs that overlap are written
///   in ascending order.
///
/// A `height` of 0 gives totals of `-bias[j]`; a `batch` or `width` of 0 writes nothing. Reads no scratch memory.
/// \return QX_OK
TARVU_API _QX_RESULT tarvu_fc_post_process(const _NN_FC_POST_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Prior boxes
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup priorbox Prior boxes
/// \{

/// Parameter block of tarvu_priorbox_process().
typedef struct _NN_PRIORBOX_PARM {
  uint64_t in_addr;            ///< not read
  uint64_t out_addr;           ///< output: start of the box region
  uint64_t work_buffer;        ///< not read
  uint32_t in_width;           ///< width of the feature map, cells
  uint32_t in_height;          ///< height of the feature map, cells
  uint32_t img_width;          ///< width of the image, image units
  uint32_t img_height;         ///< height of the image, image units
  uint32_t variance_ofs;       ///< bytes from `out_addr` to the variance region; 16 a box for tarvu_detout_process()
  uint32_t reserved_0[3];      ///< not read
  float min_sizes[4];          ///< box sizes, image units
  float max_sizes[4];          ///< second sizes, image units, paired with `min_sizes` by index
  uint32_t min_size_num;       ///< entries of `min_sizes` in use, 1 to 4
  uint32_t max_size_num;       ///< entries of `max_sizes` in use, 0 to 4
  float aspect_ratios[4];      ///< width over height, in the layer's own order
  uint32_t aspect_ratios_num;  ///< entries of `aspect_ratios` in use, 1 to 4
  uint8_t flip;                ///< not 0: each aspect ratio is followed by its reciprocal
  uint8_t clip;                ///< not 0: box coordinates are clamped to 0..1
  uint8_t reserved_1[2];       ///< not read
  float variances[4];          ///< values of the variance region, in the order of the coordinates
  uint32_t variance_num;       ///< entries of `variances` in use
  float offset;                ///< position of the box centre in its cell, cells; usually 0.5
} _NN_PRIORBOX_PARM;

/// Working record of the prior box kernels: a checked parameter block with its aspect ratios expanded.
typedef struct _NN_PRIORBOX_WORK {
  uint32_t in_width;      ///< width of the feature map, cells
  uint32_t in_height;     ///< height of the feature map, cells
  uint32_t img_width;     ///< width of the image, image units
  uint32_t img_height;    ///< height of the image, image units
  float min_sizes[4];     ///< box sizes, image units
  float max_sizes[4];     ///< second sizes, image units; 0.0 where there is none
  uint32_t min_size_num;  ///< entries of `min_sizes` in use, 0 to 4
  uint32_t max_size_num;  ///< not 0: every box size has a second size
  float ratio_list[10];   ///< aspect ratios; an entry within 1e-6 of 1.0 makes no box of its own
  uint32_t ratio_count;   ///< entries of `ratio_list` in use, 0 to 10
  uint8_t flip;           ///< copied from the block, not read by the kernels
  uint8_t clip;           ///< not 0: box coordinates are clamped to 0..1
  float variances[4];     ///< pattern of the variance region
  uint32_t variance_num;  ///< copied from the block, not read by the kernels
  int16_t num_priors;     ///< boxes a cell that the clamp and the variance region cover
  float offset;           ///< position of the box centre in its cell, cells
} _NN_PRIORBOX_WORK;

/// Makes the prior (anchor) boxes of one feature map of a single-shot detector and their variances: checks the block,
/// makes a working record of it and calls tarvu_priorbox_neon_func() with the regions at `out_addr` and
/// `out_addr + variance_ofs`.
///
/// - The ratio list starts as 1.0. Each aspect ratio a is skipped, its reciprocal with it, if it is 0.0 or if `a - e`
///   (a float difference) lies strictly between -1e-6 and 1e-6 for an entry e of the list so far. Otherwise a is
///   appended and, if `flip` is set, `1.0f / a` behind it, untested. Ratios 2.0 and 0.5 with `flip` thus give 1.0, 2.0,
///   0.5.
/// - `num_priors` is the length of the ratio list plus 1 for each i below `max_size_num` with
///   `min_sizes[i] < max_sizes[i]`. It is the number of boxes a cell only for one box size whose second size, if any,
///   is the greater one. Elsewhere the clamp and the variance region cover fewer floats than the box region holds, or
///   more.
/// - Variances that are not greater than 0 count as 0.0. A `variance_num` of 1 gives the pattern v, 0, 0, 0; 2 and 3
///   give four zeros; 4 and more give the four values.
///
/// Reads no scratch memory. The caller provides 16 bytes a box, or 16 bytes times `num_priors` for each cell if that is
/// more, in the box region and the latter in the variance region, both aligned to 4 bytes. More than 4 entries in use
/// of an array are not caught, but for `variance_num`, of which 4 serve.
/// \return QX_OK; QX_ERR_PARAM with nothing written, if `in_width`, `in_height`, `img_width`, `img_height`,
///         `min_size_num`, `aspect_ratios_num` or `variance_num` is 0, after this line, here cut in three, with the
///         values in the order of the names behind them:
///         "\033[1;31mERR:tarvu_priorbox_checkparm() shape should be positive, but input is
///          %dx%dx%dx%d(img_width x img_height x in_width x in_height),
///         %dx%dx%dx%d(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m"
TARVU_API _QX_RESULT tarvu_priorbox_process(const _NN_PRIORBOX_PARM *parm);

/// Makes the boxes and variances of a working record, in single precision and in the order of these formulas.
///
/// Sizes (w, h) of a cell, for each box size m in turn: (m, m); if `max_size_num` is not 0, (s, s) with
/// `s = float(sqrt(double(m * max_sizes[i])))`, also where the second size is the smaller one or missing (s is then
/// 0.0); and for each entry r of the ratio list that is not strictly within 1e-6 of 1.0 (in double), `(m * t, m / t)`
/// with `t = float(sqrt(double(r)))`.
///
/// Boxes: records of four floats xmin, ymin, xmax, ymax, y outermost, then x, then the sizes in list order, from
/// `cx = (float(x) + offset) * (float(img_width) / float(in_width))` and cy likewise: `xmin = (cx - w * 0.5f) * inv_w`,
/// `xmax = (cx + w * 0.5f) * inv_w` with `inv_w = float(1.0 / double(img_width))`, and the same in y with h. The sizes
/// of a cell are taken in groups of 4; in the last `sizes modulo 4` of them `cx -/+ w * 0.5` is formed in double and
/// rounded once. This shows only where the half of a size is subnormal: a size of 2^-149 around a centre of 2^-149 has
/// its left edge at 2^-149 in a group and at 0.0 behind it.
///
/// Let n be `in_height * in_width * num_priors * 4` in 32 bits. With `clip` set, the first n floats of the box region
/// are clamped to 0.0..1.0, whether they are boxes or not, -0.0 to 0.0; in blocks of 16 floats a NaN stays, in the last
/// `n modulo 16` floats it becomes 0.0. At last n floats of the variance region are filled with `variances`, repeated.
/// \param work working record
/// \param regions box region, variance region; the variance region is written last
/// \return 0
TARVU_API _QX_RESULT tarvu_priorbox_neon_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]);

/// As tarvu_priorbox_neon_func(), but `cx -/+ w * 0.5` is formed in double and rounded once for every size, and the
/// clamp makes every NaN 0.0.
TARVU_API _QX_RESULT tarvu_priorbox_c_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Detection output
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup detection_output Detection output
/// \{

/// Sort record of quick_sort() and nonmax_suppress(): the score and the address of a box of four floats.
typedef struct _NN_DETOUT_RECORD {
  float score;          ///< sort key; must not be NaN
  uint32_t reserved_0;  ///< never interpreted; moved along by quick_sort()
  uint64_t box_addr;    ///< address of xmin, ymin, xmax, ymax
} _NN_DETOUT_RECORD;

/// Parameter block of tarvu_detout_process(). P is `num_priors`, C is `num_classes`, L is 1 if `share_location` is 1,
/// else C.
typedef struct _NN_DETOUT_PARM {
  uint64_t loc_addr;            ///< location predictions: P records of L groups of four numbers
  uint64_t conf_addr;           ///< confidences: P rows of C floats
  uint64_t prior_addr;          ///< P boxes of four floats xmin, ymin, xmax, ymax, then P records of four variances
  uint64_t out_addr;            ///< output records of five floats xmin, ymin, xmax, ymax, score
  uint64_t work_buffer;         ///< scratch memory
  uint16_t batch;               ///< extent, items
  uint16_t reserved_0;          ///< not read
  uint32_t reserved_1[2];       ///< not read
  uint32_t loc_batch_ofs;       ///< bytes between batch items of the locations
  uint32_t reserved_2[2];       ///< not read
  uint32_t conf_batch_ofs;      ///< bytes between batch items of the confidences
  uint32_t reserved_3[2];       ///< not read
  uint32_t prior_batch_ofs;     ///< bytes between batch items of the priors
  uint32_t reserved_4[2];       ///< not read
  uint32_t out_batch_ofs;       ///< bytes between batch items of the output
  _NN_FMT loc_fmt;              ///< format of the locations: a width of 8 is signed 8-bit, any other float, 16 too
  uint32_t reserved_5[3];       ///< not read
  _NN_SCALE loc_scale;          ///< scale of 8-bit locations, {0}: all are 0; not used for any other width
  uint32_t reserved_6[6];       ///< not read
  int32_t num_classes;          ///< C, classes, the background included
  int32_t num_priors;           ///< P, prior boxes
  uint32_t share_location;      ///< 1: one location set for all classes; any other value: C sets
  int32_t background_label_id;  ///< class that takes no room in the output; none if outside 0 to C - 1
  int32_t code_type;            ///< box coding, see DecodeBBoxes()
  uint32_t reserved_7;          ///< not read
  int32_t keep_top_k;           ///< most records a class, not negative; more than 20 never survive
  float confidence_threshold;   ///< least confidence of a candidate
  float nms_threshold;          ///< overlap from which a box is suppressed
} _NN_DETOUT_PARM;

/// Turns the predictions of a single-shot detector into boxes: for each batch item decodes the locations against the
/// prior boxes with DecodeBBoxes() (variances as factors, no clipping), and for each class but the background takes the
/// priors whose confidence is at least `confidence_threshold` as candidates, runs nonmax_suppress() on them with a
/// limit of 20 and `nms_threshold`, and writes the first `keep_top_k` survivors that touch the image.
///
/// - A survivor with `xmin >= 1.0`, `ymin >= 1.0`, `xmax <= 0.0` or `ymax <= 0.0` is dropped. A class with w records, w
///   at most 4, is filled up with 5 - w records of five floats -1.0. The classes stand behind one another, max(w, 5)
///   records each, without class number or count; a class without candidate and a P of at most 0 give five records of
///   -1.0.
/// - Before the classes of EVERY batch item `keep_top_k * C * 20` bytes are set to 0 from `out_addr` on, so what
///   earlier items wrote there is lost. The output holds at least the greater of that and max(w, 5) records a class.
/// - Locations of 8 bits, signed whatever their `sign_bits`, are converted as by int8tofloat_neon() with their
///   `frac_bits` and the float of the scale, 4 * P elements of an item. Any other width, 16 too, is taken as floats.
/// - With L other than 1 the locations of prior p start at byte 16 * L * p, and so does the BOX of prior p, while its
///   variances stay at 16 * P + 16 * p. Location set 0 serves every class. 16 * L * P bytes of the priors must be
///   readable then, and as many bytes from the start of the converted copy of 8-bit locations, the last scratch area.
/// - The item's tensors stand at their addresses plus the item's index times the offset, in 32 bits.
///
/// Scratch bytes, with Q for P + 3 rounded down to a multiple of 4: 20*L*P location records, 20*P prior boxes, 20*L*P
/// decoded boxes, 20*P candidates, 4*P*C not used, 16*P variances, 16*P sort records, 16*Q boxes and 8*Q states of the
/// suppression, 16*P converted locations, in this order: `(40*L + 4*C + 88) * P + 24*Q` in all, aligned to 4 bytes like
/// all tensors here. The decoded boxes stay until the next call: with an unknown `code_type` they are used as they are.
/// \return QX_OK always
TARVU_API _QX_RESULT tarvu_detout_process(const _NN_DETOUT_PARM *parm);

/// Decodes box locations. For each of `num_loc_classes` sets l and each of `num_priors` priors p, with b the prior box
/// p, v its variances and d the location record `l * num_priors + p`, writes xmin, ymin, xmax, ymax of decoded record
/// `l * num_priors + p`, in single precision but where double is named:
///
/// - `code_type` 0, centre and size: with `w = b[2] - b[0]`, `h = b[3] - b[1]`,
///   `cx = (d[0]*v[0]) * w + (b[0] + b[2]) * 0.5`, `cy = (d[1]*v[1]) * h + (b[1] + b[3]) * 0.5`,
///   `hw = double(w * fast_exp(d[2]*v[2])) * 0.5` and `hh = double(h * fast_exp(d[3]*v[3])) * 0.5`:
///   `cx - hw, cy - hh, cx + hw, cy + hh`, each in double and then rounded. fast_exp() has no lower clamp here: it
///   gives 0.0 far below 0, and no number (or a negative one) far above.
/// - `code_type` 1, corners: `d[n]*v[n] + b[n]`.
/// - `code_type` 2, corners relative to the prior's size: `(d[n]*v[n]) * (w or h) + b[n]`.
/// - Any other: prints "Unknown code type." without a line end, for every record, and leaves the record as it is.
///
/// Finally, if `clip_bbox` is 1, each of the four floats that are then in the record becomes 1.0 if it is at least 1.0,
/// else 0.0 if it is not above 0.0 (NaN becomes 0.0).
/// \param prior_bboxes `num_priors` records of five floats, four read
/// \param prior_variances `num_priors` records of four floats
/// \param code_type see above
/// \param variance_encoded_in_target not 0: the factors v[n] are left out
/// \param clip_bbox see above
/// \param loc `num_loc_classes * num_priors` records of five floats, four read
/// \param decoded `num_loc_classes * num_priors` records of five floats, four written; overlaps none of the others
/// \param num_priors priors; below 1 does nothing
/// \param num_loc_classes location sets; below 1 does nothing
TARVU_API void DecodeBBoxes(const float *prior_bboxes, const float *prior_variances, int32_t code_type,
                            int32_t variance_encoded_in_target, int32_t clip_bbox, const float *loc, float *decoded,
                            int32_t num_priors, int32_t num_loc_classes);

/// Sorts the records `left` to `right` (both included) by descending score, moving whole records. Equal scores end in
/// the order of this partition and not in the order of the input:
///
/// The pivot p is the record at `left`; i starts at `left`, j at `right`. While `i < j`: j moves left while
/// `score[j] <= p` and `j > i`; if `i < j`, record j is copied to i; i moves right while `score[i] >= p` and `i < j`;
/// if `i < j`, record i is copied to j. The pivot is stored at i, and both parts beside it are sorted the same way.
///
/// The stack needed grows with the logarithm of the count. A NaN score has no place in this order: the call does not
/// return.
/// \param records `_NN_DETOUT_RECORD` records, aligned to 4 bytes or more
/// \param left index of the first record
/// \param right index of the last record; below `left` nothing is done
TARVU_API void quick_sort(void *records, int32_t left, int32_t right);

/// Areas of boxes: `state[2*i] = (ymax - ymin) * (xmax - xmin)`, negative where one pair of edges is swapped. Works in
/// groups of four: the entries from `count` to the next multiple of 4 are read and their areas written as well.
/// \param boxes `count` records xmin, ymin, xmax, ymax, and room up to a multiple of 4 records
/// \param state as many pairs of area and score; the scores stay
/// \param count boxes
TARVU_API void calc_area(const float *boxes, float *state, int32_t count);

/// Greedy sweep of the non-maximum suppression over boxes in descending order of score. Takes each box i whose score is
/// not negative and keeps it. The sweep ends at once when `top_k` boxes are kept (or more, for a `top_k` below 1), or
/// at the last box. Otherwise box i suppresses the boxes behind it, from j = i + 1: a negative score at j is stepped
/// over; else the boxes j to j + 3 are compared as one group and j grows by 4. A box of the group is suppressed if
/// `inter >= ((area_i + area_j) - inter) * threshold` with `inter = ih * iw`, where
/// `iw = max(min(xmax_i, xmax_j) - max(xmin_i, xmin_j), 0.0)` and ih is the same in y: its score grows by -1.0.
///
/// A score of 1.0 or more therefore survives a suppression, 1.0 less. Two empty boxes suppress each other. A box with a
/// NaN area neither suppresses nor is suppressed.
/// \param boxes `count` records xmin, ymin, xmax, ymax, and three more that are read without effect
/// \param state as many pairs of area and score; the scores of the three behind `count` must be negative and may sink
///         further
/// \param count boxes
/// \param top_k most boxes to keep
/// \param last receives the index of the last box kept, 0 if there is none
/// \param threshold overlap from which a box is suppressed
/// \return boxes kept
TARVU_API int32_t check_overlap(const float *boxes, float *state, int32_t count, int32_t top_k, int32_t *last,
                                float threshold);

/// Non-maximum suppression: sorts the records with quick_sort(), gathers their boxes and scores, marks the three
/// entries of `state` behind them with a score of -1.0, computes the areas, sweeps with check_overlap() and moves the
/// survivors to the first n places of `records`, n being the lesser of `top_k` and the boxes kept.
///
/// Place i below n keeps its box and takes the score of `state[i]`, if that is greater than 0.0. Otherwise it takes box
/// and score of the next entry behind it with a score that is not negative and that was not moved yet, up to the last
/// box kept. If there is none, the moving ends, and the records from i on stay as the sort left them. So a score of 1.0
/// that was suppressed once to 0.0 counts as kept, but gives its place away or, at the end, stays with its score of
/// 1.0.
/// \param records `count` records of `_NN_DETOUT_RECORD`, aligned to 4 bytes or more, no score NaN
/// \param boxes room for `count + 3` records of four floats
/// \param state room for `count + 3` pairs of floats
/// \param count records, not negative; 0 returns 0 with nothing touched
/// \param reserved not read
/// \param top_k most boxes to keep
/// \param threshold overlap from which a box is suppressed
/// \return n
TARVU_API int32_t nonmax_suppress(void *records, float *boxes, float *state, int32_t count, int32_t reserved,
                                  int32_t top_k, float threshold);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Standalone non-maximum suppression
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup nms Standalone non-maximum suppression
/// \{

/// Scored box of the standalone suppression.
typedef struct _NN_NMS_OBJ {
  float x1;          ///< left edge
  float y1;          ///< top edge
  float x2;          ///< right edge
  float y2;          ///< bottom edge
  float score;       ///< sort key, must not be NaN; a negative value marks a dead record
  uint32_t obj_tag;  ///< the caller's, never interpreted; moved along with the record
} _NN_NMS_OBJ;

/// Parameter block of tarvu_nms_process().
typedef struct _NN_NMS_PARM {
  float nms_threshold;  ///< overlap from which a box is suppressed
  int32_t obj_num;      ///< boxes in the array
  int32_t max_obj_num;  ///< most boxes to keep
  uint32_t reserved_0;  ///< not read
  uint64_t obj_addr;    ///< array of `_NN_NMS_OBJ` records; rewritten in place
} _NN_NMS_PARM;

/// Calls nms_process_c() with the fields of the block and prints "obj_final_num is %d\r\n" with its result, on every
/// call. The count is told nowhere else; the records' scores mark the end.
/// \return QX_OK always
TARVU_API _QX_RESULT tarvu_nms_process(const _NN_NMS_PARM *parm);

/// Greedy non-maximum suppression by intersection over union (the Jaccard index), in place. Sorts the records with
/// q_sort() and takes each record i whose score is not negative. The sweep ends when `max_obj_num` are kept (or more,
/// for a `max_obj_num` below 1), or at the last place. Otherwise each later record j with a score of 0.0 or more gets
/// the score -1.0, if the boxes overlap in both directions (`max(x1) < min(x2)`, and in y, so boxes that only touch
/// never suppress each other) and `threshold <= inter / (((x2 - x1) * (y2 - y1) of i + the same of j) - inter)`, a
/// float division, with `inter = (min(x2) - max(x1)) * (min(y2) - max(y1))`.
///
/// n is the lesser of `max_obj_num` and the records kept. Then the first n places are filled: a place whose score is
/// not greater than 0.0 takes the whole of the next record behind it with a score that is not negative, up to where the
/// sweep ended, and that record's score becomes -1.0; the place is then looked at again. If there is none, the filling
/// ends. So a score of 0.0 is alive in the sweep and counts, but gives its place away as long as there is another.
/// Behind place n stand dead records and what the sweep did not reach, as the sort left it.
/// \param objs `obj_num` records, no score NaN
/// \param obj_num records; 0 returns 0 with nothing touched
/// \param max_obj_num most records to keep
/// \param threshold overlap from which a box is suppressed
/// \return n
TARVU_API int32_t nms_process_c(_NN_NMS_OBJ *objs, int32_t obj_num, int32_t max_obj_num, float threshold);

/// Sorts the records `left` to `right` (both included) by descending score by the partition of quick_sort(), moving
/// whole records. The stack needed grows with the logarithm of the count. With a NaN score the call does not return.
TARVU_API void q_sort(_NN_NMS_OBJ *objs, int32_t left, int32_t right);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Pooling
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup pooling Pooling
/// \{

/// Parameter block of tarvu_pool_process().
typedef struct _NN_POOL_PARM {
  uint64_t in_addr;          ///< input tensor, first element of batch item 0, channel 0; elements of a line are dense
  uint64_t out_addr;         ///< output tensor, likewise; must not overlap the input
  uint64_t work_buffer;      ///< not read
  uint16_t width;            ///< W, input columns, elements
  uint16_t height;           ///< H, input lines
  uint16_t channel;          ///< planes, of input and output alike
  uint16_t batch;            ///< items, of input and output alike
  uint32_t in_line_ofs;      ///< bytes between lines of the input
  uint32_t in_channel_ofs;   ///< bytes between channels of the input
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< bytes between lines of the output; not read by the global modes
  uint32_t out_channel_ofs;  ///< bytes between channels of the output
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input; its type code chooses the element type, 0 to 3
  _NN_FMT out_fmt;           ///< format of the output, likewise; no `frac_bits` enters the arithmetic
  _NN_SCALE in_scale;        ///< input multiplier and right shift, bits; {0} multiplies by 0
  _NN_SCALE out_scale;       ///< output multiplier and right shift, bits; {0} multiplies by 0
  uint32_t mode;             ///< 0 local maximum, 1 local average, 2 global maximum, 3 global average
  uint8_t kernel_w;          ///< KW, window columns, elements
  uint8_t kernel_h;          ///< KH, window lines
  uint8_t stride_w;          ///< SW, step of the window along a line, elements
  uint8_t stride_h;          ///< SH, step of the window across lines
  uint8_t pad_top;           ///< lines of padding above the input; more than `stride_h` reads outside, silently
  uint8_t pad_bottom;        ///< lines of padding below the input
  uint8_t pad_left;          ///< columns of padding in front of a line; more than `stride_w` reads outside, silently
  uint8_t pad_right;         ///< columns of padding behind a line
  uint32_t reserved_0;       ///< not read
  uint32_t floor_mode;       ///< local modes: 0 keeps a partial window at the far end, any other value drops it
  uint32_t non_count_pad;    ///< mode 1: 0 counts the padding in the divisor, any other value does not
  uint32_t reserved_1;       ///< not read
  uint32_t reserved_2;       ///< not read
  int8_t post_shift;         ///< further right shift of the result, bits; added to the two scale shifts
} _NN_POOL_PARM;

/// Reduces windows (modes 0 and 1) or whole planes (modes 2 and 3) to their maximum or their average and re-quantises
/// each result to the output format. Serves all sixteen pairs of 8-bit and 16-bit types. All in 32-bit integers that
/// wrap.
///
/// Shift. With `width_delta` 8 for a 16-bit input and an 8-bit output, -8 for the opposite, else 0:
///
///     shf   = (int8_t)(out_scale.scale_shift + post_shift + width_delta)
///     total = (int8_t)(in_scale.scale_shift + shf)
///
/// Output. With a = in_scale.scale_value, b = out_scale.scale_value, shift counts modulo 32, `>>` arithmetic, and a
/// division that truncates toward zero and gives 0 for the divisor 0:
///
///     maximum m, shf > 0:   r = ((1 << (total - 1)) + a * m * b) >> total
///     maximum m, shf <= 0:  r = ((a * m) << -total) * b
///     average,   shf > 0:   r = ((1 << (total - 1)) + ((a * sum + half) / d) * b) >> total
///     average,   shf <= 0:  r = ((((a * sum) << -total) + half) / d) * b
///
/// and r is clamped to the range of the output type. So the right shift rounds half up and the average's division
/// rounds to nearest for a positive sum, ties up; a negative sum is pulled toward zero, since `half` is added
/// whatever the sign: -4 over 4 elements gives 0. The direction follows `shf`, not `total`: with `shf` above 0 a
/// total of 0 flips the sign bit, and a total of another sign than `shf` shifts by the total modulo 32. Shift and
/// multipliers alone change the unit: a 16-bit input that comes to `shf` 0 with an 8-bit output saturates.
///
/// Windows (modes 0 and 1), along a line; across lines likewise with the heights:
///
///     span   = W + pad_left + pad_right - KW      steps  = span / SW, 0 for SW 0      rest = span - steps * SW
///     last_x = (steps + 1) * SW - pad_left        next_x = last_x, but SW - pad_left for steps < 1
///
///     first column:               [0, min(W, KW - pad_left))
///     columns i = 1 .. steps:     [x, min(W, x + KW)) with x = i * SW - pad_left
///     extra column, the next one: [next_x, W), if floor_mode is 0, rest is not 0 and next_x < W
///
/// A window holds only elements of the input; padding is never read, and no element outside a plane is read as long
/// as `pad_left` is at most `stride_w` and `pad_top` at most `stride_h`. A larger `pad_left` reads in front of a
/// line, a larger `pad_top` at `(uint32_t)(in_line_ofs * (stride_h - pad_top))` bytes behind the plane's start;
/// neither is checked; \ref pooling tells a way round for a maximum. An empty window's maximum is -2147483648 and its sum
/// 0; both pass through the output arithmetic and are written.
///
/// Divisor of mode 1: d is columns times lines, and `half` is `d / 2`. What counts as a column, and likewise as a line:
///
///                    non_count_pad 0                       any other value
///     first column:  min(KW, W + pad_left + pad_right)     max(0, min(W + pad_left + pad_right, KW - pad_left))
///     columns i:     KW                                    min(KW, W - x)
///     extra column:  W + pad_right - last_x                W - last_x
///
/// So with the padding counted, a window is not cut at the near sides; and with it not counted, a first window that
/// reaches across the whole line still counts the padding behind it. With the padding not counted, d is at least 1 in
/// the extra column (not in the extra line); the extra column exists for next_x < W + pad_right and the extra line for
/// next_y < H + pad_bottom, but in the extra line the extra column exists for next_x < W only.
///
/// Global modes (2 and 3) read neither windows, strides, pads, `floor_mode` nor `out_line_ofs`, and write one element
/// per plane. d is W * H modulo 2^32 as a signed number, `half` is d shifted right by 1, arithmetically. A plane
/// without elements is an empty window.
///
/// Writes only elements of the output grid, lines and columns in ascending order, but for mode 1 with `non_count_pad`
/// not 0: that first sets `batch * out_batch_ofs` bytes (modulo 2^32) from `out_addr` to 0, bytes between lines
/// included, also where `channel` is 0. Apart from that a `batch` or `channel` of 0 writes nothing. Addresses need no
/// alignment. Reads no scratch memory.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written after one of these lines, checked in this order:
///         "\033[1;31mERR:tarvu_pool_process() unsupported input type %d\r\n\033[0m" with the input's type code, if
///         it is not 0 to 3;
///         "\033[1;31mERR:vendor_ai_pool_out_type() unsupported output type %d\r\n\033[0m" with the output's type code,
///         likewise;
///         "\033[1;31mERR:vendor_ai_pool_mode() unsupported pooling mode %d\r\n\033[0m" with `mode`, if not 0 to 3
TARVU_API _QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Reverse
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup reverse Reverse
/// \{

/// Parameter block of tarvu_reverse_process().
typedef struct _NN_REVERSE_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; must not overlap the input
  uint64_t work_buffer;      ///< not read
  uint16_t width;            ///< extent, elements
  uint16_t height;           ///< extent, lines
  uint16_t channel;          ///< extent, planes
  uint16_t batch;            ///< extent, items
  uint32_t in_line_ofs;      ///< bytes between lines of the input
  uint32_t in_channel_ofs;   ///< bytes between channels of the input
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< bytes between lines of the output
  uint32_t out_channel_ofs;  ///< bytes between channels of the output
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input; its width alone chooses the element size
  _NN_FMT out_fmt;           ///< format of the output, of equal or smaller width; other sums: silently not converted
  _NN_SCALE in_scale;        ///< no effect
  _NN_SCALE out_scale;       ///< no effect
  int8_t axis;               ///< axis to reverse: 0 batch, 1 channel, 2 height, 3 width; not checked
} _NN_REVERSE_PARM;

/// Turns the order of the slices along one axis round: `out[.., i, ..] = in[.., n - 1 - i, ..]`, and re-formats each slice in
/// place at the output as tarvu_convert_fmt_c() does, where the formats differ.
///
/// A slice is the memory from one step of the axis to the next, padding included: `in_batch_ofs`, `in_channel_ofs` or
/// `in_line_ofs` bytes, or one element of the input's width for axis 3 (in both tensors). That many bytes are written for every
/// slice, also where the output's step is smaller. The rounds outside the axis advance by the step of the axis next to it, as
/// many times as the extents outside it multiply to (in 32 bits), so axes further out must be laid out back to back: for axis 2
/// `in_batch_ofs` must be `channel * in_channel_ofs`, for axis 3 also `in_channel_ofs` be `height * in_line_ofs`, and likewise
/// for the output. An output wider than the input re-formats over data that it has not read yet.
///
/// Reads no scratch memory. An extent of 0 on the axis or outside it writes nothing; an extent of 0 inside it changes nothing.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, for an input width other than 8 and 16, after the line
///         "\033[1;31mERR:tarvu_reverse_process() unsupported input type %d\r\n\033[0m" with the type code
TARVU_API _QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Permute
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup permute Permute
/// \{

/// Parameter block of tarvu_permute_process(). It carries no output shape: the output's layout is its offsets and the order.
typedef struct _NN_PERMUTE_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; overlaps the input only for the identity with equal formats
  uint64_t work_buffer;      ///< not read
  uint16_t width;            ///< input extent, elements
  uint16_t height;           ///< input extent, lines
  uint16_t channel;          ///< input extent, planes
  uint16_t batch;            ///< input extent, items
  uint32_t in_line_ofs;      ///< bytes between lines of the input
  uint32_t in_channel_ofs;   ///< bytes between channels of the input
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< bytes between steps of output axis 2
  uint32_t out_channel_ofs;  ///< bytes between steps of output axis 1
  uint32_t out_batch_ofs;    ///< bytes between steps of output axis 0
  _NN_FMT in_fmt;            ///< format of the input
  _NN_FMT out_fmt;           ///< format of the output; where lines move, sums but 8 and 16: written only if as `in_fmt`
  _NN_SCALE in_scale;        ///< no effect
  _NN_SCALE out_scale;       ///< no effect
  int8_t order[4];  ///< order[i] is the input axis (0 batch .. 3 width) that becomes output axis i; not checked
} _NN_PERMUTE_PARM;

/// Reorders the axes of a tensor: output axis i runs over input axis `order[i]`, and re-formats the elements as
/// tarvu_convert_fmt_c() does, where the two formats differ in any of their four bytes. A repeated axis is walked in lock-step.
///
/// - `order[3]` is 3: whole lines of `width` elements move. The formats are not checked: elements of equal formats are copied
///   at `width in bits / 8` bytes each, 32-bit elements of different formats write nothing.
/// - Otherwise elements move one by one; output axis 3 is dense.
///
/// Reads no scratch memory. An extent of 0 on any axis used writes nothing.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, where `order[3]` is not 3 and the input's, or else the output's,
///         width is not 8 or 16, after the line
///         "\033[1;31mERR:tarvu_permute_process() unsupported input type %d\r\n\033[0m" or
///         "\033[1;31mERR:tarvu_permute_process() unsupported output type %d\r\n\033[0m" with the type code
TARVU_API _QX_RESULT tarvu_permute_process(const _NN_PERMUTE_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Top-K
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup topk Top-K
/// \{

/// Parameter block of tarvu_topk_process(). The input is dense and has no offsets.
typedef struct _NN_TOPK_PARM {
  uint64_t in_addr;                ///< input tensor, dense: width fastest, then height, channel, batch
  uint64_t out_addr;               ///< value output, elements of the input's width; 0: no values are written
  uint64_t out_index_addr;         ///< index output, unsigned 16-bit entries for any input; 0: no indices are written
  uint64_t work_buffer;            ///< scratch, aligned to 4 bytes: 4 * max(k, line length) bytes
  uint32_t reserved_0[3];          ///< not read
  uint32_t out_line_ofs;           ///< bytes between height steps of the value output
  uint32_t out_channel_ofs;        ///< bytes between channel steps of the value output
  uint32_t out_batch_ofs;          ///< bytes between batch steps of the value output
  uint32_t out_index_line_ofs;     ///< bytes between height steps of the index output
  uint32_t out_index_channel_ofs;  ///< bytes between channel steps of the index output
  uint32_t out_index_batch_ofs;    ///< bytes between batch steps of the index output
  _NN_FMT in_fmt;                  ///< format of the input: tells width and signedness, nothing else
  uint32_t reserved_1[8];          ///< not read
  uint16_t width;                  ///< input extent, elements
  uint16_t height;                 ///< input extent, lines
  uint16_t channel;                ///< input extent, planes
  uint16_t batch;                  ///< input extent, items
  uint8_t reserved_2;              ///< not read
  int8_t axis;                     ///< axis of the lines: 0 batch, 1 channel, 2 height, 3 width
  int8_t largest;                  ///< 1 picks the largest elements, 0 the smallest
  int8_t sorted;                   ///< not 0: the picks come out best first; 0: in an order without meaning
  uint32_t k;                      ///< elements to pick from each line; at most the extent of the axis
} _NN_TOPK_PARM;

/// Picks the `k` largest (or smallest) elements of every line along one axis. For each pick i of a line it stores the
/// element itself, bit for bit, at step i of the axis in the value output, and its position along the axis (0 to n - 1)
/// at step i of the axis in the index output.
///
/// - Ranking: a greater (smaller) element goes first; of equal elements the one earlier along the line goes first, for
///   the largest and the smallest alike. Elements compare in their own signedness; formats are never converted.
/// - Order of the picks: with `sorted` fully determined. Without it the set of the picks is determined and their order
///   is not, except that for `k` equal to the line length n the picks are the line in its own order: indices 0, 1, ..
///   n - 1.
/// - Steps: one element of the input's width (value output) or 2 bytes (index output) along the width, the block's
///   offsets along the other axes, both for the axis of the lines and across it. An index is stored as its low 16 bits.
/// - `k` is not checked. Above the line length, or with a line length of 0, entries n .. k - 1 of `work_buffer` are
///   used as they stand, as unsigned 32-bit element offsets into the input, and ranked among the others if `sorted`:
///   the caller must keep `k` within the line length.
///
/// With both output addresses 0 nothing is stored. An extent of 0 across the lines writes nothing.
///
/// Scratch: `4 * max(k, n)` bytes. The outputs must not overlap the input or each other.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, checked in this order:
///         - input width other than 8 and 16, after
///           "\033[1;31mERR:tarvu_topk_process() not support in_type = %d\r\n\033[0m" with the type code;
///         - `largest` other than 0 and 1, after
///           "\033[1;31mERR:tarvu_topk_large() wrong parameter largest: %d\n\033[0m" (a bare LF) with its value;
///         - `axis` outside 0 to 3, after "\033[1;31mERR:tarvu_topk_general() not support axis = %d\r\n\033[0m" with
///           its value
TARVU_API _QX_RESULT tarvu_topk_process(const _NN_TOPK_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Gather
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup gather Gather
/// \{

/// Parameter block of tarvu_gather_process(). Ranks are read from the extents: an absent dimension has extent 0.
typedef struct _NN_GATHER_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor; must not overlap the input
  uint64_t ind_addr;         ///< index tensor, dense
  uint64_t work_buffer;      ///< staging memory, used only where the widths differ; size below
  uint16_t in_width;         ///< not read
  uint16_t in_height;        ///< input extent, lines; 0 for rank 1
  uint16_t in_channel;       ///< input extent, planes; 0 for a rank of at most 2
  uint16_t in_batch;         ///< input extent, items; 0 for a rank of at most 3
  uint16_t ind_width;        ///< index extent, elements
  uint16_t ind_height;       ///< index extent, lines; 0 when absent
  uint16_t ind_channel;      ///< index extent, planes; 0 when absent
  uint16_t ind_batch;        ///< index extent, items; 0 when absent
  uint16_t out_width;        ///< output extent, elements
  uint16_t out_height;       ///< output extent, lines
  uint16_t out_channel;      ///< output extent, planes
  uint16_t out_batch;        ///< output extent, items
  uint32_t in_line_ofs;      ///< bytes between lines of the input
  uint32_t in_channel_ofs;   ///< bytes between channels of the input
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t out_line_ofs;     ///< bytes between lines of the output
  uint32_t out_channel_ofs;  ///< bytes between channels of the output
  uint32_t out_batch_ofs;    ///< bytes between batch items of the output
  _NN_FMT in_fmt;            ///< format of the input
  _NN_FMT ind_fmt;           ///< format of the indices: tells width and signedness; its `frac_bits` scale nothing
  _NN_FMT out_fmt;           ///< format of the output; other sums than 8 and 16: silently not written
  _NN_SCALE in_scale;        ///< no effect
  _NN_SCALE out_scale;       ///< no effect
  uint8_t axis;              ///< axis gathered on, counted from the slowest dimension of the input's rank, which is 0
} _NN_GATHER_PARM;

/// Copies slices of the input, chosen along one axis by a list of positions: `out[.., i, ..] = in[.., index[i], ..]`,
/// and re-formats each as tarvu_convert_fmt_c() does where width or `frac_bits` differ (`sign_bits` are not compared).
///
/// - Input rank R: 4 if `in_batch` is not 0, else 3 if `in_channel` is not 0, else 2 if `in_height` is not 0. Index
///   rank r likewise, 1 if only `ind_width` is there. The indices, L of them, are all of the index tensor; of a rank-4
///   input's index tensor only the first `ind_width` are used, and r counts as 1.
/// - Axis a names dimension d = R - 1 - a (0 width, 1 height, 2 channel, 3 batch). The output has rank Q = R + r - 1:
///   the dimensions outside the axis, the index tensor's dimensions, the dimensions inside the axis. The a outer
///   dimensions run over the output's extents, from the slowest, with the steps of their own dimension in each tensor.
///   The list of indices is read anew at every outer position and walked flat, the output advancing by one step of
///   dimension d for each.
/// - A run, the memory of one slice, is the input's step of dimension d in bytes, padding included, for d above 0. For
///   d = 0 it is one element, and the output advances by one element: of the input's size where the widths are equal,
///   else of 1 or 2 bytes for an output width of 8 or 16 and 0 bytes for any other.
/// - Position of an index v: v for v of at least 0; the first slice for -1; `L - |v|` in 32 bits, wrapping, below -1:
///   counted back from the number of indices, not from the extent of the axis. Unsigned 32-bit indices from 2^31 on
///   count as negative. The source is the outer position's start + position * run bytes, the product taken modulo 2^32.
///   No position is checked.
/// - Re-formatting: for equal widths the run is copied to the output and re-formatted there in place; for different
///   widths it is copied to `work_buffer` and re-formatted from there. It counts the product of the output's extents 0
///   to Q - 2 - a, 1 if there are none: the elements of a slice for r = 1. For r above 1 that is more than one slice:
///   each re-formatting reads past the run (in `work_buffer`, or in the output ahead of it), and writes past it. The
///   next index overwrites this; the last one leaves it behind the output's last run, where the buffer must have room.
///   An output width other than 8 and 16 that differs from the input's writes nothing.
///
/// Writes nothing and returns QX_OK for an input of rank 1, `axis` of R and above, index rank 4 with R = 2, index rank
/// 3 and 4 with R = 3, no indices, and an outer output extent of 0.
///
/// Scratch, only where the widths differ: the greater of one run and the re-format count in input elements.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, checked in this order:
///         - input width other than 8 and 16, after
///           "\033[1;31mERR:tarvu_gather_process() unsupported gather input type %d\r\n\033[0m" with the gather type
///           code;
///         - index width other than 8, 16 and 32, after
///           "\033[1;31mERR:tarvu_gather_process() unsupported ind type %d\r\n\033[0m" with the gather type code
TARVU_API _QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Gather ND
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup gathernd Gather ND
/// \{

/// Parameter block of tarvu_gathernd_process(). All tensors are dense; a dimension that a tensor lacks has extent 0.
typedef struct _NN_GATHERND_PARM {
  uint64_t in_addr;      ///< input tensor, dense
  uint64_t out_addr;     ///< output tensor, dense; must not overlap the input
  uint64_t ind_addr;     ///< index tensor, dense: tuples of `ind_width` coordinates; floats if its width is 32
  uint64_t work_buffer;  ///< scratch: 4 bytes for each index element, unless the index width is 32; aligned to 4 bytes
  uint16_t in_width;     ///< input extent, elements
  uint16_t in_height;    ///< input extent, lines
  uint16_t in_channel;   ///< input extent, planes
  uint16_t in_batch;     ///< input extent, items
  uint16_t out_width;    ///< output extent, elements
  uint16_t out_height;   ///< output extent, lines
  uint16_t out_channel;  ///< output extent, planes
  uint16_t out_batch;    ///< output extent, items
  uint16_t ind_width;    ///< coordinates of a tuple
  uint16_t ind_height;   ///< index extent, lines
  uint16_t ind_channel;  ///< index extent, planes
  uint16_t ind_batch;    ///< index extent, items
  uint32_t reserved_0[6];  ///< not read
  _NN_FMT in_fmt;          ///< format of the input
  _NN_FMT ind_fmt;         ///< format of the indices; its `frac_bits` count below a width of 32; other sums: unread
  _NN_FMT out_fmt;         ///< format of the output; not checked: other sums than 8 and 16 are not written
  _NN_SCALE in_scale;      ///< no effect
  _NN_SCALE out_scale;     ///< no effect
  uint32_t batch_dims;     ///< leading dimensions that input and indices share; not checked
} _NN_GATHERND_PARM;

/// Product of those of `dims[0]` to `dims[n - 1]` that are not 0, modulo 2^32; 1 if there are none.
/// \param dims shape, slowest dimension first; at least `n` entries
/// \param n number of entries looked at
TARVU_API uint32_t size_to_dimension(const uint32_t *dims, uint32_t n);

/// Product of those of `dims[n]` to `dims[3]` that are not 0, modulo 2^32; 1 if there are none, as for `n` above 3.
/// \param dims shape of four entries, slowest dimension first
/// \param n first entry looked at
TARVU_API uint32_t size_from_dimension(const uint32_t *dims, uint32_t n);

/// Number of empty places at the head of a shape: 3 if `dims[2]` is 0, else 2 if `dims[1]` is 0, else 1 if `dims[0]` is
/// 0, else 0.
/// \param dims shape of four entries, slowest dimension first; `dims[3]` is not looked at
TARVU_API uint32_t chk_input_offset(const uint32_t *dims);

/// Copies slices of the input addressed by tuples of coordinates. With K = `ind_width`:
///
///     out[t] = in[batch of t, index[t][0], .. index[t][K-1]]
///
/// Extents of 0 are skipped in every product. The input's shape, slowest first and without its leading empty places, is
/// `batch_dims` shared dimensions, then K dimensions that the coordinates address, then the slice (one element if
/// nothing is left). The number of tuples is the product of the index extents but `ind_width`. Tuples are divided
/// evenly among the shared dimensions' positions: tuple t belongs to batch `t / (tuples / batches)`, with integer
/// divisions, and to batch 0 where there are fewer tuples than batches.
///
/// - Indices: an 8-bit or 16-bit index goes through tarvu_fixtofloat_1d_neon() with `ind_fmt`, scale 1 and zero point
///   0; a 32-bit index is a float as it stands. The float is truncated towards zero and saturated to 32 bits, NaN to 0,
///   so that 3.5 is coordinate 3 and -1.5 is -1. A format with `sign_bits` other than 0 and 1 is not converted: then
///   `work_buffer` is read as it was.
/// - Element offset: the sum of coordinate * stride and the batch's start, modulo 2^32, taken as unsigned. Nothing is
///   checked and a negative coordinate does not wrap round: it reads about 2^32 elements past the start of the input.
/// - Re-formatting: where the `frac_bits` or the type codes of input and output differ, the slices are gathered in a
///   heap block, and tarvu_convert_fmt_c() moves as many elements as the output's extents multiply to from there to the
///   output. Otherwise slices go straight to the output.
///
/// `batch_dims` and the leading empty places must not exceed 4 together. Tuples * slice must not exceed the output.
///
/// Heap: each call leaves `4 * K + 4 * (index elements)` bytes allocated, and the output's element count times the
/// input's element size more where it re-formats. They are never freed, and the caller cannot reach them.
///
/// Scratch: 4 bytes for each index element, none for a 32-bit index format.
/// \return QX_OK; QX_ERR_UNSUPPORTED for an input width other than 8 and 16, after the plain line
///         "unsupported input type %d\r\n" with the type code: the output is untouched, the scratch is written;
///         QX_ERR_NO_MEMORY, silently and with the output untouched, if the heap has no room for a block: those taken
///         before stay allocated
TARVU_API _QX_RESULT tarvu_gathernd_process(const _NN_GATHERND_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Gather element
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup gatherelement Gather element
/// \{

/// Parameter block of tarvu_gatherelement_process(). The rank is read from the input's extents: an absent dimension has
/// extent 0.
typedef struct _NN_GATHERELEMENT_PARM {
  uint64_t in_addr;          ///< input tensor
  uint64_t out_addr;         ///< output tensor, dense; must not overlap the input
  uint64_t ind_addr;         ///< index tensor, of the output's extents
  uint64_t work_buffer;      ///< staging memory of one input element, read only where width or `frac_bits` differ
  uint16_t in_width;         ///< not read
  uint16_t in_height;        ///< only whether it is 0 counts; 0 for rank 1
  uint16_t in_channel;       ///< only whether it is 0 counts; 0 for a rank of at most 2
  uint16_t in_batch;         ///< only whether it is 0 counts; 0 for a rank of at most 3
  uint16_t ind_width;        ///< not read
  uint16_t ind_height;       ///< not read
  uint16_t ind_channel;      ///< not read
  uint16_t ind_batch;        ///< not read
  uint16_t out_width;        ///< extent of output and indices, elements
  uint16_t out_height;       ///< extent of output and indices, lines
  uint16_t out_channel;      ///< extent of output and indices, planes; read from rank 3 on
  uint16_t out_batch;        ///< extent of output and indices, items; read for rank 4
  uint32_t in_line_ofs;      ///< bytes between lines of the input
  uint32_t in_channel_ofs;   ///< bytes between channels of the input
  uint32_t in_batch_ofs;     ///< bytes between batch items of the input
  uint32_t ind_line_ofs;     ///< bytes between lines of the indices
  uint32_t ind_channel_ofs;  ///< bytes between channels of the indices
  uint32_t ind_batch_ofs;    ///< bytes between batch items of the indices
  uint32_t reserved_0[3];    ///< not read
  _NN_FMT in_fmt;            ///< format of the input
  _NN_FMT ind_fmt;           ///< format of the indices: tells width and signedness; its `frac_bits` scale nothing
  _NN_FMT out_fmt;           ///< format of the output; other sums than 8 and 16: silently not written
  _NN_SCALE in_scale;        ///< no effect
  _NN_SCALE out_scale;       ///< no effect
  uint8_t axis;  ///< axis of the indices, counted from the slowest dimension of the input's rank, which is 0
} _NN_GATHERELEMENT_PARM;

/// Takes every output element from the input element at the same coordinates, but for the axis, where the coordinate is
/// the index at that place: for axis 0 of rank 2, `out[h][w] = in[index[h][w]][w]`. Where width or `frac_bits` differ,
/// the element is copied to `work_buffer` and re-formatted from there as tarvu_convert_fmt_c() does; `sign_bits` are
/// not compared.
///
/// - Rank: 4 if `in_batch` is not 0, else 3 if `in_channel` is not 0, else 2 if `in_height` is not 0. The walk follows
///   the output's extents of that rank, slowest first, and fills the output densely: elements of 1 or 2 bytes for an
///   output width of 8 or 16, of the input's size for any other (which is left as it was).
/// - Slice base of an index v: the input's start + the offsets of the coordinates slower than the axis + v * the step
///   of the axis, for v of at least 0. Below -1 v stands for `total - |v|` in 32 bits, wrapping, with total the number
///   of output elements: counted back from the whole tensor, not from the extent of the axis. The products are taken
///   modulo 2^32 and nothing is checked. For v of -1 the slice base of the element before stays as it is. Unsigned
///   32-bit indices from 2^31 on count as negative. The element lies at the slice base + the offsets of the coordinates
///   faster than the axis.
/// - The slice base that a -1 meets first: where the axis is the slowest, and for rank 2 with axis 1, address 0 at the
///   start of the call, which the caller must not let it read; else the start that the coordinates slower than the axis
///   give, set anew whenever one of them advances.
///
/// Writes nothing and returns QX_OK for rank 1, for `axis` of the rank and above and for an output extent of 0.
///
/// Scratch: one input element, where width or `frac_bits` differ.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, checked in this order:
///         - input width other than 8 and 16, after
///           "\033[1;31mERR:tarvu_gatherelement_process() unsupported gatherelement input type %d\r\n\033[0m" with the
///           gather type code;
///         - index width other than 8, 16 and 32, after
///           "\033[1;31mERR:tarvu_gatherelement_process() unsupported ind type %d\r\n\033[0m" with the gather type code
TARVU_API _QX_RESULT tarvu_gatherelement_process(const _NN_GATHERELEMENT_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// One-hot
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup onehot One-hot
/// \{

/// Parameter block of tarvu_onehot_process().
typedef struct _NN_ONEHOT_PARM {
  uint64_t in_addr;          ///< index tensor
  uint64_t out_addr;         ///< output tensor; must not overlap the indices
  uint64_t values_addr;      ///< two elements of `values_fmt`: the off value, then the on value
  uint16_t width;            ///< not read: the index tensor counts as 1 wide
  uint16_t height;           ///< index extent, lines
  uint16_t channel;          ///< index extent, planes
  uint16_t batch;            ///< index extent, items
  uint16_t reserved_0[4];    ///< not read
  uint32_t in_line_ofs;      ///< bytes between lines of the indices
  uint32_t in_channel_ofs;   ///< bytes between channels of the indices
  uint32_t in_batch_ofs;     ///< bytes between batch items of the indices
  uint32_t out_line_ofs;     ///< bytes between steps of output axis 2
  uint32_t out_channel_ofs;  ///< bytes between steps of output axis 1
  uint32_t out_batch_ofs;    ///< bytes between steps of output axis 0
  _NN_FMT in_fmt;            ///< format of the indices; other sums than 8 and 16: every index is 0, silently
  _NN_FMT out_fmt;           ///< format of the output
  _NN_FMT values_fmt;        ///< format of the value pair; other sums than 8 and 16: both are 0, silently
  _NN_SCALE in_scale;        ///< scale of the indices; {0}: every index is 0
  _NN_SCALE out_scale;       ///< no effect
  _NN_SCALE values_scale;    ///< no effect
  uint32_t reserved_1;       ///< not read
  int32_t axis;              ///< place of the new axis in the output, 0 the outermost to 3 the dense one
  int32_t depth;             ///< length of the new axis, at most 65535
} _NN_ONEHOT_PARM;

/// Expands class indices along a new axis: `out[.., d, ..] = d == index ? on : off` for d from 0 to `depth` - 1.
///
/// - Value pair: re-formatted once from `values_fmt` to `out_fmt` as tarvu_convert_fmt_c() does; both 0 where that
///   function writes nothing.
/// - Index: one element through tarvu_fixtofloat_neon() with `in_fmt` and `in_scale`, so its fraction bits and scale
///   count. A negative one gets `depth` added, as floats; the sum is truncated towards zero. 1.9 selects position 1,
///   -0.5 the last one. An index of `depth` and above, or still -1 or less, leaves its row off. A format that function
///   does not convert (width 32, `sign_bits` other than 0 and 1) counts as index 0 everywhere.
/// - Output: the index tensor's batch, channel and height take the output's other three axes in this order; axis 3 is
///   dense. Offsets of an element are products modulo 2^32.
///
/// A `depth` of 0 and below, or an extent of 0, writes nothing. A `depth` above 65535 never ends. Reads no scratch
/// memory.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, checked in this order:
///         - output width other than 8 and 16, after the plain line "not supported output type = %d\n" with the type
///           code;
///         - `axis` outside 0 to 3, after the plain line "not supported axis = %d\n"
TARVU_API _QX_RESULT tarvu_onehot_process(const _NN_ONEHOT_PARM *parm);

/// \}

// ---------------------------------------------------------------------------------------------------------------------
// Grid sample
// ---------------------------------------------------------------------------------------------------------------------

/// \defgroup gridsample Grid sample
/// \{

/// Parameter block of tarvu_gridsample_process(). Shapes stand fastest dimension first; all tensors are dense.
///
/// - Interleaved layout: input C, N, W, H; output Wo, Ho, C, N; grid any, Wo, N, Ho.
/// - Planar layout: input W, H, C, N; output Wo, Ho, C, N; grid 2, Wo, Ho, N.
///
/// Shapes that fit both are interleaved. (C channels, N batch, W and H input size, Wo and Ho output size.)
typedef struct _NN_GRIDSAMPLE_PARM {
  uint64_t in_addr;        ///< input tensor, 8-bit
  uint64_t out_addr;       ///< output tensor, 8-bit; must not overlap the input or the grid
  uint64_t reserved_0;     ///< not read
  uint64_t grid_addr;      ///< grid tensor: pairs of unsigned bytes, x then y, whatever `grid_fmt` says
  uint16_t in_shape[4];    ///< input extents
  uint16_t out_shape[4];   ///< output extents; out_shape[0], the width, must not be 0
  uint16_t grid_shape[4];  ///< grid extents
  uint32_t reserved_1[9];  ///< not read
  _NN_FMT in_fmt;          ///< format of the input
  _NN_FMT out_fmt;         ///< format of the output; its signedness has no effect
  _NN_FMT grid_fmt;        ///< format of the grid; only its `frac_bits` are read, and nothing of it is checked
  uint32_t reserved_2[9];  ///< not read
  uint32_t row_group;      ///< interleaved layout: rows of output and grid to a row step; 1 for a plain tensor
  uint32_t row_offset;     ///< interleaved layout: the row of each group that this call computes; 0 for a plain tensor
} _NN_GRIDSAMPLE_PARM;

/// Resamples an image at the positions of a grid, in integers: each output element blends the four input elements
/// around its position. A grid value of 0 is the first pixel, 1.0 (2^gf) the last one.
///
/// With gf, inf and outf the `frac_bits` of grid, input and output, s = inf + gf - outf, and I(y, x) the input:
///
///     px = gx * (W - 1)    x0 = px >> gf    fx = px & (2^gf - 1)    x1 = x0 + 1    and likewise in y; unsigned 16-bit
///     R0 = I(y0, x0) + (((I(y0, x1) - I(y0, x0)) * fx) >> gf)
///     R1 = I(y1, x0) + (((I(y1, x1) - I(y1, x0)) * fx) >> gf)
///     out = low byte of R1 + (((R0 - R1) * fy) >> s)
///
/// The shifts of signed values are arithmetic, nothing is rounded or saturated. The vertical blend starts from the
/// lower row: fy = 0 gives row y0 + 1. Only the term with fy is scaled from input to output. x1 and y1 are not held
/// inside the image.
///
/// - Block form, for columns in blocks of min(Wo, 8): 16-bit arithmetic, wrapping; only the low 8 bits of W - 1 and
///   H - 1 count; an s below 0 shifts left by -s.
/// - Tail form, for the columns behind the last whole block, planar layout only: 32-bit products, R0 and R1 cut to
///   signed 16 bits; all 16 bits of W - 1 and H - 1 count, the product cut to 16 bits; an s below 0 shifts left by
///   `32 + s`, so that s from -24 to -1 leaves R1 alone. With 8 grid fraction bits and equal input and output formats,
///   an upper row -128, 127, a lower row of zeros and the grid pair (255, 128) give -65 in a block and 63 in the tail.
///
/// Blocks take eight channels at a time, from eight consecutive input bytes at each corner, and store min(C, 8) lanes
/// as channels c, c + 1, .. In the interleaved layout these are those channels. In the planar layout they are the
/// columns x0, x0 + 1, .. of channel c, so there only every eighth channel holds its true samples in a block; the tail
/// is exact.
///
/// - Written past the output: for C above 8 and no multiple of 8 the lanes of the last group go to the planes behind
///   channel C - 1, which the next batch item overwrites: up to 7 planes (of Ho * row_group rows if interleaved) behind
///   the tensor.
/// - Not written: in the interleaved layout with Wo above 8 the last Wo mod 8 columns; the rows of a group but
///   `row_offset`.
/// - Read past the run: 16 bytes of grid for each block, 8 bytes of input at each corner, the row and column behind the
///   last ones, and wherever grid values above 1.0 point.
///
/// N or Ho of 0 writes nothing; C of 0 stores nothing. An output width of 0 never ends. Reads no scratch memory.
/// \return QX_OK; QX_ERR_UNSUPPORTED with nothing written, checked in this order:
///         - input width other than 8, after
///           "\033[1;31mERR:tarvu_gridsample_process() unsupported input type %d\r\n\033[0m" with the type code;
///         - output width other than 8, after
///           "\033[1;31mERR:tarvu_gridsample_out_type() unsupported output type %d\r\n\033[0m" with the type code;
///         - shapes of neither layout, after "\033[1;31mERR:tarvu_gridsample_bilinear_fix() unsupported order: input
///           %dx%dx%dx%d, output %dx%dx%dx%d, grid %dx%dx%dx%d\r\n\033[0m" (one line), each shape with its slowest
///           dimension first
TARVU_API _QX_RESULT tarvu_gridsample_process(const _NN_GRIDSAMPLE_PARM *parm);

/// \}

#ifdef __cplusplus
}
#endif

#endif  // TARVU_H
