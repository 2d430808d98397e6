// Requantises the partial results of a fully-connected layer.
#include "convert/format_entry.h"
#include "simd/total_scaling.h"

namespace tarvu {
namespace {

constexpr uint32_t kTile = 256;  // outputs whose sums stand on the stack at a time
constexpr uint32_t kShortestWindow = 16;

/// Calls action(T{}) with the element type. Kept: every format without a type of its own is a signed word.
template <class Action>
void with_fc_element_type(const _NN_FMT &fmt, Action action) {
  bool known = false;
  with_element_type(fmt.sign_bits, width_bits_in_byte(fmt), [&](auto element) {
    known = true;
    action(element);
  });
  if (!known) action(int32_t{});
}

/// Kept: the distance between elements is the width over 8, whatever the type.
uint32_t step_bytes(const _NN_FMT &fmt) { return static_cast<uint32_t>(width_bits_in_byte(fmt)) / 8; }

/// The partial results of one batch item.
struct Parts {
  const uint8_t *first;
  uint32_t element_bytes;  // from one output's partial results to the next's
  uint32_t part_bytes;     // from one partial result to the next
  uint32_t count;          // of one output
  uint32_t outputs;

  /// Kept: offsets are 32-bit numbers.
  const uint8_t *at(uint32_t output, uint32_t part) const {
    return first + (output * element_bytes + part * part_bytes);
  }

