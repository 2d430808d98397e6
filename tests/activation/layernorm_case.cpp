#include "tests/activation/layernorm_case.h"

namespace support {
namespace {

_NN_FMT random_format(Random &random) {
  switch (random.below(10)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return format(32, random.between(-3, 20), random.between(0, 2));
    case 4:
      return format(24, 4, 1);  // no conversion knows it
    case 5:
      return format(random.pick({8, 16}), 3, 2);  // a type that the conversions pass over
    default: {
      const int width = random.pick({8, 16});
      return format(width, random.between(-4, width + 3), random.between(0, 1));
    }
  }
}

size_t element_bytes(const _NN_FMT &fmt) {
  return static_cast<size_t>(fmt.frac_bits + fmt.int_bits + fmt.sign_bits) / 8;
}

Element element_of(size_t bytes) {
  return bytes == 4 ? Element::kFloat : bytes == 2 ? Element::k16Bit : Element::k8Bit;
}

uint32_t length_of_run(const _NN_LAYERNORM_PARM &block) {
  const int32_t axis = block.axis <= 0 ? block.axis + 4 : block.axis;
  const uint32_t extents[4] = {block.batch, block.channel, block.height, block.width};
  uint32_t length = 1;
  for (int32_t i = axis; i <= 3; ++i) length *= extents[i];
  return length;
}

void fill_input(Random &random, const GuardedMemory &input, bool floats) {
  random.fill(input.data(), input.size());
  if (!floats) return;
  const size_t count = input.size() / sizeof(float);
  switch (random.below(4)) {
    case 0:
      return random.fill_any_floats(input.data(), count);
    case 1:
      return random.fill_floats(input.data(), count, 180.0f, 194.0f);
    case 2: {
      const float constant = random.pick({0.0f, 1.0f, 187.03314f, -3.7f});
      return random.fill_floats(input.data(), count, constant, constant);
    }
    default:
      return random.fill_floats(input.data(), count, -1000.0f, 1000.0f);
  }
}

}  // namespace

void layernorm_random_case(Random &random, LayernormCall product, LayernormCall twin, uint16_t width, uint16_t height,
                           uint16_t channel, uint16_t batch, int32_t axis) {
  Case<_NN_LAYERNORM_PARM> layernorm;
  _NN_LAYERNORM_PARM &block = layernorm.block;
  random.fill(&block, sizeof block);
  block.width = width;
  block.height = height;
  block.channel = channel;
  block.batch = batch;
  block.axis = axis;
  block.in_fmt = random_format(random);
  block.out_fmt = random_format(random);
  block.in_scale = scale(random.between(-3, 99), random.between(-2, 6));
  block.out_scale = scale(random.between(1, 99), random.between(-3, 5));
  block.eps = random.one_in(6) ? random.any_float() : random.pick({0.0f, 1e-12f, 1e-5f, 1.0f, 300.0f});

  const size_t count = size_t{width} * height * channel * batch;
  const size_t in_bytes = element_bytes(block.in_fmt);
  const size_t out_bytes = element_bytes(block.out_fmt);
  const uint32_t length = length_of_run(block);
  const GuardedMemory input(count * in_bytes);
  const GuardedMemory output(count * out_bytes, {random.pick({Fault::kBehind, Fault::kInFront})});
  const GuardedMemory gamma(length * sizeof(float));
  const GuardedMemory beta(length * sizeof(float));
  fill_input(random, input, in_bytes == 4);
  random.fill(output.data(), output.size());
  random.fill_floats(gamma.data(), length, -4.0f, 4.0f);
  random.fill_floats(beta.data(), length, -90.0f, 90.0f);
  const Scratch scratch(random, 8 * count);
  block.work_buffer = scratch.address();
  layernorm.attach(&_NN_LAYERNORM_PARM::in_addr, input, "input", element_of(in_bytes), {length, 16});
  if (in_bytes == out_bytes && random.one_in(4)) {
    block.out_addr = block.in_addr;
  } else {
    layernorm.attach(&_NN_LAYERNORM_PARM::out_addr, output, "output", element_of(out_bytes), {length, 16});
  }
  block.gamma_addr = block.beta_addr = TARVU_LAYERNORM_ABSENT;
  if (random.one_in(2)) layernorm.attach(&_NN_LAYERNORM_PARM::gamma_addr, gamma, "gamma", Element::kFloat);
  if (random.one_in(2)) layernorm.attach(&_NN_LAYERNORM_PARM::beta_addr, beta, "beta", Element::kFloat);
  EXPECT_TRUE(layernorm.same(scratch.wrap(product), scratch.wrap(twin)))
      << width << " x " << height << " x " << channel << " x " << batch << ", axis " << axis << ", types "
      << tarvu_get_fmt_type(&block.in_fmt) << " to " << tarvu_get_fmt_type(&block.out_fmt) << ", eps " << block.eps
      << (block.gamma_addr != TARVU_LAYERNORM_ABSENT ? ", gamma" : "")
      << (block.beta_addr != TARVU_LAYERNORM_ABSENT ? ", beta" : "");
}

}  // namespace support
