#include <cmath>
#include <cstddef>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

void plain_to_floats(const int8_t *__restrict in, float *__restrict out, size_t count, float multiplier) {
  for (size_t i = 0; i < count; ++i) out[i] = static_cast<float>(in[i]) * multiplier;
}

/// Without a branch, which random data would mispredict.
int8_t plain_saturate(float y) {
  y = y < -128.0f ? -128.0f : y;
  y = y > 127.0f ? 127.0f : y;
  return static_cast<int8_t>(static_cast<int32_t>(y));
}

/// Plane by plane, with exact roots.
void plain_norm_by_position(const int8_t *__restrict in, int8_t *__restrict out, const float *__restrict scales,
                            float *__restrict floats, float *__restrict factors, size_t channels, size_t plane,
                            float in_multiplier, float out_multiplier, float eps) {
  plain_to_floats(in, floats, channels * plane, in_multiplier);
  for (size_t p = 0; p < plane; ++p) factors[p] = eps;
  for (size_t c = 0; c < channels; ++c) {
    for (size_t p = 0; p < plane; ++p) factors[p] += floats[c * plane + p] * floats[c * plane + p];
  }
  for (size_t p = 0; p < plane; ++p) factors[p] = 1.0f / std::sqrt(factors[p]);
  for (size_t c = 0; c < channels; ++c) {
    for (size_t p = 0; p < plane; ++p) {
      out[c * plane + p] = plain_saturate(floats[c * plane + p] * (scales[c] * factors[p]) * out_multiplier);
    }
  }
}

float multiplier_of(const _NN_SCALE &scale, int frac_bits) {
  return std::ldexp(static_cast<float>(scale.scale_value), frac_bits - scale.scale_shift);
}

/// Signed 8 bits in and out, scales that are no powers of two.
Workload norm_by_position(const char *name, uint16_t channels, uint16_t height, uint16_t width) {
  const size_t count = size_t{channels} * height * width;
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(count, 31);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(count);
    const std::shared_ptr<float[]> scales = random_floats(channels, 5.0f, 15.0f, 32);
    const std::shared_ptr<float[]> scratch = make_buffer<float>(2 * count);
    _NN_NORM_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(scratch);
    parm.scale_addr = address_of(scales);
    parm.width = width;
    parm.height = height;
    parm.channel = channels;
    parm.batch = 1;
    parm.in_batch_ofs = parm.out_batch_ofs = static_cast<uint32_t>(count);
    parm.in_fmt = support::format(8, 3, 1);
    parm.out_fmt = support::format(8, 6, 1);
    parm.in_scale = support::scale(181, 7);
    parm.out_scale = support::scale(77, 6);
    parm.eps = 1e-10f;
    const auto ours = [in, out, scales, scratch, parm] { expect_ok(tarvu_norm_process(&parm)); };
    const auto plain = [=, in_multiplier = multiplier_of(parm.in_scale, -parm.in_fmt.frac_bits),
                        out_multiplier = multiplier_of(parm.out_scale, parm.out_fmt.frac_bits)] {
      plain_norm_by_position(in.get(), out.get(), scales.get(), scratch.get(), scratch.get() + count, channels,
                             size_t{height} * width, in_multiplier, out_multiplier, parm.eps);
    };
    return Calls{ours, plain};
  };
  return {name, "default", "input", count, count, prepare};
}

}  // namespace

void add_norm_workloads(std::vector<Workload> &suite) {
  suite.push_back(norm_by_position("l2norm_chan_1x512x38x38", 512, 38, 38));
}

}  // namespace bench
