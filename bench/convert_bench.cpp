#include <algorithm>
#include <limits>

#include "bench/bench.h"
#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/bit_depth_trans_rnd_reference.h"
#include "tests/reference/tarvu_type_convert_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

constexpr size_t kMillion = size_t{1} << 20;

template <class T>
void plain_reformat(const T *__restrict source, int8_t *__restrict destination, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t shifted = sizeof(T) == 2 ? source[i] >> 3 : source[i] * 4;
    destination[i] = static_cast<int8_t>(std::clamp(shifted, -128, 127));
  }
}

/// A saturating change of format to signed 8 bits: a shift right by three from 16 bits, left by two from 8.
template <class T>
Workload reformat(const char *name, const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(kMillion, 11);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kMillion);
    const auto ours = [=] {
      tarvu_convert_fmt_c(in.get(), out.get(), uint32_t{kMillion}, &in_fmt, &out_fmt, nullptr, nullptr);
    };
    const auto plain = [in, out] { plain_reformat(in.get(), out.get(), kMillion); };
    return Calls{ours, plain};
  };
  return {name, "default", "input", kMillion, kMillion * sizeof(T), prepare};
}

/// Integers to floats with a multiplier that is no power of two unless the scale is 1.
template <class T>
Workload dequantize(const char *name, const char *variant, size_t count,
                    void (*kernel)(const T *, float *, int16_t, uint32_t, float),
                    void (*plain_kernel)(const T *, float *, int16_t, uint32_t, float), float scale) {
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(count, 12);
    const std::shared_ptr<float[]> out = make_buffer<float>(count);
    const auto run = [=](auto convert) {
      return [=] { convert(in.get(), out.get(), 4, static_cast<uint32_t>(count), scale); };
    };
    return Calls{run(kernel), run(plain_kernel)};
  };
  return {name, variant, "input", count, count * sizeof(float), prepare};
}

/// Floats to integers; `convert(kernel, source, destination, count)` calls a kernel of either side.
template <class T, class Kernel, class Convert>
Workload quantize(const char *name, size_t count, Kernel *kernel, Kernel *plain_kernel, Convert convert) {
  const auto prepare = [=] {
    // One value in ten or so lies beyond the range of T.
    const float limit = static_cast<float>(std::numeric_limits<T>::max()) / 14.0f;
    const std::shared_ptr<float[]> in = random_floats(count, -limit, limit, 13);
    const std::shared_ptr<T[]> out = make_buffer<T>(count);
    const auto run = [=](Kernel *of) {
      return [=] { convert(of, in.get(), out.get(), static_cast<uint32_t>(count)); };
    };
    return Calls{run(kernel), run(plain_kernel)};
  };
  return {name, "default", "input", count, count * sizeof(float), prepare};
}

constexpr float kScale = 0.97f;

template <class T>
Workload quantize_flat(const char *name, size_t count, void (*kernel)(const float *, T *, int16_t, uint32_t, float),
                       void (*plain_kernel)(const float *, T *, int16_t, uint32_t, float)) {
  return quantize<T>(name, count, kernel, plain_kernel,
                     [](auto of, const float *from, T *to, uint32_t n) { of(from, to, 4, n, kScale); });
}

void add_conversions(std::vector<Workload> &suite) {
  constexpr size_t kSmall = size_t{1} << 16;
  suite.push_back(dequantize<int8_t>("dequant_s8_f32_64K", "default", kSmall, ::int8tofloat_neon,
                                     reference::int8tofloat_neon, kScale));
  suite.push_back(dequantize<int8_t>("dequant_s8_f32_64K", "power_of_two", kSmall, ::int8tofloat_neon,
                                     reference::int8tofloat_neon, 1.0f));
  suite.push_back(dequantize<int8_t>("dequant_s8_f32_1M", "default", kMillion, ::int8tofloat_neon,
                                     reference::int8tofloat_neon, kScale));
  suite.push_back(dequantize<int8_t>("dequant_s8_f32_1M", "power_of_two", kMillion, ::int8tofloat_neon,
                                     reference::int8tofloat_neon, 1.0f));
  suite.push_back(dequantize<int16_t>("dequant_s16_f32_1M", "default", kMillion, ::int16tofloat_neon,
                                      reference::int16tofloat_neon, kScale));
  suite.push_back(quantize_flat<int8_t>("quant_f32_s8_64K", kSmall, ::floattoint8_neon, reference::floattoint8_neon));
  suite.push_back(quantize_flat<int8_t>("quant_f32_s8_1M", kMillion, ::floattoint8_neon, reference::floattoint8_neon));
  suite.push_back(
      quantize_flat<uint8_t>("quant_f32_u8_1M", kMillion, ::floattouint8_neon, reference::floattouint8_neon));
  suite.push_back(
      quantize_flat<int16_t>("quant_f32_s16_1M", kMillion, ::floattoint16_neon, reference::floattoint16_neon));
  suite.push_back(
      quantize<uint8_t>("quant_zp_f32_u8_1M", kMillion, ::floattouint8_1d_neon, reference::floattouint8_1d_neon,
                        [](auto of, const float *from, uint8_t *to, uint32_t n) { of(from, to, n, 4, 101, kScale); }));
  suite.push_back(
      quantize<int8_t>("quant_rnd3_f32_s8_1M", kMillion, ::floattoint8_rnd_neon, reference::floattoint8_rnd_neon,
                       [](auto of, const float *from, int8_t *to, uint32_t n) { of(from, to, 4, n, 3, kScale); }));
}

}  // namespace

void add_convert_workloads(std::vector<Workload> &suite) {
  using support::format;
  add_conversions(suite);
  suite.push_back(reformat<int16_t>("reformat_s16_s8_1M", format(16, 8, 1), format(8, 5, 1)));
  suite.push_back(reformat<int8_t>("reformat_s8_s8_1M", format(8, 3, 1), format(8, 5, 1)));
}

}  // namespace bench
