#include "tarvu_layernorm_reference.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "processor_rules.h"
#include "tarvu_layernorm_c_reference.h"

namespace reference {
namespace {

constexpr uint64_t kAbsent = 0xFFFFFFFFFu;
constexpr float kMean = 187.03314f;
static_assert(std::bit_cast<uint32_t>(kMean) == 0x433B087C);

float at(uint64_t floats, uint32_t index) {
  return load<float>(reinterpret_cast<const void *>(floats + 4 * uint64_t{index}));
}

void put(uint64_t floats, uint32_t index, float value) {
  store<float>(reinterpret_cast<void *>(floats + 4 * uint64_t{index}), value);
}

float squared_distance(float x) {
  const float d = x - kMean;
  return d * d;
}

void normalise_run(const _NN_LAYERNORM_PARM *parm, uint64_t in, uint64_t out, uint32_t length) {
  const uint32_t in_blocks = length & ~15u;
  float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (uint32_t i = 0; i < in_blocks; i += 16) {
    for (uint32_t k = 0; k < 4; ++k) {
      const float t0 = squared_distance(at(in, i + 4 * k + 0));
      const float t1 = squared_distance(at(in, i + 4 * k + 1));
      const float t2 = squared_distance(at(in, i + 4 * k + 2));
      const float t3 = squared_distance(at(in, i + 4 * k + 3));
      const float block_sum = ((t0 + t1) + t2) + t3;
      lane[k] = lane[k] + block_sum;
    }
  }
  float acc = ((lane[0] + lane[1]) + lane[2]) + lane[3];
  for (uint32_t i = in_blocks; i < length; ++i) acc = acc + squared_distance(at(in, i));

  const float variance = acc / static_cast<float>(length);
  const float with_eps = variance + parm->eps;
  const float inv = static_cast<float>(1.0 / std::sqrt(static_cast<double>(with_eps)));
  for (uint32_t i = 0; i < in_blocks; ++i) {
    const float d = at(in, i) - kMean;
    const float y = d * inv;
    put(out, i, with_gamma_and_beta(parm, i, y));
  }
  for (uint32_t i = in_blocks; i < length; ++i) {
    const float d = at(in, i) - kMean;
    const float y = d * inv;
    put(in, i, y);
    if (parm->gamma_addr == kAbsent && parm->beta_addr == kAbsent) continue;
    put(out, i, with_gamma_and_beta(parm, i, y));
  }
}

}  // namespace

_QX_RESULT tarvu_layernorm_process_neon(_NN_LAYERNORM_PARM *parm) { return normalise_all_runs(parm, normalise_run); }

}  // namespace reference
