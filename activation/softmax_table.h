/// \file softmax_table.h
/// Numerators of a softmax in 16-bit integers: exponentials of the differences to the maximum, from a table.
#ifndef TARVU_ACTIVATION_SOFTMAX_TABLE_H
#define TARVU_ACTIVATION_SOFTMAX_TABLE_H

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <limits>

#include "simd/lanes.h"
#include "tarvu.h"

namespace tarvu {

/// Entry i is round(16384 * exp((i - 671) / 64)): arguments of 6 fraction bits at or below zero, values of 14 fraction
/// bits.
inline constexpr int16_t g_vendor_ais_exptbl[] = {
    0,     0,     0,     0,     0,     0,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,
    1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,
    1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,
    1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,
    1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     1,     2,     2,     2,     2,
    2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,
    2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     2,     3,     3,     3,
    3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,     3,
    3,     3,     3,     4,     4,     4,     4,     4,     4,     4,     4,     4,     4,     4,     4,     4,
    4,     4,     4,     5,     5,     5,     5,     5,     5,     5,     5,     5,     5,     5,     5,     5,
    6,     6,     6,     6,     6,     6,     6,     6,     6,     6,     7,     7,     7,     7,     7,     7,
    7,     7,     7,     8,     8,     8,     8,     8,     8,     8,     8,     9,     9,     9,     9,     9,
    9,     9,     9,     10,    10,    10,    10,    10,    10,    11,    11,    11,    11,    11,    11,    12,
    12,    12,    12,    12,    13,    13,    13,    13,    13,    14,    14,    14,    14,    14,    15,    15,
    15,    15,    16,    16,    16,    16,    17,    17,    17,    17,    18,    18,    18,    19,    19,    19,
    19,    20,    20,    20,    21,    21,    21,    22,    22,    22,    23,    23,    24,    24,    24,    25,
    25,    25,    26,    26,    27,    27,    27,    28,    28,    29,    29,    30,    30,    31,    31,    32,
    32,    33,    33,    34,    34,    35,    35,    36,    36,    37,    38,    38,    39,    39,    40,    41,
    41,    42,    43,    43,    44,    45,    45,    46,    47,    47,    48,    49,    50,    51,    51,    52,
    53,    54,    55,    56,    56,    57,    58,    59,    60,    61,    62,    63,    64,    65,    66,    67,
    68,    69,    70,    71,    72,    74,    75,    76,    77,    78,    80,    81,    82,    83,    85,    86,
    87,    89,    90,    92,    93,    94,    96,    97,    99,    101,   102,   104,   105,   107,   109,   110,
    112,   114,   116,   118,   119,   121,   123,   125,   127,   129,   131,   133,   135,   137,   140,   142,
    144,   146,   149,   151,   153,   156,   158,   161,   163,   166,   168,   171,   174,   176,   179,   182,
    185,   188,   191,   194,   197,   200,   203,   206,   209,   213,   216,   220,   223,   227,   230,   234,
    237,   241,   245,   249,   253,   257,   261,   265,   269,   273,   278,   282,   286,   291,   295,   300,
    305,   310,   314,   319,   324,   330,   335,   340,   345,   351,   356,   362,   368,   373,   379,   385,
    391,   398,   404,   410,   417,   423,   430,   437,   443,   450,   458,   465,   472,   480,   487,   495,
    503,   510,   518,   527,   535,   543,   552,   561,   569,   578,   588,   597,   606,   616,   625,   635,
    645,   655,   666,   676,   687,   698,   709,   720,   731,   743,   754,   766,   778,   791,   803,   816,
    829,   842,   855,   868,   882,   896,   910,   924,   939,   954,   969,   984,   999,   1015,  1031,  1047,
    1064,  1081,  1098,  1115,  1133,  1150,  1168,  1187,  1206,  1225,  1244,  1263,  1283,  1304,  1324,  1345,
    1366,  1388,  1409,  1432,  1454,  1477,  1500,  1524,  1548,  1572,  1597,  1622,  1648,  1674,  1700,  1727,
    1754,  1782,  1810,  1838,  1867,  1897,  1926,  1957,  1988,  2019,  2051,  2083,  2116,  2149,  2183,  2217,
    2252,  2288,  2324,  2360,  2398,  2435,  2474,  2513,  2552,  2592,  2633,  2675,  2717,  2760,  2803,  2847,
    2892,  2937,  2984,  3031,  3078,  3127,  3176,  3226,  3277,  3329,  3381,  3434,  3488,  3543,  3599,  3656,
    3713,  3772,  3831,  3892,  3953,  4015,  4078,  4143,  4208,  4274,  4341,  4410,  4479,  4550,  4621,  4694,
    4768,  4843,  4919,  4997,  5076,  5155,  5237,  5319,  5403,  5488,  5574,  5662,  5751,  5842,  5934,  6027,
    6122,  6219,  6317,  6416,  6517,  6620,  6724,  6830,  6937,  7047,  7158,  7270,  7385,  7501,  7619,  7739,
    7861,  7985,  8111,  8238,  8368,  8500,  8634,  8770,  8908,  9048,  9191,  9335,  9482,  9632,  9783,  9937,
    10094, 10253, 10414, 10578, 10745, 10914, 11086, 11261, 11438, 11618, 11801, 11987, 12176, 12367, 12562, 12760,
    12961, 13165, 13372, 13583, 13797, 14014, 14235, 14459, 14687, 14918, 15153, 15391, 15634, 15880, 16130, 16384,
};
constexpr int kTableFracBits = 6;
constexpr int kLastEntry = 671;
static_assert(std::size(g_vendor_ais_exptbl) == kLastEntry + 1);
static_assert(g_vendor_ais_exptbl[0] == 0);

/// Exponential of a difference from -32768 to 0. What lies below the table is 0, as its first entry is.
inline int16_t table_exponential(int difference) {
  return g_vendor_ais_exptbl[kLastEntry + std::max(difference, -kLastEntry)];
}

/// Shifts of one 16-bit element or of lanes by 0 to 15: to the left the bits beyond the top are lost, to the right the
/// sign comes in.
inline int16_t shift_left_16(int16_t x, int count) { return static_cast<int16_t>(shift_left(int32_t{x}, count)); }
inline int16_t shift_right_16(int16_t x, int count) { return static_cast<int16_t>(shift_right(int32_t{x}, count)); }
inline s16x8 shift_left_16(s16x8 x, int count) { return s16x8(u16x8(x) << count); }
inline s16x8 shift_right_16(s16x8 x, int count) { return x >> count; }

/// Wrapping subtraction from an element or from each lane.
inline int16_t subtract_16(int16_t a, int16_t b) { return static_cast<int16_t>(a - b); }
inline s16x8 subtract_16(s16x8 a, int16_t b) { return s16x8(u16x8(a) - static_cast<uint16_t>(b)); }

/// Brings elements to the table's fraction bits: one element or lanes of a block, and single ones at the end of a run.
struct AsTheyAre {
  template <class V>
  V in_block(V x) const {
    return x;
  }
  int16_t in_tail(int16_t x) const { return x; }
};

/// An arithmetic shift, which drops the fraction towards minus infinity.
struct ShiftedRight {
  int count;  // 1 to 15, which leaves the sign

