// Softmax along an axis for tensors with a zero point.
#include "activation/softmax_item.h"
#include "convert/zero_point.h"

namespace tarvu {
namespace {

/// Softmax with zero points.
struct ZeroPointForm {
  using Parm = _NN_SOFTMAX_ASYM_PARM;
  static constexpr const char *kItemFunction = "tarvu_softmax_asym_process_one_batch";
  static constexpr bool kMultiplies = false;

  uint32_t count;
  int32_t in_zero_point;
  int32_t out_zero_point;
  float in_multiplier;
  float out_multiplier;

  static ZeroPointForm of(const Parm &parm, uint32_t count) {
    return {count, parm.in_zero_point, parm.out_zero_point,
            multiplier_to_float(parm.in_fmt.frac_bits, scale_of(parm.in_scale)),
            multiplier_from_float(parm.out_fmt.frac_bits, scale_of(parm.out_scale))};
  }
  template <class T>
  void to_floats(const T *in, float *out, uint32_t n) const {
    zero_point_to_floats<T>(in, out, n, in_zero_point, in_multiplier);
  }
  /// What is a block and what the tail is settled by the whole item.
  template <class T>
  void from_floats(const float *in, T *item, uint32_t first, uint32_t n) const {
    // Kept: a signed 8-bit output is biased by the input's zero point.
    const int32_t zero_point = std::is_same_v<T, int8_t> ? in_zero_point : out_zero_point;
    const uint32_t in_blocks = count / kZeroPointBlock<T> * kZeroPointBlock<T>;
    const uint32_t blocked = first < in_blocks ? std::min(n, in_blocks - first) : 0;
    floats_to_zero_point_in_block<T>(in, item + first, blocked, zero_point, out_multiplier);
    floats_to_zero_point_in_tail<T>(in + blocked, item + first + blocked, n - blocked, zero_point, out_multiplier);
  }
};

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_softmax_asym_process(const _NN_SOFTMAX_ASYM_PARM *parm) {
  return tarvu::softmax_of_batch(*parm, tarvu_softmax_asym_process_one_batch);
}

_QX_RESULT tarvu_softmax_asym_process_one_batch(const _NN_SOFTMAX_ASYM_PARM *parm, const void *in, void *out) {
  return tarvu::softmax_of_item<tarvu::ZeroPointForm>(*parm, in, out);
}

void tarvu_softmax_asym_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::height_columns(*parm), in, out);
}

void tarvu_softmax_asym_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::lines(*parm), in, out);
}

void tarvu_softmax_asym_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_ASYM_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::whole_item(*parm), in, out);
}
