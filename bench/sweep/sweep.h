/// \file sweep.h
/// The sweep: small blocks of every operator over types, axes and shapes, each held against what its work costs
/// elsewhere.
#ifndef TARVU_BENCH_SWEEP_SWEEP_H
#define TARVU_BENCH_SWEEP_SWEEP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench.h"
#include "tarvu.h"

namespace sweep {

/// The memory of one case, given back when the case has been counted.
struct Arena {
  std::vector<std::shared_ptr<uint8_t[]>> pieces;
  uint64_t seed = 1;
};

/// `count` zeros on a cache line of their own. Behind every piece there is room for what operators read and write past
/// a run.
uint8_t *zero_bytes(Arena &arena, size_t count);
/// `count` bytes of any value.
uint8_t *random_bytes(Arena &arena, size_t count);
/// Floats spread evenly over [-limit, limit).
float *random_floats(Arena &arena, size_t count, float limit);
/// `count` integers of `bits` bits from 0 to `bound` - 1.
uint8_t *random_indices(Arena &arena, size_t count, uint32_t bits, uint32_t bound);
/// What an operator may read as elements of `bits` bits: floats between -4 and 4 for 32, any bytes otherwise.
uint8_t *random_elements(Arena &arena, size_t count, uint32_t bits);

using Call = std::function<void()>;
/// Makes the data, which the arena owns, and the call that works on it.
using Maker = std::function<Call(Arena &)>;

/// One block and what it may cost: `fixed + extra + units * cost of a unit`, the last by one of three references.
struct Case {
  std::string kind;     ///< all but the extents: what is computed, on which types, along which axis
  std::string shape;    ///< the extents, in words
  uint32_t extent = 1;  ///< the extent along which the curve of this kind runs
  std::string unit;
  double units = 1;
  Maker make;

  double fixed = 400;     ///< instructions a call
  double extra = 0;       ///< instructions for work that does not grow with the units
  std::string neighbour;  ///< the name of a case of this operator whose work for a unit is at least as much; or
  double factor = 1;      ///< (times this, where `why` says why)
  Maker calls;            ///< other calls, or a plain loop, that come to the same result; or
  double figure = 0;      ///< instructions a unit
  std::string why;        ///< what the reference is, in words, where its name does not tell
  double limit = 1.5;  ///< the most that the case may cost in proportion to all this; 1 for a figure that must be met

  std::string name() const { return kind + ", " + shape; }
};

/// The cases of one operator. Doublings hold that twice the extent costs at most twice as much.
struct Cases {
  struct Doubling {
    std::string axis;
    std::string once;
    std::string twice;
  };
  std::vector<Case> cases;
  std::vector<Doubling> doublings;
};

/// Extents by axis, the slowest first.
struct Shape {
  uint32_t batch = 1;
  uint32_t channels = 1;
  uint32_t height = 1;
  uint32_t width = 1;

  size_t plane() const { return size_t{height} * width; }
  size_t item() const { return channels * plane(); }
  size_t elements() const { return batch * item(); }
};

/// "2x32x14x14".
std::string name_of(const Shape &shape);

/// Adds the case unless one of this name is there.
void add(Cases &cases, Case what);
/// Adds `make(shape)` and the same with each extent above 1 doubled, and the doublings. What `make` holds against
/// nothing is held against the case of once the extent.
void add_doublings(Cases &cases, const std::function<Case(const Shape &)> &make, const Shape &shape);

/// The extents that networks have.
inline constexpr uint32_t kExtents[] = {1, 2, 3, 4, 7, 10, 13, 14, 20, 21, 24, 28, 49, 56, 100, 112, 224, 1000};
inline constexpr uint32_t kFewExtents[] = {1, 2, 4, 7, 10, 14, 21, 28, 56, 100};

/// An element type.
struct Type {
  const char *name;
  uint32_t bits;
  uint32_t sign_bits;

  uint32_t bytes() const { return bits / 8; }
};
inline constexpr Type kS8{"s8", 8, 1};
inline constexpr Type kU8{"u8", 8, 0};
inline constexpr Type kS16{"s16", 16, 1};
inline constexpr Type kU16{"u16", 16, 0};
inline constexpr Type kF32{"f32", 32, 1};
inline constexpr Type kS32{"s32", 32, 1};

_NN_FMT format(const Type &type, int frac_bits);
_NN_SCALE scale(int32_t value, int shift);

inline uint64_t address(const void *memory) { return reinterpret_cast<uintptr_t>(memory); }
inline uint8_t u8(size_t value) { return static_cast<uint8_t>(value); }
inline uint16_t u16(size_t value) { return static_cast<uint16_t>(value); }
inline uint32_t u32(size_t value) { return static_cast<uint32_t>(value); }
inline size_t round_up(size_t value, size_t to) { return (value + to - 1) / to * to; }

/// The call of an operator on a block; the block is copied for each call.
template <class Block, class Result>
Call call_of(Result (*process)(const Block *), const Block &block) {
  return [=] { bench::expect_ok(process(&block)); };
}

/// One function for each operator, in <operator>_sweep.cpp.
void add_convert_cases(Cases &cases);
void add_convert_nd_cases(Cases &cases);
void add_reformat_cases(Cases &cases);
void add_permute_data_cases(Cases &cases);
void add_prelu_cases(Cases &cases);
void add_softmax_cases(Cases &cases);
void add_softmax_table_cases(Cases &cases);
void add_lrn_cases(Cases &cases);
void add_norm_cases(Cases &cases);
void add_layernorm_cases(Cases &cases);
void add_eltwise_cases(Cases &cases);
void add_lstm_cases(Cases &cases);
void add_fc_post_cases(Cases &cases);
void add_priorbox_cases(Cases &cases);
void add_detout_cases(Cases &cases);
void add_nms_cases(Cases &cases);
void add_pool_cases(Cases &cases);
void add_reverse_cases(Cases &cases);
void add_permute_cases(Cases &cases);
void add_topk_cases(Cases &cases);
void add_gather_cases(Cases &cases);
void add_gathernd_cases(Cases &cases);
void add_gatherelement_cases(Cases &cases);
void add_onehot_cases(Cases &cases);
void add_gridsample_cases(Cases &cases);

}  // namespace sweep

#endif  // TARVU_BENCH_SWEEP_SWEEP_H
