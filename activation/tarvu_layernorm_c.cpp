// Layer normalisation with statistics in double.
#include "activation/layernorm_block.h"
#include "activation/layernorm_runs.h"
#include "convert/format_entry.h"
#include "frame/memory.h"
#include "tarvu.h"

namespace tarvu {
namespace {

/// Chains of fused steps that go side by side, each with kRunLanes runs: as many as hide the latency of a step.
constexpr int kChains = 4;
constexpr size_t kRunsAtOnce = size_t{kChains} * kRunLanes;

/// The conversion to integers treats its last elements, fewer than this, in another way than those before.
constexpr size_t kConversionStep = 16;

/// Runs of floats.
void normalise_floats(const float *in, float *out, size_t count_of_runs, const LayernormRuns &runs) {
  size_t run = 0;
  for (; run + kRunsAtOnce <= count_of_runs; run += kRunsAtOnce) {
    normalise_floats_side_by_side<kChains>(in + run * runs.length, out + run * runs.length, runs);
  }
  for (; run + kRunLanes <= count_of_runs; run += kRunLanes) {
    normalise_floats_side_by_side<1>(in + run * runs.length, out + run * runs.length, runs);
  }
  for (; run < count_of_runs; ++run) normalise_one(in + run * runs.length, out + run * runs.length, runs);
}

/// Runs of a tensor of integers without a pass over floats in between: if both formats are integers and no array lies over
/// another. Returns how many of the first runs are done; their elements fill whole steps of the conversion.
size_t normalise_integers(const _NN_LAYERNORM_PARM &parm, uint32_t count, size_t count_of_runs, LayernormRuns runs) {
  size_t done = count_of_runs / kRunsAtOnce * kRunsAtOnce;
  while (done * runs.length % kConversionStep != 0) done -= kRunsAtOnce;
  const Memory scratch{parm.work_buffer, 8 * uint64_t{count}};
  const Memory gamma{parm.gamma_addr, runs.gamma.present ? runs.length * sizeof(float) : 0};
  const Memory beta{parm.beta_addr, runs.beta.present ? runs.length * sizeof(float) : 0};
  bool suitable = false;
  with_element_type(parm.in_fmt, [&](auto in_element) {
    with_element_type(parm.out_fmt, [&](auto out_element) {
      using In = decltype(in_element);
      using Out = decltype(out_element);
      const Memory source{parm.in_addr, uint64_t{count} * sizeof(In)};
      const Memory destination{parm.out_addr, uint64_t{count} * sizeof(Out)};
      suitable = lie_apart(destination, source) || are_same(destination, source);
      for (const Memory &written : {scratch, destination}) {
        suitable = suitable && lie_apart(written, gamma) && lie_apart(written, beta);
      }
      suitable = suitable && lie_apart(scratch, source) && lie_apart(scratch, destination);
      if (!suitable) return;
      runs.in_multiplier = multiplier_to_float(parm.in_fmt.frac_bits, scale_of(parm.in_scale));
      runs.out_multiplier = rounded_multiplier_from_float(parm.out_fmt.frac_bits, scale_of(parm.out_scale));
      for (size_t run = 0; run < done; run += kRunsAtOnce) {
        const size_t start = run * runs.length;
        normalise_integers_side_by_side<In, Out, kChains>(pointer<const In>(parm.in_addr) + start,
                                                          pointer<Out>(parm.out_addr) + start,
                                                          pointer<double>(scratch.address), runs);
      }
    });
  });
  return suitable ? done : 0;
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_layernorm_process(_NN_LAYERNORM_PARM *parm) {
  tarvu::write_run_sizes(*parm);
  const tarvu::LayernormFloats floats(*parm);
  const tarvu::LayernormRuns runs{parm->inner_size,
                                  static_cast<double>(parm->eps),
                                  tarvu::LearnedArray(parm->gamma_addr),
                                  tarvu::LearnedArray(parm->beta_addr),
                                  1.0f,
                                  1.0f};
  const size_t count_of_runs = runs.length == 0 ? 0 : size_t{parm->batch} * parm->outer_size;
  // Kept: with the batch inside the run every batch item is a run of the whole tensor, each one starting where the one before
  // ended. In scratch memory a run then reads the results of the one before, so they go one after the other.
  const bool runs_fill_the_tensor = count_of_runs * runs.length == floats.count;
  const size_t done = runs_fill_the_tensor ? tarvu::normalise_integers(*parm, floats.count, count_of_runs, runs) : 0;

  const auto start = static_cast<uint32_t>(done * runs.length);
  const auto bytes_before = [start](const _NN_FMT &fmt) {
    return start * static_cast<uint64_t>(tarvu::width_bits(fmt) / 8);
  };
  if (floats.in_converted) {
    tarvu_fixtofloat_neon(tarvu::pointer<const void>(parm->in_addr + bytes_before(parm->in_fmt)), floats.in + start,
                          floats.count - start, &parm->in_fmt, &parm->in_scale);
  }
  if (runs_fill_the_tensor) {
    tarvu::normalise_floats(floats.in + start, floats.out + start, count_of_runs - done, runs);
  } else {
    for (size_t run = 0; run < count_of_runs; ++run) {
      tarvu::normalise_one(floats.in + run * runs.length, floats.out + run * runs.length, runs);
    }
  }
  if (floats.out_converted) {
    tarvu_floattofix_rnd_neon(floats.out + start, tarvu::pointer<void>(parm->out_addr + bytes_before(parm->out_fmt)),
                              floats.count - start, &parm->out_fmt, &parm->out_scale, tarvu::kLayernormRoundingCode);
  }
  return QX_OK;
}
