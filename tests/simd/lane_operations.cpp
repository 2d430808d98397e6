// The table of operations. This file is compiled a second time with plain bodies, in a namespace of its own.
#include "tests/simd/lane_operations.h"

#include "simd/default_nan.h"
#include "simd/doubles.h"
#include "simd/fast_exp.h"
#include "simd/rsqrt_estimate.h"
#include "simd/runs.h"

namespace lane_test {
namespace {

using namespace tarvu;

/// Vectors of type V at both operands through f, for as many bytes as the operands have.
template <class V, class F>
void map(const Input &in, uint8_t *out, F f) {
  using Out = decltype(f(V{}, V{}));
  for (size_t at = 0; at < kOperandBytes; at += sizeof(V), out += sizeof(Out)) {
    store(out, f(load<V>(in.a + at), load<V>(in.b + at)));
  }
}

/// Restores the order of lanes of a Wide, so that vectors of all lengths give the same bytes.
template <class W>
void store_wide(uint8_t *out, const Wide<W> &wide) {
  constexpr size_t kParts = sizeof(W) / 16;
  for (size_t part = 0; part < kParts; ++part) {
    std::memcpy(out + 32 * part, reinterpret_cast<const uint8_t *>(&wide.low) + 16 * part, 16);
    std::memcpy(out + 32 * part + 16, reinterpret_cast<const uint8_t *>(&wide.high) + 16 * part, 16);
  }
}
template <class V, class F>
void map_to_wide(const Input &in, uint8_t *out, F f) {
  for (size_t at = 0; at < kOperandBytes; at += sizeof(V)) {
    store_wide(out + 2 * at, f(load<V>(in.a + at), load<V>(in.b + at), load<V>(in.c + at)));
  }
}

template <class T>
constexpr Operand kOperand = std::is_same_v<T, float> ? Operand::kFloats
                             : sizeof(T) == 1         ? Operand::kBytes
                             : sizeof(T) == 2         ? Operand::kHalves
                             : sizeof(T) == 4         ? Operand::kWords
                                                      : Operand::kLongs;

// An entry of the table: `expression` of a, b, c of type V, of `number`.
#define LANE_BY_LANE(V, result, expression)                                               \
  {                                                                                       \
#V ": " #expression, kOperand<LaneType<V>>, result, [](const Input &in, uint8_t *out) { \
     [[maybe_unused]] const int number = in.number;                                   \
     map<V>(in, out, [=]([[maybe_unused]] V a, [[maybe_unused]] V b) { return expression; }); \
   } \
  }
#define WIDE(V, expression)                                                                      \
  {                                                                                              \
#V ": " #expression, kOperand<LaneType<V>>, Result::kBits, [](const Input &in, uint8_t *out) { \
     map_to_wide<V>(in, out, [=]([[maybe_unused]] V a, [[maybe_unused]] V b, [[maybe_unused]] V c) { return expression; }); \
   } \
  }

using s8xn = WidestOf<int8_t>;
using u8xn = WidestOf<uint8_t>;
using s16xn = WidestOf<int16_t>;
using u16xn = WidestOf<uint16_t>;

/// A limit must be a number.
template <class V>
V number_of(V a) {
  return a == a ? a : fill<V>(1.0f);
}

template <class V>
Wide<V> pair_of(V low, V high) {
  return {low, high};
}