  template <class V>
  V in_block(V x) const {
    return shift_right_16(x, count);
  }
  int16_t in_tail(int16_t x) const { return in_block(x); }
};

/// A shift in 16 bits: what goes beyond the top is lost.
struct ShiftedLeft {
  int count;  // 1 to 6

  template <class V>
  V in_block(V x) const {
    return shift_left_16(x, count);
  }
  /// Kept apart from the blocks: the shift is one to the right by a count modulo 32 here, so -10 with 5 fraction bits
  /// gives -20 in a block and -1 here.
  int16_t in_tail(int16_t x) const { return static_cast<int16_t>(shift_right(int32_t{x}, -count)); }
};

/// Calls on_eight(i), on_one(i) for the elements in blocks, and on_one_of_tail(i) for the rest: all of a tail of up to
/// 5 elements, and what follows the first 4 of a longer one.
template <class OnEight, class OnOne, class OnOneOfTail>
inline void for_each_element(size_t count, OnEight on_eight, OnOne on_one, OnOneOfTail on_one_of_tail) {
  const size_t in_blocks = (count & ~size_t{7}) + ((count & 7) >= 6 ? 4 : 0);
  size_t i = 0;
  for (; count - i >= 32; i += 32) {
    on_eight(i);
    on_eight(i + 8);
    on_eight(i + 16);
    on_eight(i + 24);
  }
  for (; count - i >= 8; i += 8) on_eight(i);
  for (; i < in_blocks; ++i) on_one(i);
  for (; i < count; ++i) on_one_of_tail(i);
}

/// The least and the largest of a run brought to the table's fraction bits.
struct Range {
  int16_t least = std::numeric_limits<int16_t>::max();
  int16_t largest = std::numeric_limits<int16_t>::min();
};

template <class Fraction>
Range range_of(const int16_t *in, size_t count, Fraction fraction) {
  Range range;
  s16x8 least = fill<s16x8>(range.least);
  s16x8 largest = fill<s16x8>(range.largest);
  const auto take_one = [&](int16_t x) {
    range.least = std::min(range.least, x);
    range.largest = std::max(range.largest, x);
  };
  for_each_element(
      count,
      [&](size_t i) {
        const s16x8 x = fraction.in_block(load<s16x8>(in + i));
        least = least < x ? least : x;
        largest = largest > x ? largest : x;
      },
      [&](size_t i) { take_one(fraction.in_block(load<int16_t>(in + i))); },
      [&](size_t i) { take_one(fraction.in_tail(load<int16_t>(in + i))); });
  return {std::min(range.least, least_lane(least)), std::max(range.largest, largest_lane(largest))};
}

/// The exponentials, where no difference wraps.
template <class Fraction>
void look_up(const int16_t *in, int16_t *out, size_t count, Fraction fraction, int16_t largest) {
  const auto first_entry = static_cast<int16_t>(largest - kLastEntry);
  for_each_element(
      count,
      [&](size_t i) {
        const s16x8 above = subtract_16(fraction.in_block(load<s16x8>(in + i)), first_entry);
        const s16x8 entry = above > 0 ? above : s16x8{};
        if (is_zero(entry)) {  // far below the largest, as most scores of a classifier are
          store(out + i, s16x8{});
          return;
        }
        for (int k = 0; k < kLanes<s16x8>; ++k) store(out + i + k, g_vendor_ais_exptbl[entry[k]]);
      },
      [&](size_t i) { store(out + i, table_exponential(fraction.in_block(load<int16_t>(in + i)) - largest)); },
      [&](size_t i) { store(out + i, table_exponential(fraction.in_tail(load<int16_t>(in + i)) - largest)); });
}

/// The differences with wrapping in 16 bits.
template <class Fraction>
void subtract_largest(const int16_t *in, int16_t *out, size_t count, Fraction fraction, int16_t largest) {
  for_each_element(
      count, [&](size_t i) { store(out + i, subtract_16(fraction.in_block(load<s16x8>(in + i)), largest)); },
      [&](size_t i) { store(out + i, subtract_16(fraction.in_block(load<int16_t>(in + i)), largest)); },
      [&](size_t i) { store(out + i, subtract_16(fraction.in_tail(load<int16_t>(in + i)), largest)); });
}

/// The exponentials of differences up to the first one that wrapped above 0, which ends the run.
inline _QX_RESULT look_up_to_wrap(int16_t *out, size_t count) {
  constexpr int kLimit = 8191;
  for (size_t i = 0; i < count; ++i) {
    const int difference = load<int16_t>(out + i);
    if (difference > 0) {
      std::printf("\033[1;31mERR:%s() idx %d over limit %d\r\n\033[0m", "vendor_submax_s16", difference + kLimit,
                  kLimit);
      return QX_ERR_OVER_LIMIT;
    }
    store(out + i, table_exponential(difference));
  }
  return QX_OK;
}

template <class Fraction>
_QX_RESULT table_softmax(const int16_t *in, int16_t *out, size_t count, Fraction fraction) {
  const Range range = range_of(in, count, fraction);
  if (range.largest - range.least <= std::numeric_limits<int16_t>::max()) {
    look_up(in, out, count, fraction, range.largest);
    return QX_OK;
  }
  subtract_largest(in, out, count, fraction, range.largest);
  return look_up_to_wrap(out, count);
}

/// A run of `count` elements, which may be written over.
inline _QX_RESULT table_softmax(const int16_t *in, int16_t *out, size_t count, uint8_t frac_bits) {
  constexpr int kMostShift = 15;
  if (frac_bits < kTableFracBits) return table_softmax(in, out, count, ShiftedLeft{kTableFracBits - frac_bits});
  if (frac_bits == kTableFracBits) return table_softmax(in, out, count, AsTheyAre{});
  return table_softmax(in, out, count, ShiftedRight{std::min(frac_bits - kTableFracBits, kMostShift)});
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_SOFTMAX_TABLE_H