  bool some_offset_wraps() const {
    return (outputs - uint64_t{1}) * element_bytes + uint64_t{count} * part_bytes >
           std::numeric_limits<uint32_t>::max();
  }
};

/// Adds the partial results of the outputs from `first` on, each window one element further on than the one before.
template <class In, class Sum>
void slide_window(const Parts &parts, uint32_t first, uint32_t outputs, Sum *sums) {
  const auto element = [&](uint32_t i) { return Sum{load<In>(parts.first + i * sizeof(In))}; };
  Sum sum = 0;
  for (uint32_t k = 0; k < parts.count; ++k) sum += element(first + k);
  sums[0] = sum;
  for (uint32_t j = 1; j < outputs; ++j) {
    sum = add(sum, subtract(element(first + j + parts.count - 1), element(first + j - 1)));
    sums[j] = sum;
  }
}

/// sums[j] = all partial results of output `first` + j, which Sum must hold.
template <class In, class Sum>
void sum_parts(const Parts &parts, uint32_t first, uint32_t outputs, Sum *sums) {
  const bool dense = parts.element_bytes == sizeof(In) && !parts.some_offset_wraps();
  if (dense && parts.part_bytes == sizeof(In) && parts.count >= kShortestWindow) {
    slide_window<In>(parts, first, outputs, sums);
    return;
  }
  std::fill_n(sums, outputs, Sum{0});
  for (uint32_t k = 0; k < parts.count; ++k) {
    if (dense) {
      const uint8_t *row = parts.at(first, k);
      for (uint32_t j = 0; j < outputs; ++j) sums[j] += Sum{load<In>(row + j * sizeof(In))};
    } else {
      for (uint32_t j = 0; j < outputs; ++j) sums[j] += Sum{load<In>(parts.at(first + j, k))};
    }
  }
}

/// Whether 32 bits hold every sum.
template <class In>
bool sums_fit_words(uint32_t count) {
  constexpr int64_t kMagnitude = int64_t{std::numeric_limits<In>::max()} + 1;
  return count <= 1 || kMagnitude * count <= std::numeric_limits<int32_t>::max();
}

/// Stores the outputs one by one, in ascending order: elements may be wider than the distance between them.
template <class Out>
void scale_totals(const int64_t *sums, const int32_t *corrections, uint8_t *to, uint32_t out_bytes, uint32_t outputs,
                  const TotalScales &scales) {
  for (uint32_t j = 0; j < outputs; ++j, to += out_bytes) {
    const int64_t total = sums[j] + subtract(0, load<int32_t>(corrections + j));
    store(to, saturate<Out>(scale_total(total, scales)));
  }
}

/// The same for dense outputs whose sums fit 32 bits.
template <class Out>
void scale_words(const int32_t *sums, const int32_t *corrections, uint8_t *to, uint32_t outputs,
                 const TotalScales &scales) {
  scale_word_totals<Out>(sums, corrections, reinterpret_cast<Out *>(to), outputs, scales);
}

/// The steps for the block's element types, chosen once a call.
struct Steps {
  decltype(&sum_parts<int32_t, int32_t>) sum_to_words;
  decltype(&sum_parts<int32_t, int64_t>) sum;
  decltype(&scale_words<int32_t>) scale_words;
  decltype(&scale_totals<int32_t>) scale;
  bool in_words;       // the first of each, for ordinary multipliers and elements
  bool sums_in_place;  // the partial results are the sums
};

Steps steps_of(const _NN_FC_POST_PARM &parm, const Parts &parts, const TotalScales &scales) {
  Steps steps{};
  with_fc_element_type(parm.in_fmt, [&](auto in) {
    using In = decltype(in);
    steps.sum_to_words = sum_parts<In, int32_t>;
    steps.sum = sum_parts<In, int64_t>;
    steps.in_words = sums_fit_words<In>(parts.count);
    steps.sums_in_place = sizeof(In) == 4 && parts.element_bytes == 4 && parts.count == 1;
  });
  with_fc_element_type(parm.out_fmt, [&](auto out) {
    using Out = decltype(out);
    steps.scale_words = scale_words<Out>;
    steps.scale = scale_totals<Out>;
    steps.in_words = steps.in_words && step_bytes(parm.out_fmt) == sizeof(Out);
  });
  steps.in_words = steps.in_words && scales_in_words(scales.positive) && scales_in_words(scales.negative);
  return steps;
}

/// A batch item by tiles of outputs whose sums stand on the stack.
void requantise_item(const Steps &steps, const Parts &parts, const int32_t *corrections, uint8_t *to,
                     uint32_t out_bytes, const TotalScales &scales) {
  for (uint32_t j = 0; j < parts.outputs; j += kTile) {
    const uint32_t outputs = std::min(kTile, parts.outputs - j);
    int64_t sums[kTile];
    steps.sum(parts, j, outputs, sums);
    steps.scale(sums, corrections + j, to + size_t{j} * out_bytes, out_bytes, outputs, scales);
  }
}

void requantise_item_in_words(const Steps &steps, const Parts &parts, const int32_t *corrections, uint8_t *to,
                              uint32_t out_bytes, const TotalScales &scales) {
  if (steps.sums_in_place) {
    steps.scale_words(reinterpret_cast<const int32_t *>(parts.first), corrections, to, parts.outputs, scales);
    return;
  }
  for (uint32_t j = 0; j < parts.outputs; j += kTile) {
    const uint32_t outputs = std::min(kTile, parts.outputs - j);
    int32_t sums[kTile];
    steps.sum_to_words(parts, j, outputs, sums);
    steps.scale_words(sums, corrections + j, to + size_t{j} * out_bytes, outputs, scales);
  }
}

/// Kept: the sums of shifts are read back from a signed byte.
TotalScales scales_of(const _NN_FC_POST_PARM &parm) {
  const int64_t multiplier = int64_t{parm.mul_a.scale_value} * parm.mul_b.scale_value;
  const auto shift = static_cast<int8_t>(parm.mul_a.scale_shift + parm.mul_b.scale_shift);
  const auto negative_shift = static_cast<int8_t>(shift + parm.neg_mul.scale_shift);
  return {{multiplier, shift}, {multiply(int64_t{parm.neg_mul.scale_value}, multiplier), negative_shift}};
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_fc_post_process(const _NN_FC_POST_PARM *parm) {
  using namespace tarvu;
  if (parm->batch == 0 || parm->width == 0) return QX_OK;
  const TotalScales scales = scales_of(*parm);
  const auto *corrections = pointer<const int32_t>(parm->bias_addr);
  const uint32_t out_bytes = step_bytes(parm->out_fmt);
  Parts parts = {pointer<const uint8_t>(parm->in_addr), step_bytes(parm->in_fmt), parm->in_line_ofs, parm->height,
                 parm->width};
  const Steps steps = steps_of(*parm, parts, scales);
  uint8_t *to = pointer(parm->out_addr);
  for (uint32_t item = 0; item < parm->batch; ++item) {
    if (steps.in_words) {
      requantise_item_in_words(steps, parts, corrections, to, out_bytes, scales);
    } else {
      requantise_item(steps, parts, corrections, to, out_bytes, scales);
    }
    parts.first += parm->in_batch_ofs;
    to += parm->out_batch_ofs;
  }
  return QX_OK;
}
