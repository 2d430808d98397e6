/// \file layernorm_case.h
/// Blocks for the tests of both forms of layer normalisation.
#ifndef TARVU_TESTS_ACTIVATION_LAYERNORM_CASE_H
#define TARVU_TESTS_ACTIVATION_LAYERNORM_CASE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tarvu.h"
#include "tests/support/differential.h"
#include "tests/support/filled_memory.h"
#include "tests/support/formats.h"

namespace support {

using LayernormCall = _QX_RESULT (*)(_NN_LAYERNORM_PARM *parm);

/// One batch item of float lines in, float lines out, normalised line by line, without gamma and beta; nothing else is
/// readable.
inline _NN_LAYERNORM_PARM float_lines(uint16_t width, uint16_t height = 1, uint16_t channel = 1) {
  _NN_LAYERNORM_PARM block{};
  block.work_buffer = unreadable_address();
  block.gamma_addr = block.beta_addr = TARVU_LAYERNORM_ABSENT;
  block.width = width;
  block.height = height;
  block.channel = channel;
  block.batch = 1;
  block.in_fmt = block.out_fmt = format(32, 0, 1);
  block.in_scale = block.out_scale = scale(1, 0);
  block.axis = 3;
  return block;
}

struct LayernormResult {
  std::vector<float> in;   ///< the input tensor after the call
  std::vector<float> out;  ///< holds kUnwritten where the call wrote nothing
  _NN_LAYERNORM_PARM block;
};

inline constexpr float kUnwritten = -12345.0f;

/// Runs a block on a float tensor; empty gamma and beta are absent.
inline LayernormResult layernorm_of(LayernormCall call, _NN_LAYERNORM_PARM block, const std::vector<float> &in,
                                    const std::vector<float> &gamma = {}, const std::vector<float> &beta = {}) {
  const GuardedMemory input = memory_of(in);
  const GuardedMemory output = memory_of(std::vector<float>(in.size(), kUnwritten));
  const GuardedMemory gammas = memory_of(gamma);
  const GuardedMemory betas = memory_of(beta);
  block.in_addr = input.address();
  block.out_addr = output.address();
  if (!gamma.empty()) block.gamma_addr = gammas.address();
  if (!beta.empty()) block.beta_addr = betas.address();
  EXPECT_EQ(QX_OK, call(&block));
  EXPECT_EQ(std::string(), input.guard_damage() + output.guard_damage() + gammas.guard_damage() + betas.guard_damage());
  return {values_in<float>(input), values_in<float>(output), block};
}

/// Product and twin on one random block of the shape given.
void layernorm_random_case(Random &random, LayernormCall product, LayernormCall twin, uint16_t width, uint16_t height,
                           uint16_t channel, uint16_t batch, int32_t axis);

}  // namespace support

#endif  // TARVU_TESTS_ACTIVATION_LAYERNORM_CASE_H
