#include "bench/bench.h"
#include "tests/reference/tarvu_layernorm_c_reference.h"
#include "tests/reference/tarvu_norm_reference.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

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
    const auto run = [=](auto process) {
      return [in, out, scales, scratch, parm, process] { expect_ok(process(&parm)); };
    };
    return Calls{run(tarvu_norm_process), run(reference::tarvu_norm_process)};
  };
  return {name, "default", "input", count, count, prepare};
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
    const auto run = [=](auto process) {
      return [in, out, gamma, beta, scratch, parm, process] {
        _NN_LAYERNORM_PARM block = parm;
        expect_ok(process(&block));
      };
    };
    return Calls{run(tarvu_layernorm_process), run(reference::tarvu_layernorm_process)};
  };
  return {name, "default", "input", count, count, prepare};
}

}  // namespace

void add_norm_workloads(std::vector<Workload> &suite) {
  suite.push_back(norm_by_position("l2norm_chan_1x512x38x38", 512, 38, 38));
  suite.push_back(layernorm("layernorm_196x768", 196, 768));
}

}  // namespace bench
