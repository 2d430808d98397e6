// Conversions between integers and floats with rounding codes, zero points and formats: runs and tensors of up to six dimensions.
#include "contract/formats.h"
#include "contract/overlap.h"

namespace contract {
namespace {

#include "contract/any_ids.inc"
#include "contract/conversion_ids.inc"
#include "contract/run_ids.inc"

constexpr uint32_t kDimensions = 6;
constexpr uint32_t kHalfToZero = 6;
constexpr uint32_t kHalfAwayBySign = 7;
constexpr uint32_t kHalfOdd = 9;
constexpr uint32_t kEnvironment = 11;

struct Dimensions {
  uint32_t at[kDimensions];
};

/// The argument of that name, or -1.
int argument_named(const Call &call, const char *name) {
  for (uint32_t i = 0; i < call.info.argument_count; ++i) {
    if (std::strcmp(call.info.arguments[i].name, name) == 0) return static_cast<int>(i);
  }
  return -1;
}

/// What the arguments of all these functions come to.
struct Conversion {
  int32_t from;  ///< element types; those of a format that no kernel serves are TARVU_CONTRACT_NONE
  int32_t to;
  const char *frac_field;  ///< where the fraction bits come from
  int32_t frac_bits;
  uint32_t count;  ///< of a run
  bool is_rounded;
  uint32_t code;
  bool has_zero_point;
  int32_t zero_point;
  bool is_tensor;
  Dimensions shape;
  Dimensions stride;
};

uint32_t bytes_of_type(int32_t type) {
  switch (type) {
    case TARVU_CONTRACT_NONE:
      return 0;
    case TARVU_CONTRACT_S8:
    case TARVU_CONTRACT_U8:
      return 1;
    case TARVU_CONTRACT_S16:
    case TARVU_CONTRACT_U16:
      return 2;
    default:
      return 4;
  }
}

/// The integer type that conversions by format choose.
int32_t type_of_format(const _NN_FMT &fmt) {
  const NN_AI_IO_TYPE code = type_code_of(fmt);
  return is_small(code) && (fmt.sign_bits == 0 || fmt.sign_bits == 1) ? range_type_of(code)
                                                                      : int32_t{TARVU_CONTRACT_NONE};
}

uint32_t word_named(const Call &call, const char *name) {
  const int at = argument_named(call, name);
  return at < 0 ? 0 : static_cast<uint32_t>(call.argument[at]);
}

Conversion conversion_of(const Call &call) {
  Conversion conversion = {};
  conversion.from = call.info.arguments[0].target;
  conversion.to = call.info.arguments[1].target;
  conversion.frac_field = "frac_bits";
  conversion.frac_bits = static_cast<int16_t>(word_named(call, "frac_bits"));
  const int format = argument_named(call, "fmt");
  if (format >= 0) {
    const auto fmt = record_at<_NN_FMT>(call, format);
    const int32_t type = type_of_format(fmt);
    conversion.frac_field = "fmt";
    conversion.frac_bits = fmt.frac_bits;
    (conversion.from == TARVU_CONTRACT_F32 ? conversion.to : conversion.from) = type;
  }
  conversion.count = word_named(call, "count");
  conversion.is_rounded = argument_named(call, "rounding_code") >= 0;
  conversion.code = word_named(call, "rounding_code");
  conversion.has_zero_point = argument_named(call, "zero_point") >= 0;
  conversion.zero_point = static_cast<int32_t>(word_named(call, "zero_point"));
  const int shape = argument_named(call, "shape");
  conversion.is_tensor = shape >= 0;
  if (conversion.is_tensor) {
    conversion.shape = record_at<Dimensions>(call, shape);
    conversion.stride = record_at<Dimensions>(call, argument_named(call, "stride"));
  }
  return conversion;
}

bool is_served(const Conversion &conversion) {
  return conversion.from != TARVU_CONTRACT_NONE && conversion.to != TARVU_CONTRACT_NONE;
}

int32_t integer_side(const Conversion &conversion) {
  return conversion.from == TARVU_CONTRACT_F32 ? conversion.to : conversion.from;
}

/// Elements of a whole block.
uint32_t block_of_elements(const Conversion &conversion) {
  return bytes_of_type(integer_side(conversion)) == 1 ? 8 : 16;
}

/// Only the low 16 bits count.
uint32_t extent_of(const Conversion &conversion, uint32_t dimension) {
  return static_cast<uint16_t>(conversion.shape.at[dimension]);
}

bool is_short_line(const Conversion &conversion) {
  const uint32_t line = extent_of(conversion, 0);
  return line != 0 && line < block_of_elements(conversion);
}

/// Lines of `line` elements at all positions.
Range lines_of(const Conversion &conversion, const char *field, uint64_t address, int32_t role, int32_t type,
               uint32_t line) {
  const uint32_t bytes = bytes_of_type(type);
  Range range = range_of(field, address, role, type, bytes);
  extend(range, line, bytes, TARVU_CONTRACT_AXIS_WIDTH);
  for (uint32_t k = 1; k < kDimensions; ++k) {
    extend(range, extent_of(conversion, k), int64_t{conversion.stride.at[k]} * bytes);
  }
  return range;
}

void add_run(RangeSink &sink, const char *field, uint64_t address, int32_t role, int32_t type, uint64_t first,
             uint64_t count, bool is_exact = true) {
  const uint32_t bytes = bytes_of_type(type);
  Range range = range_of(field, address, role, type, bytes);
  range.offset = static_cast<int64_t>(first * bytes);
  range.exact = is_exact ? 1 : 0;
  extend(range, count, bytes, TARVU_CONTRACT_AXIS_WIDTH);
  add(sink, range);
}

void add_record(RangeSink &sink, const Call &call, const char *field, int32_t type, uint32_t bytes) {
  const int at = argument_named(call, field);
  if (at < 0 || call.info.arguments[at].target != type) return;
  Range range = range_of(field, call.argument[at], TARVU_CONTRACT_PARAMETER, type, bytes);
  extend(range, 1, bytes);
  add(sink, range);
}

/// `source` and `destination` of runs.
void add_runs(const Call &call, const Conversion &conversion, RangeSink &sink) {
  const uint64_t source = call.argument[0];
  const uint64_t destination = call.argument[1];
  uint32_t kept = 0;  // elements in front that are not converted
  if (conversion.is_rounded && conversion.code > kEnvironment) {
    kept = conversion.count - conversion.count % block_of_elements(conversion);
    add_run(sink, "source", source, TARVU_CONTRACT_READS, conversion.from, 0, kept, false);
  }
  const uint32_t converted = conversion.count - kept;
  add_run(sink, "source", source, TARVU_CONTRACT_READS, conversion.from, kept, converted);
  add_run(sink, "destination", destination, TARVU_CONTRACT_WRITES, conversion.to, kept, converted);
}

void conversion_ranges(const Call &call, RangeSink &sink) {
  const Conversion conversion = conversion_of(call);
  if (is_served(conversion) && !conversion.is_tensor) add_runs(call, conversion, sink);
  if (is_served(conversion) && conversion.is_tensor) {
    const uint32_t line = is_short_line(conversion) ? block_of_elements(conversion) : extent_of(conversion, 0);
    add(sink, lines_of(conversion, "source", call.argument[0], TARVU_CONTRACT_READS, conversion.from, line));
    add(sink, lines_of(conversion, "destination", call.argument[1], TARVU_CONTRACT_WRITES, conversion.to, line));
  }
  add_record(sink, call, "fmt", TARVU_CONTRACT_FMT, sizeof(_NN_FMT));
  add_record(sink, call, "scale", TARVU_CONTRACT_SCALE, offsetof(_NN_SCALE, scale_shift) + 1);
  if (!is_served(conversion) || !conversion.is_tensor) return;
  add_record(sink, call, "shape", TARVU_CONTRACT_U32, sizeof(Dimensions));
  add_record(sink, call, "stride", TARVU_CONTRACT_U32, sizeof(Dimensions));
}

void check_scale(const Call &call, FindingSink &sink) {
  const int at = argument_named(call, "scale");
  if (call.info.arguments[at].target != TARVU_CONTRACT_SCALE) return;
  if (call.argument[at] == 0) return add(sink, kNullRecord, "scale", 0);
  const auto scale = record_at<_NN_SCALE>(call, at);
  const int32_t distance = scale.scale_shift < 0 ? -scale.scale_shift : scale.scale_shift;
  if (distance >= 31) {
    add(sink, kScaleWraps, "scale", scale.scale_shift, {static_cast<int32_t>(uint32_t{1} << (distance % 32)), 0, 0});
  }
  if (scale.scale_value == 0) add(sink, kScaleOfZero, "scale", 0);
}

void check_power(const Conversion &conversion, FindingSink &sink) {
  const int32_t distance = conversion.frac_bits < 0 ? -conversion.frac_bits : conversion.frac_bits;
  const int32_t limit = conversion.is_rounded ? 31 : 63;
  if (distance < limit) return;
  add(sink, conversion.is_rounded ? kWordPowerWraps : kPowerWraps, conversion.frac_field, conversion.frac_bits);
}

void check_rounding(const Conversion &conversion, FindingSink &sink) {
  const auto blocks = static_cast<int32_t>(conversion.count / block_of_elements(conversion));
  const auto rest = static_cast<int32_t>(conversion.count % block_of_elements(conversion));
  const uint32_t code = conversion.code;
  if (code > kEnvironment && conversion.count != 0) {
    const Line line = {nullptr, "no rounding method!!!\r\n", blocks, {rest}};
    add(sink, kNoRounding, "rounding_code", code, line, 0);
  }
  if (code == kEnvironment && conversion.to == TARVU_CONTRACT_S8 && blocks != 0) {
    const Line line = {nullptr, "toint8 to rint\r\n", blocks};
    add(sink, kRoundingTold, "rounding_code", code, line, 0);
  }
  const bool drops = code == kHalfToZero || code == kHalfAwayBySign || code == kHalfOdd;
  const bool is_signed =
      conversion.to == TARVU_CONTRACT_S8 || conversion.to == TARVU_CONTRACT_S16 || conversion.to == TARVU_CONTRACT_S32;
  if (drops && is_signed && rest != 0) add(sink, kFractionLost, "rounding_code", code, {rest, blocks, 0});
}

/// Of unsigned results, whose blocks and tails differ.
void check_zero_point(const Conversion &conversion, bool has_blocks, FindingSink &sink) {
  const bool is_unsigned = conversion.to == TARVU_CONTRACT_U8 || conversion.to == TARVU_CONTRACT_U16;
  if (!is_unsigned || !has_blocks) return;
  const int64_t most = conversion.to == TARVU_CONTRACT_U8 ? 255 : 65535;
  if (conversion.zero_point > 0) add(sink, kNegativeInBlocks, "zero_point", conversion.zero_point);
  if (conversion.zero_point < 0) add(sink, kSumsAtTheTop, "zero_point", conversion.zero_point, {most, 0, 0});
}

/// Positions of lines; 0 where an extent is 0.
Wide positions_of(const Conversion &conversion) {
  Wide positions = 1;
  for (uint32_t k = 1; k < kDimensions; ++k) positions *= extent_of(conversion, k);
  return positions;
}

bool check_shape(const Conversion &conversion, FindingSink &sink) {
  bool is_empty = false;
  for (uint32_t k = 0; k < kDimensions; ++k) {
    const uint32_t extent = extent_of(conversion, k);
    if (extent != conversion.shape.at[k]) add(sink, kHighBits, "shape", conversion.shape.at[k], {k, extent, 0});
    if (extent == 0) add(sink, kEmptyDimension, "shape", 0, {k, 0, 0});
    is_empty |= extent == 0;
  }
  const Wide positions = positions_of(conversion);
  if (extent_of(conversion, 0) == 0 && positions > 1) {
    const Wide most = INT64_MAX;
    add(sink, kEmptyLines, "shape", static_cast<int64_t>(positions < most ? positions : most));
  }
  return !is_empty;
}

/// Where the strides lay lines, what they overrun left aside.
void check_strides(const Conversion &conversion, FindingSink &sink) {
  Range lines = lines_of(conversion, "destination", 0, TARVU_CONTRACT_WRITES, conversion.to, extent_of(conversion, 0));
  Wide bytes;
  if (const tarvu_contract_extent *extent = folded_extent(lines, bytes)) {
    const int64_t elements = static_cast<int64_t>(bytes / lines.element_bytes);
    add(sink, kLinesFold, "stride", extent->step / lines.element_bytes, {extent - lines.extents, elements, 0});
  }
}

void check_tensor(const Call &call, const Conversion &conversion, FindingSink &sink) {
  for (const char *table : {"shape", "stride"}) {
    if (call.argument[argument_named(call, table)] == 0) return add(sink, kNullRecord, table, 0);
  }
  if (!check_shape(conversion, sink)) return;
  const auto block = block_of_elements(conversion);
  const uint32_t line = extent_of(conversion, 0);
  if (is_short_line(conversion)) add(sink, kShortLine, "shape", line, {block, block - line, 0});
  check_strides(conversion, sink);
  check_zero_point(conversion, true, sink);
}

void conversion_findings(const Call &call, FindingSink &sink) {
  const Conversion conversion = conversion_of(call);
  const int format = argument_named(call, "fmt");
  check_scale(call, sink);
  if (!is_served(conversion)) {
    if (call.argument[format] == 0) return;
    const auto fmt = record_at<_NN_FMT>(call, format);
    return add(sink, kNoKernel, "fmt", width_of(fmt), {width_of(fmt), fmt.sign_bits, 0});
  }
  check_power(conversion, sink);
  if (conversion.is_tensor) return check_tensor(call, conversion, sink);
  check_extent(sink, "count", conversion.count);
  if (conversion.count > INT32_MAX) return add(sink, kCountTooLarge, "count", conversion.count);
  if (conversion.is_rounded) check_rounding(conversion, sink);
  if (conversion.has_zero_point) check_zero_point(conversion, conversion.count >= block_of_elements(conversion), sink);
}

void put_dimensions(Text &text, const char *name, const Dimensions &dimensions, uint32_t first) {
  put(text, name);
  for (uint32_t k = 0; k < kDimensions; ++k) {
    put(text, " ");
    if (k < first) {
      put(text, "-");
    } else {
      put_unsigned(text, dimensions.at[k]);
    }
  }
}

void conversion_words(const Call &call, Text &text) {
  const Conversion conversion = conversion_of(call);
  if (!is_served(conversion)) return put(text, "  = nothing is converted\n");
  if (!conversion.is_tensor) return;
  put_dimensions(text, "  = shape", conversion.shape, 0);
  put_dimensions(text, ", stride", conversion.stride, 1);
  put(text, "\n");
}

}  // namespace

const Description kConversion = {nullptr, conversion_ranges, conversion_findings, nullptr, conversion_words, nullptr};

}  // namespace contract
