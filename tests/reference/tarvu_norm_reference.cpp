#include "tarvu_norm_reference.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "processor_rules.h"
#include "tarvu_format_reference.h"
#include "tarvu_util_reference.h"

namespace reference {
namespace {

/// 256 / sqrt(x) for x in [1/4, 1), rounded: `scaled` is x in units of 1/512, 128 to 511; the result is 256 to 511.
uint32_t estimate_mantissa(uint32_t scaled) {
  uint32_t a = scaled;
  if (a < 256) {
    a = a * 2 + 1;
  } else {
    a = (a >> 1) << 1;
    a = (a + 1) * 2;
  }
  uint32_t b = 512;
  while (a * (b + 1) * (b + 1) < (1u << 28)) b = b + 1;
  return (b + 1) / 2;
}

std::array<uint32_t, 512> all_estimates() {
  std::array<uint32_t, 512> table{};
  for (uint32_t scaled = 128; scaled < 512; ++scaled) table[scaled] = estimate_mantissa(scaled);
  return table;
}

const std::array<uint32_t, 512> kEstimates = all_estimates();

float at(uint64_t floats, uint32_t index) {
  return load<float>(reinterpret_cast<const void *>(floats + 4 * uint64_t{index}));
}

void put(uint64_t floats, uint32_t index, float value) {
  store<float>(reinterpret_cast<void *>(floats + 4 * uint64_t{index}), value);
}

float sum_of_squares(uint64_t in, uint32_t n) {
  float lane[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  const uint32_t in_blocks = n & ~15u;
  for (uint32_t i = 0; i < in_blocks; i += 16) {
    for (uint32_t k = 0; k < 4; ++k) {
      // Vector j holds in its lane k the element 4k + j.
      const float t0 = at(in, i + 4 * k + 0);
      const float t1 = at(in, i + 4 * k + 1);
      const float t2 = at(in, i + 4 * k + 2);
      const float t3 = at(in, i + 4 * k + 3);
      const float square_0 = t0 * t0;
      const float square_1 = t1 * t1;
      const float square_2 = t2 * t2;
      const float square_3 = t3 * t3;
      const float block_sum = ((square_0 + square_1) + square_2) + square_3;
      lane[k] = lane[k] + block_sum;
    }
  }
  float sum = ((lane[0] + lane[1]) + lane[2]) + lane[3];
  for (uint32_t i = in_blocks; i < n; ++i) {
    const float x = at(in, i);
    const float square = x * x;
    sum = sum + square;
  }
  return sum;
}

void norm_of_item(const _NN_NORM_PARM *parm, uint64_t in, uint64_t out, uint32_t plane, uint32_t n) {
  const float sum = sum_of_squares(in, n);
  const float s = static_cast<float>(1.0 / std::sqrt(static_cast<double>(sum) + static_cast<double>(parm->eps)));
  if (parm->shared_scale != 0) {
    if (n == 0) return;
    const float f = s * at(parm->scale_addr, 0);
    for (uint32_t i = 0; i < n; ++i) put(out, i, at(in, i) * f);
    return;
  }
  for (uint32_t c = 0; c < parm->channel; ++c) {
    const float f = s * at(parm->scale_addr, c);
    for (uint32_t i = 0; i < plane; ++i) put(out, c * plane + i, at(in, c * plane + i) * f);
  }
}

void norm_of_position_in_block(const _NN_NORM_PARM *parm, uint64_t in, uint64_t out, uint32_t plane, uint32_t p) {
  float acc = parm->eps;
  for (uint32_t c = 0; c < parm->channel; ++c) {
    const float x = at(in, c * plane + p);
    const float square = x * x;
    acc = acc + square;
  }
  float r = reciprocal_square_root_estimate(acc);
  if (parm->channel == 0) return;
  if (parm->shared_scale != 0) {
    r = at(parm->scale_addr, 0) * r;
    for (uint32_t c = 0; c < parm->channel; ++c) put(out, c * plane + p, at(in, c * plane + p) * r);
    return;
  }
  for (uint32_t c = 0; c < parm->channel; ++c) {
    const float factor = at(parm->scale_addr, c) * r;
    put(out, c * plane + p, at(in, c * plane + p) * factor);
  }
}

void norm_of_single_position(const _NN_NORM_PARM *parm, uint64_t in, uint64_t out, uint32_t plane, uint32_t p) {
  float sum = 0.0f;
  for (uint32_t c = 0; c < parm->channel; ++c) {
    const float x = at(in, c * plane + p);
    const float square = x * x;
    sum = sum + square;
  }
  const float with_eps = parm->eps + sum;
  const float s = static_cast<float>(1.0 / std::sqrt(static_cast<double>(with_eps)));
  if (parm->channel == 0) return;
  if (parm->shared_scale != 0) {
    const float f = s * at(parm->scale_addr, 0);
    for (uint32_t c = 0; c < parm->channel; ++c) put(out, c * plane + p, at(in, c * plane + p) * f);
    return;
  }
  for (uint32_t c = 0; c < parm->channel; ++c) {
    const float factor = s * at(parm->scale_addr, c);
    put(out, c * plane + p, factor * at(in, c * plane + p));
  }
}

void norm_of_positions(const _NN_NORM_PARM *parm, uint64_t in, uint64_t out, uint32_t plane) {
  const uint32_t in_blocks = plane & ~15u;
  for (uint32_t p = 0; p < in_blocks; ++p) norm_of_position_in_block(parm, in, out, plane, p);
  for (uint32_t p = in_blocks; p < plane; ++p) norm_of_single_position(parm, in, out, plane, p);
}

}  // namespace

float reciprocal_square_root_estimate(float x) {
  const uint32_t bits = std::bit_cast<uint32_t>(x);
  const uint32_t magnitude = bits & 0x7FFFFFFFu;
  if (magnitude > 0x7F800000u) return std::numeric_limits<float>::quiet_NaN();
  if (magnitude == 0) return std::bit_cast<float>(bits | 0x7F800000u);
  if (bits != magnitude) return std::numeric_limits<float>::quiet_NaN();
  if (magnitude == 0x7F800000u) return 0.0f;

  uint32_t fraction = bits & 0x007FFFFFu;
  int32_t exponent = static_cast<int32_t>(bits >> 23);
  if (exponent == 0) {
    while ((fraction & 0x00400000u) == 0) {
      fraction = fraction << 1;
      exponent = exponent - 1;
    }
    fraction = (fraction << 1) & 0x007FFFFFu;
  }
  // An even exponent keeps a leading one and 8 bits of the fraction, an odd one 7 bits, half as large.
  const bool even = exponent % 2 == 0;
  const uint32_t scaled = even ? 256u + (fraction >> 15) : 128u + (fraction >> 16);
  const uint32_t result_exponent = static_cast<uint32_t>((380 - exponent) / 2);
  return std::bit_cast<float>((result_exponent << 23) | ((kEstimates[scaled] & 255u) << 15));
}

_QX_RESULT tarvu_norm_process(const _NN_NORM_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  const uint32_t plane = uint32_t{parm->width} * parm->height;
  const uint32_t n = parm->channel * plane;
  uint64_t cursor = parm->work_buffer;
  const uint64_t float_input = reinterpret_cast<uintptr_t>(reference::tarvu_getbuffrom(&cursor, 4 * n));
  const uint64_t float_result = reinterpret_cast<uintptr_t>(reference::tarvu_getbuffrom(&cursor, 4 * n));

  for (uint32_t b = 0; b < parm->batch; ++b) {
    const uint64_t in_item = parm->in_addr + uint64_t{b} * parm->in_batch_ofs;
    const uint64_t out_item = parm->out_addr + uint64_t{b} * parm->out_batch_ofs;
    const uint64_t in = in_type == NN_AI_IO_TYPE_32BIT ? in_item : float_input;
    const uint64_t out = out_type == NN_AI_IO_TYPE_32BIT ? out_item : float_result;
    reference::tarvu_fixtofloat_neon(reinterpret_cast<const void *>(in_item), reinterpret_cast<float *>(in), n,
                                     &parm->in_fmt, &parm->in_scale);
    if (parm->norm_whole_item != 0) {
      norm_of_item(parm, in, out, plane, n);
    } else {
      norm_of_positions(parm, in, out, plane);
    }
    reference::tarvu_floattofix_neon(reinterpret_cast<const float *>(out), reinterpret_cast<void *>(out_item), n,
                                     &parm->out_fmt, &parm->out_scale);
  }
  return QX_OK;
}

}  // namespace reference
