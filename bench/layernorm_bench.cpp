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

void plain_layernorm(const int8_t *__restrict in, int8_t *__restrict out, const float *__restrict gamma,
                     const float *__restrict beta, float *__restrict floats, size_t lines, size_t width,
                     float in_multiplier, float out_multiplier, double eps) {
  plain_to_floats(in, floats, lines * width, in_multiplier);
  for (size_t line = 0; line < lines; ++line, floats += width, out += width) {
    double sum = 0.0;
    for (size_t i = 0; i < width; ++i) sum += static_cast<double>(floats[i]);
    const double mean = sum / static_cast<double>(width);
    double square_sum = 0.0;
    for (size_t i = 0; i < width; ++i) {
      const double deviation = static_cast<double>(floats[i]) - mean;
      square_sum = std::fma(deviation, deviation, square_sum);
    }
    const double inverse = 1.0 / std::sqrt(square_sum / static_cast<double>(width) + eps);
    for (size_t i = 0; i < width; ++i) {
      const auto normalised = static_cast<float>((static_cast<double>(floats[i]) - mean) * inverse);
      const float y = (normalised * gamma[i] + beta[i]) * out_multiplier;
      out[i] = plain_saturate(y + std::copysign(0.5f, y));
    }
  }
}

float multiplier_of(const _NN_SCALE &scale, int frac_bits) {
  return std::ldexp(static_cast<float>(scale.scale_value), frac_bits - scale.scale_shift);
}

/// Signed 8 bits in and out, gamma and beta, scales that are no powers of two.
Workload layernorm(const char *name, uint16_t lines, uint16_t width) {
  const size_t count = size_t{lines} * width;
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(count, 33);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(count);
    const std::shared_ptr<float[]> gamma = random_floats(width, 0.5f, 1.5f, 34);
    const std::shared_ptr<float[]> beta = random_floats(width, -0.5f, 0.5f, 35);
    const std::shared_ptr<float[]> scratch = make_buffer<float>(2 * count);
    _NN_LAYERNORM_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.work_buffer = address_of(scratch);
    parm.gamma_addr = address_of(gamma);
    parm.beta_addr = address_of(beta);
    parm.width = width;
    parm.height = lines;
    parm.channel = parm.batch = 1;
    parm.in_fmt = support::format(8, 5, 1);
    parm.out_fmt = support::format(8, 5, 1);
    parm.in_scale = support::scale(181, 7);
    parm.out_scale = support::scale(77, 6);
    parm.eps = 1e-5f;
    parm.axis = 3;
    const auto ours = [in, out, gamma, beta, scratch, parm] {
      _NN_LAYERNORM_PARM block = parm;
      expect_ok(tarvu_layernorm_process(&block));
    };
    const auto plain = [=, in_multiplier = multiplier_of(parm.in_scale, -parm.in_fmt.frac_bits),
                        out_multiplier = multiplier_of(parm.out_scale, parm.out_fmt.frac_bits)] {
      plain_layernorm(in.get(), out.get(), gamma.get(), beta.get(), scratch.get(), lines, width, in_multiplier,
                      out_multiplier, static_cast<double>(parm.eps));
    };
    return Calls{ours, plain};
  };
  return {name, "default", "input", count, count, prepare};
}

}  // namespace

void add_layernorm_workloads(std::vector<Workload> &suite) {
  suite.push_back(layernorm("layernorm_196x768", 196, 768));
}

}  // namespace bench