template <class V, int count>
void deal(const Input &in, uint8_t *out) {
  uint8_t bytes[count * 16];
  std::memcpy(bytes, in.a, std::min(sizeof bytes, kOperandBytes));
  const Several<V, count> dealt = load_dealt<V, count>(bytes);
  for (int j = 0; j < count; ++j) store(out + 16 * j, dealt.of[j]);
}
template <class V, int count>
void take_in_turn(const Input &in, uint8_t *out) {
  Several<V, count> dealt;
  for (int j = 0; j < count; ++j) dealt.of[j] = load<V>(in.a + 16 * j);
  store_in_turn(out, dealt);
}
#define DEAL(V)                                                                             \
  {#V ": load_dealt 2", kOperand<LaneType<V>>, Result::kBits, deal<V, 2>},                  \
      {#V ": load_dealt 3", kOperand<LaneType<V>>, Result::kBits, deal<V, 3>},              \
      {#V ": load_dealt 4", kOperand<LaneType<V>>, Result::kBits, deal<V, 4>},              \
      {#V ": store_in_turn 2", kOperand<LaneType<V>>, Result::kBits, take_in_turn<V, 2>},   \
      {#V ": store_in_turn 3", kOperand<LaneType<V>>, Result::kBits, take_in_turn<V, 3>}, { \
#V ": store_in_turn 4", kOperand < LaneType < V>>, Result::kBits, take_in_turn < V, 4>  \
  }

void transpose_widest(const Input &in, uint8_t *out) {
  Several<f32x4, 4> rows;
  for (int r = 0; r < 4; ++r) rows.of[r] = load<f32x4>(in.a + 16 * r);
  const Several<f32x4, 4> columns = transpose(rows);
  for (int r = 0; r < 4; ++r) store(out + 16 * r, columns.of[r]);
}

/// A block of sixteen elements of T from `a` as floats, and floats from `a` as elements.
template <class T>
void load_block(const Input &in, uint8_t *out) {
  store_floats(load_as_floats(reinterpret_cast<const T *>(in.a), 0.37f), reinterpret_cast<float *>(out));
}
template <class T>
void load_word_block(const Input &in, uint8_t *out) {
  const auto words = load_words(reinterpret_cast<const T *>(in.a));
  for (int k = 0; k < kBlockVectors; ++k) store(out + sizeof(f32xn) * static_cast<size_t>(k), words.of[k]);
}
FloatBlock floats_of(const Input &in) { return load_floats(reinterpret_cast<const float *>(in.a)); }
template <class T>
void truncate_block(const Input &in, uint8_t *out) {
  store_truncated(floats_of(in), reinterpret_cast<T *>(out));
}
template <class T>
void convert_block(const Input &in, uint8_t *out) {
  store_converted(floats_of(in), 3.0f, reinterpret_cast<T *>(out));
}
template <class T>
void round_block(const Input &in, uint8_t *out) {
  store_rounded(floats_of(in), 0.5f, reinterpret_cast<T *>(out));
}
template <class T, class W>
void saturate_block(const Input &in, uint8_t *out) {
  Several<W, kBlockVectors> words;
  for (int k = 0; k < kBlockVectors; ++k) words.of[k] = load<W>(in.a + sizeof(W) * static_cast<size_t>(k));
  store_saturated(words, reinterpret_cast<T *>(out));
}

#define BLOCKS(T)                                                            \
  {"load_as_floats " #T, kOperand<T>, Result::kFloats, load_block<T>}, {     \
    "store_converted " #T, Operand::kFloats, Result::kBits, convert_block<T> \
  }
#define NARROW_BLOCKS(T)                                                             \
  BLOCKS(T), {"load_words " #T, kOperand<T>, Result::kBits, load_word_block<T>},     \
      {"store_truncated " #T, Operand::kFloats, Result::kBits, truncate_block<T>}, { \
    "store_rounded " #T, Operand::kFloats, Result::kBits, round_block<T>             \
  }

constexpr Result kBits = Result::kBits;
constexpr Result kFloats = Result::kFloats;

const Operation kOperations[] = {
    // lanes.h
    LANE_BY_LANE(f32xn, kFloats, select(a < b, a, b)),
    LANE_BY_LANE(f32xn, Result::kFloatsButForZeros, maximum(a, b)),
    LANE_BY_LANE(f32xn, Result::kFloatsButForZeros, minimum(a, b)),
    LANE_BY_LANE(f32xn, Result::kFloatsButForZeros, at_least(a, number_of(b))),
    LANE_BY_LANE(f32xn, Result::kFloatsButForZeros, at_most(a, number_of(b))),
    LANE_BY_LANE(float, Result::kFloatsButForZeros, maximum(a, b)),
    LANE_BY_LANE(float, Result::kFloatsButForZeros, minimum(a, b)),
    LANE_BY_LANE(float, Result::kFloatsButForZeros, at_least(a, number_of(b))),
    LANE_BY_LANE(float, Result::kFloatsButForZeros, at_most(a, number_of(b))),
    LANE_BY_LANE(f32xn, kFloats, clamp_to_unit(a)),
    LANE_BY_LANE(float, kFloats, clamp_to_unit(a)),
    LANE_BY_LANE(float, kBits, positive_number(a)),
    LANE_BY_LANE(float, kBits, number_in_unit(a)),
    LANE_BY_LANE(s16xn, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(u16xn, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(s32xn, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(u32xn, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(s16x8, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(s64x2, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(u64x2, kBits, shift_lanes(a, number)),
    LANE_BY_LANE(s32x4, kBits, any(a > b)),
    LANE_BY_LANE(s32x4, kBits, all(a <= b)),
    LANE_BY_LANE(s16x8, kBits, is_zero(s16x8(a > b))),
    LANE_BY_LANE(s16x8, kBits, largest_lane(a)),
    LANE_BY_LANE(s16x8, kBits, least_lane(a)),
    LANE_BY_LANE(f32x4, Result::kFloatsButForZeros, largest_lane(a)),
    LANE_BY_LANE(f32x4, kFloats, sum_in_order(a)),
    {"largest_of_fours", Operand::kFloats, Result::kFloatsButForZeros,
     [](const Input &in, uint8_t *out) {
       f32xn largest = load<f32xn>(in.a);
       for (size_t at = sizeof(f32xn); at < kOperandBytes; at += sizeof(f32xn)) {
         largest = maximum(largest, load<f32xn>(in.a + at));
       }
       store(out, largest_of_fours(largest));
     }},
    {"places_at_least", Operand::kFloats, kBits,
     [](const Input &in, uint8_t *out) {
       Sixteen found = places_at_least(reinterpret_cast<const float *>(in.a), load<float>(in.b));
       for (; !found.empty(); found = without_first(found)) *out++ = static_cast<uint8_t>(1 + first_of(found));
     }},

    // arrange.h
    LANE_BY_LANE(u8x16, kBits, zip_low(a, b)), LANE_BY_LANE(u8x16, kBits, zip_high(a, b)),
    LANE_BY_LANE(u16x8, kBits, zip_low(a, b)), LANE_BY_LANE(u16x8, kBits, zip_high(a, b)),
    LANE_BY_LANE(f32xn, kFloats, zip_low(a, b)), LANE_BY_LANE(f32xn, kFloats, zip_high(a, b)),
    LANE_BY_LANE(u8x16, kBits, unzip_even(a, b)), LANE_BY_LANE(u8x16, kBits, unzip_odd(a, b)),
    LANE_BY_LANE(u32x4, kBits, unzip_even(a, b)), LANE_BY_LANE(u32x4, kBits, unzip_odd(a, b)),
    LANE_BY_LANE(u8x16, kBits, reverse(a)), LANE_BY_LANE(s16x8, kBits, reverse(a)),
    LANE_BY_LANE(u32x4, kBits, reverse(a)), LANE_BY_LANE(f32x4, kBits, lower_twice(a)),
    LANE_BY_LANE(f32x4, kBits, upper_twice(a)),
    DEAL(u8x16), DEAL(s16x8), DEAL(u32x4), DEAL(f32x4),
    {"transpose", Operand::kFloats, kBits, transpose_widest},

    // widen.h
    WIDE(s8xn, widen(a)), WIDE(u8xn, widen(a)), WIDE(s16xn, widen(a)), WIDE(u16xn, widen(a)),
    WIDE(s8x16, widen(a)), WIDE(u16x8, widen(a)), WIDE(s32x4, widen(a)), WIDE(u32x4, widen(a)),
    WIDE(s8xn, add_long(a, b)), WIDE(u8xn, add_long(a, b)), WIDE(s16xn, add_long(a, b)), WIDE(u16xn, add_long(a, b)),
    WIDE(s8xn, add_long(multiply_long(a, b), c)), WIDE(u8xn, add_long(multiply_long(a, b), c)),
    WIDE(s16xn, add_long(multiply_long(a, b), c)), WIDE(u16xn, add_long(multiply_long(a, b), c)),
    WIDE(s8xn, multiply_long(a, b)), WIDE(u8xn, multiply_long(a, b)), WIDE(s16xn, multiply_long(a, b)),
    WIDE(u16xn, multiply_long(a, b)), WIDE(s8x16, multiply_long(a, b)), WIDE(u16x8, multiply_long(a, b)),
    WIDE(s32x4, multiply_long(a, b)),
    WIDE(s8xn, multiply_add_long(multiply_long(a, b), b, c)), WIDE(u8xn, multiply_add_long(multiply_long(a, b), b, c)),
    WIDE(s16xn, multiply_add_long(multiply_long(a, b), b, c)), WIDE(u16xn, multiply_add_long(multiply_long(a, b), b, c)),
    WIDE(s32x4, multiply_add_long(multiply_long(a, b), b, c)),
    LANE_BY_LANE(s8x16, kBits, add_pairs(s16x8(b), a)), LANE_BY_LANE(u8x16, kBits, add_pairs(u16x8(b), a)),
    LANE_BY_LANE(s16x8, kBits, add_pairs(s32x4(b), a)), LANE_BY_LANE(u16x8, kBits, add_pairs(u32x4(b), a)),
    LANE_BY_LANE(s16x8, kBits, narrow<int8_t>(pair_of(a, b))), LANE_BY_LANE(s16x8, kBits, narrow<uint8_t>(pair_of(a, b))),
    LANE_BY_LANE(u16x8, kBits, narrow<int8_t>(pair_of(a, b))), LANE_BY_LANE(u16x8, kBits, narrow<uint8_t>(pair_of(a, b))),
    LANE_BY_LANE(s32x4, kBits, narrow<int16_t>(pair_of(a, b))), LANE_BY_LANE(s32x4, kBits, narrow<uint16_t>(pair_of(a, b))),
    LANE_BY_LANE(u32x4, kBits, narrow<int16_t>(pair_of(a, b))), LANE_BY_LANE(u32x4, kBits, narrow<uint16_t>(pair_of(a, b))),
    LANE_BY_LANE(s64x2, kBits, narrow<int32_t>(pair_of(a, b))),
    LANE_BY_LANE(s8xn, kBits, narrow<int8_t>(multiply_long(a, b))), LANE_BY_LANE(s8xn, kBits, narrow<uint8_t>(multiply_long(a, b))),
    LANE_BY_LANE(u8xn, kBits, narrow<int8_t>(multiply_long(a, b))), LANE_BY_LANE(u8xn, kBits, narrow<uint8_t>(multiply_long(a, b))),
    LANE_BY_LANE(s16xn, kBits, narrow<int16_t>(multiply_long(a, b))), LANE_BY_LANE(u16xn, kBits, narrow<uint16_t>(multiply_long(a, b))),
    LANE_BY_LANE(s8xn, kBits, shift_saturated(a, number % 32)), LANE_BY_LANE(u8xn, kBits, shift_saturated(a, number % 32)),
    LANE_BY_LANE(s16xn, kBits, shift_saturated(a, number % 32)), LANE_BY_LANE(u16xn, kBits, shift_saturated(a, number % 32)),

    // convert.h
    LANE_BY_LANE(f32xn, kFloats, round_down(a)), LANE_BY_LANE(f32xn, kFloats, round_up(a)),
    LANE_BY_LANE(f32xn, kFloats, round_to_zero(a)), LANE_BY_LANE(f32xn, kFloats, round_by_environment(a)),
    LANE_BY_LANE(f32xn, kFloats, round_half_away(a)), LANE_BY_LANE(f32xn, kFloats, round_half_even(a)),
    LANE_BY_LANE(f32xn, kFloats, absolute(a)), LANE_BY_LANE(f32xn, kBits, to_s32(a)), LANE_BY_LANE(f32xn, kBits, to_u32(a)),
    LANE_BY_LANE(f32xn, kBits, round_down_to_s32(a)), LANE_BY_LANE(f32xn, kBits, round_down_to_u32(a)),
    LANE_BY_LANE(f32x4, kBits, to_s32(a)), LANE_BY_LANE(f32x4, kBits, to_u32(a)),
    LANE_BY_LANE(s32xn, kBits, to_f32(a)), LANE_BY_LANE(u32xn, kBits, to_f32(a)),
    LANE_BY_LANE(float, kFloats, round_down(a)), LANE_BY_LANE(float, kFloats, round_up(a)),
    LANE_BY_LANE(float, kFloats, round_to_zero(a)), LANE_BY_LANE(float, kFloats, round_by_environment(a)),
    LANE_BY_LANE(float, kFloats, round_half_away(a)), LANE_BY_LANE(float, kFloats, round_half_even(a)),
    LANE_BY_LANE(float, kBits, to_s32(a)), LANE_BY_LANE(float, kBits, to_u32(a)),
    LANE_BY_LANE(float, kBits, to_integer<int8_t>(a)), LANE_BY_LANE(float, kBits, to_integer<uint16_t>(a)),

    // doubles.h
    LANE_BY_LANE(f32x4, Result::kDoubles, widen_low(a)), LANE_BY_LANE(f32x4, Result::kDoubles, widen_high(a)),
    {"widen floats", Operand::kFloats, Result::kDoubles,
     [](const Input &in, uint8_t *out) {
       for (size_t at = 0; at < kOperandBytes; at += sizeof(f32xn)) {
         const Wide<f64xn> wide = widen(load<f32xn>(in.a + at));
         store(out + 2 * at, wide.low);
         store(out + 2 * at + sizeof(f64xn), wide.high);
       }
     }},
    LANE_BY_LANE(f32xn, kFloats, narrow({widen_low(a) * 1.0000001, widen_high(a) * 1.0000001})),
    LANE_BY_LANE(f32x4, kFloats, narrow(widen_low(a) * 1.0000001, widen_high(a) * 1.0000001)),
    {"fused_multiply_add", Operand::kFloats, Result::kDoubles,
     [](const Input &in, uint8_t *out) {
       for (size_t at = 0; at < kOperandBytes; at += sizeof(f32xn)) {
         const f64xn a = widen_low(load<f32xn>(in.a + at)) * 1.1;
         const f64xn b = widen_high(load<f32xn>(in.a + at)) * 1.1;
         const f64xn c = widen_low(load<f32xn>(in.b + at));
         const f64xn d = widen_high(load<f32xn>(in.b + at));
         store(out + 2 * at, fused_multiply_add(a, a, c));
         store(out + 2 * at + sizeof(f64xn), fused_multiply_add(b, b, d));
       }
     }},

    // blocks.h
    NARROW_BLOCKS(int8_t), NARROW_BLOCKS(uint8_t), NARROW_BLOCKS(int16_t), NARROW_BLOCKS(uint16_t),
    {"store_truncated int32_t", Operand::kFloats, kBits, truncate_block<int32_t>},
    {"store_truncated uint32_t", Operand::kFloats, kBits, truncate_block<uint32_t>},
    {"store_saturated s32 int8_t", Operand::kWords, kBits, saturate_block<int8_t, s32xn>},
    {"store_saturated s32 uint8_t", Operand::kWords, kBits, saturate_block<uint8_t, s32xn>},
    {"store_saturated s32 int16_t", Operand::kWords, kBits, saturate_block<int16_t, s32xn>},
    {"store_saturated s32 uint16_t", Operand::kWords, kBits, saturate_block<uint16_t, s32xn>},
    {"store_saturated s32 int32_t", Operand::kWords, kBits, saturate_block<int32_t, s32xn>},
    {"store_saturated u32 uint8_t", Operand::kWords, kBits, saturate_block<uint8_t, u32xn>},
    {"store_saturated u32 uint16_t", Operand::kWords, kBits, saturate_block<uint16_t, u32xn>},
    {"store_saturated u32 uint32_t", Operand::kWords, kBits, saturate_block<uint32_t, u32xn>},
    {"add_fours", Operand::kFloats, kFloats,
     [](const Input &in, uint8_t *out) {
       const RowBlock row = load_row(reinterpret_cast<const float *>(in.a));
       store(out, add_fours(load<f32x4>(in.b), row));
       store_row(row, reinterpret_cast<float *>(out + 16));
     }},

    // What several operators share.
    LANE_BY_LANE(f32xn, kFloats, fast_exp_step(a)), LANE_BY_LANE(float, kFloats, fast_exp_step(a)),
    LANE_BY_LANE(f32xn, kFloats, reciprocal_root_estimate(a)),
    LANE_BY_LANE(f32xn, kBits, add_default_nan(a, b)), LANE_BY_LANE(float, kBits, add_default_nan(a, b)),
    LANE_BY_LANE(f32xn, kBits, subtract_default_nan(a, b)), LANE_BY_LANE(f32xn, kBits, multiply_default_nan(a, b)),
};

}  // namespace

#if defined(TARVU_PLAIN_LANES)
std::span<const Operation> plain_operations() { return kOperations; }
#else
std::span<const Operation> operations_of_the_target() { return kOperations; }
#endif

}  // namespace lane_test
