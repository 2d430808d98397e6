#include "tarvu_layernorm_c_reference.h"

#include <cmath>
#include <cstdint>

#include "processor_rules.h"
#include "tarvu_format_reference.h"
#include "tarvu_util_reference.h"

namespace reference {
namespace {

constexpr uint64_t kAbsent = 0xFFFFFFFFFu;

float at(uint64_t floats, uint32_t index) {
  return load<float>(reinterpret_cast<const void *>(floats + 4 * uint64_t{index}));
}

void normalise_run(const _NN_LAYERNORM_PARM *parm, uint64_t in, uint64_t out, uint32_t length) {
  double sum = 0.0;
  for (uint32_t i = 0; i < length; ++i) sum = sum + static_cast<double>(at(in, i));
  const double mean = sum / static_cast<double>(length);
  double acc = 0.0;
  for (uint32_t i = 0; i < length; ++i) {
    const double d = static_cast<double>(at(in, i)) - mean;
    acc = std::fma(d, d, acc);
  }
  const double variance = acc / static_cast<double>(length);
  const double inv = 1.0 / std::sqrt(variance + static_cast<double>(parm->eps));
  for (uint32_t i = 0; i < length; ++i) {
    const double d = static_cast<double>(at(in, i)) - mean;
    const float y = static_cast<float>(d * inv);
    store<float>(reinterpret_cast<void *>(out + 4 * uint64_t{i}), with_gamma_and_beta(parm, i, y));
  }
}

}  // namespace

float with_gamma_and_beta(const _NN_LAYERNORM_PARM *parm, uint32_t index, float y) {
  if (parm->gamma_addr != kAbsent) y = y * at(parm->gamma_addr, index);
  if (parm->beta_addr != kAbsent) y = y + at(parm->beta_addr, index);
  return y;
}

_QX_RESULT normalise_all_runs(_NN_LAYERNORM_PARM *parm, LayernormRun run) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  parm->outer_size = 1;
  parm->inner_size = 1;
  if (parm->axis <= 0) parm->axis = parm->axis + 4;
  const uint32_t extent[4] = {parm->batch, parm->channel, parm->height, parm->width};
  if (parm->axis <= 3) {
    for (int32_t i = parm->axis; i <= 3; ++i) parm->inner_size = parm->inner_size * extent[i];
  }
  if (parm->axis >= 2) {
    for (int32_t i = 1; i <= parm->axis - 1 && i <= 3; ++i) parm->outer_size = parm->outer_size * extent[i];
  }

  const uint32_t count = uint32_t{parm->width} * parm->height * parm->channel * parm->batch;
  uint64_t cursor = parm->work_buffer;
  const uint64_t first = reinterpret_cast<uintptr_t>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  const uint64_t second = reinterpret_cast<uintptr_t>(reference::tarvu_getbuffrom(&cursor, 4 * count));
  const uint64_t in = in_type == NN_AI_IO_TYPE_32BIT ? parm->in_addr : first;
  const uint64_t out = out_type == NN_AI_IO_TYPE_32BIT ? parm->out_addr : second;
  if (in_type != NN_AI_IO_TYPE_32BIT) {
    reference::tarvu_fixtofloat_neon(reinterpret_cast<const void *>(parm->in_addr), reinterpret_cast<float *>(first),
                                     count, &parm->in_fmt, &parm->in_scale);
  }
  for (uint32_t n = 0; n < parm->batch; ++n) {
    for (uint32_t o = 0; o < parm->outer_size; ++o) {
      const uint32_t start = n * parm->outer_size * parm->inner_size + o * parm->inner_size;
      run(parm, in + 4 * uint64_t{start}, out + 4 * uint64_t{start}, parm->inner_size);
    }
  }
  if (out_type != NN_AI_IO_TYPE_32BIT) {
    const uint32_t nearest_ties_away = 3;
    reference::tarvu_floattofix_rnd_neon(reinterpret_cast<const float *>(second),
                                         reinterpret_cast<void *>(parm->out_addr), count, &parm->out_fmt,
                                         &parm->out_scale, nearest_ties_away);
  }
  return QX_OK;
}

_QX_RESULT tarvu_layernorm_process(_NN_LAYERNORM_PARM *parm) { return normalise_all_runs(parm, normalise_run); }

}  // namespace reference
