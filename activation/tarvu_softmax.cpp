// Softmax along an axis, the approximate exponential that it is made of, softmax by table, and two debugging aids.
#include <cstdio>

#include "activation/softmax_item.h"
#include "activation/softmax_table.h"
#include "simd/runs.h"

namespace tarvu {
namespace {

/// Softmax without zero points.
struct FlatForm {
  using Parm = _NN_SOFTMAX_PARM;
  static constexpr const char *kItemFunction = "tarvu_softmax_process_one_batch";
  static constexpr bool kMultiplies = true;

  int8_t in_frac_bits;
  int8_t out_frac_bits;
  float in_scale;
  float out_scale;

  static FlatForm of(const Parm &parm, uint32_t /*count*/) {
    return {parm.in_fmt.frac_bits, parm.out_fmt.frac_bits, scale_of(parm.in_scale), scale_of(parm.out_scale)};
  }
  template <class T>
  void to_floats(const T *in, float *out, uint32_t n) const {
    Kernels<T>::to_floats(in, out, in_frac_bits, n, in_scale);
  }
  template <class T>
  void from_floats(const float *in, T *item, uint32_t first, uint32_t n) const {
    Kernels<T>::from_floats(in, item + first, out_frac_bits, n, out_scale);
  }
  bool only_multiplies() const { return out_frac_bits >= 0; }
  template <class T>
  void from_multiplied_floats(const float *in, float factor, T *item, uint32_t first, uint32_t n) const {
    const float multiplier = multiplier_from_float(out_frac_bits, out_scale);
    floats_to_integers<T>(in, item + first, n, [=](auto x) {
      using V = decltype(x);
      const V product = x * fill<V>(factor);
      return product * fill<V>(multiplier);
    });
  }
};

/// What tarvu_softmax_process_0() takes for a group: consecutive elements of one item, whatever the axis.
Groups consecutive_elements(const _NN_SOFTMAX_PARM &parm) {
  if (parm.axis == 1 && above_one(parm.height, parm.width)) return channel_columns(parm);
  const uint16_t extents[] = {parm.batch, parm.channel, parm.height, parm.width};
  const uint32_t length = parm.axis >= 0 && parm.axis <= 3 ? extents[parm.axis] : 1u;
  return {true, divide(elements_of_item(parm), length), length, 1, 1};
}

_QX_RESULT softmax_of_consecutive_elements(const _NN_SOFTMAX_PARM &parm) {
  const uint32_t count = parm.batch * elements_of_item(parm);
  const Item<FlatForm> tensor{FlatForm::of(parm, count), parm.in_fmt, parm.out_fmt, pointer<const void>(parm.in_addr),
                              pointer<void>(parm.out_addr)};
  const Scratch scratch = take_scratch(parm.work_buffer, count);
  tensor.read(0, count, scratch.input);
  softmax_of_groups(consecutive_elements(parm), scratch.input,
                    gives_floats(parm.out_fmt) ? static_cast<float *>(tensor.out) : scratch.result);
  tensor.write(scratch.result, 0, count);
  return QX_OK;
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_softmax_process(const _NN_SOFTMAX_PARM *parm) {
  return tarvu::softmax_of_batch(*parm, tarvu_softmax_process_one_batch);
}

_QX_RESULT tarvu_softmax_process_one_batch(const _NN_SOFTMAX_PARM *parm, const void *in, void *out) {
  return tarvu::softmax_of_item<tarvu::FlatForm>(*parm, in, out);
}

_QX_RESULT tarvu_softmax_process_0(const _NN_SOFTMAX_PARM *parm) {
  return tarvu::softmax_of_consecutive_elements(*parm);
}

void tarvu_softmax_axis2_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::height_columns(*parm), in, out);
}

void tarvu_softmax_axis3_4vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::lines(*parm), in, out);
}

void tarvu_softmax_axisn_1dim_vec(const float *in, float *out, const _NN_SOFTMAX_PARM *parm) {
  tarvu::softmax_of_groups(tarvu::whole_item(*parm), in, out);
}

float fast_exp(float x) { return tarvu::fast_exp_step(x); }

int32_t dataTransform_u16tofloat(const int16_t *in, float *out, int8_t shift, int32_t count) {
  if (count <= 0) return 0;
  const float power = tarvu::power_of_two_in_word(shift < 0 ? -shift : shift);
  tarvu::integers_to_floats<int16_t>(in, out, static_cast<uint32_t>(count), [=](auto x) {
    const auto value = tarvu::to_f32(x);
    const auto powers = tarvu::fill<std::remove_cv_t<decltype(value)>>(power);
    return shift < 0 ? value * powers : value / powers;
  });
  return 0;
}

int32_t write_file(const char *path, const float *values, int32_t count) {
  std::FILE *file = std::fopen(path, "w");
  if (file == nullptr) return -1;
  for (int32_t i = 0; i < count; ++i) std::fprintf(file, "%.8f\n", static_cast<double>(values[i]));
  std::fclose(file);
  return 0;
}

_QX_RESULT vendor_softmax_process(const _NN_SOFTMAX_PARM *parm) {
  if (vendor_ais_checkparm(parm) != 0) return QX_ERR_PARAM;
  const uint64_t item_bytes = uint64_t{2} * parm->channel;
  const auto frac_bits = static_cast<uint8_t>(parm->in_fmt.frac_bits);
  for (uint32_t i = 0; i < parm->batch; ++i) {
    // Kept: an item that fails is known by its printed line alone.
    vendor_submax_s16(tarvu::pointer<const int16_t>(parm->in_addr + i * item_bytes),
                      tarvu::pointer<int16_t>(parm->out_addr + i * item_bytes), parm->channel, frac_bits);
  }
  return QX_OK;
}

_QX_RESULT vendor_submax_s16(const int16_t *in, int16_t *out, uint32_t count, uint8_t frac_bits) {
  return tarvu::table_softmax(in, out, count, frac_bits);
}

int32_t vendor_ais_checkparm(const _NN_SOFTMAX_PARM *parm) {
  constexpr int32_t kBad = 2;
  if (parm->batch == 0) {
    std::printf("\033[1;31mERR:%s() batch num should be positive, but input is %d\r\n\033[0m", "vendor_ais_checkparm",
                parm->batch);
    return kBad;
  }
  if (parm->channel == 0) {
    std::printf("\033[1;31mERR:%s() channel should be positive, but input is %d\r\n\033[0m", "vendor_ais_checkparm",
                parm->channel);
    return kBad;
  }
  return 0;
}
