#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

Case table(uint32_t batch, uint32_t channels, int frac_bits) {
  Case what;
  what.kind = std::to_string(frac_bits) + " fraction bits";
  what.shape = std::to_string(batch) + " runs of " + std::to_string(channels);
  what.extent = channels;
  what.unit = "input";
  what.units = static_cast<double>(batch) * channels;
  what.make = [=](Arena &arena) {
    const size_t count = size_t{batch} * channels;
    auto *in = reinterpret_cast<int16_t *>(random_bytes(arena, 2 * count));
    // A span of 32 units, so that no difference wraps.
    for (size_t i = 0; i < count; ++i) in[i] = static_cast<int16_t>(in[i] >> (11 - frac_bits));
    _NN_SOFTMAX_PARM parm{};
    parm.in_addr = address(in);
    parm.out_addr = address(zero_bytes(arena, 2 * count));
    parm.channel = u16(channels);
    parm.batch = u16(batch);
    parm.in_fmt = format(kS16, frac_bits);
    return call_of(vendor_softmax_process, parm);
  };
  return what;
}

}  // namespace

void add_softmax_table_cases(Cases &cases) {
  for (const int frac_bits : {6, 8, 4}) {
    const Case wide = table(8, 1000, frac_bits);
    add(cases, wide);
    for (const uint32_t channels : kExtents) {
      Case what = table(std::clamp(4096 / channels, 1u, 64u), channels, frac_bits);
      // A run has a largest element, which takes a reduction.
      what.extra = 20.0 * std::clamp(4096 / channels, 1u, 64u);
      what.why = "and 20 instructions for each run";
      what.neighbour = wide.name();
      add(cases, std::move(what));
    }
    add_doublings(cases,
                  [&](const Shape &shape) {
                    Case what = table(shape.batch, shape.channels, frac_bits);
                    what.extra = 20.0 * shape.batch;
                    what.why = "and 20 instructions for each run";
                    what.neighbour = wide.name();
                    return what;
                  },
                  {8, 100, 1, 1});
  }
}

}  // namespace sweep
