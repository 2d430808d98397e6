#include "bench/bench.h"
#include "tests/support/formats.h"
#include "tests/tensor/heap_watch.h"

namespace bench {
namespace {

constexpr uint16_t kExtents[3] = {64, 56, 56};
constexpr uint16_t kTuples = 4096;

void plain_gather_nd(const int8_t *in, const int8_t *indices, int8_t *__restrict out, size_t tuples, size_t coordinates,
                     const uint32_t *strides) {
  for (size_t t = 0; t < tuples; ++t, indices += coordinates) {
    uint32_t offset = 0;
    for (size_t i = 0; i < coordinates; ++i) {
      offset += static_cast<uint32_t>(static_cast<int>(static_cast<float>(indices[i]))) * strides[i];
    }
    out[t] = in[offset];
  }
}

/// Single elements by three coordinates. What the operator leaves on the heap goes back after each call: the figure is
/// that of a heap with free blocks.
Workload gather_nd(const char *name) {
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(size_t{64} * 56 * 56, 41);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kTuples);
    const std::shared_ptr<int8_t[]> indices = make_buffer<int8_t>(size_t{3} * kTuples);
    const std::shared_ptr<float[]> work = make_buffer<float>(size_t{3} * kTuples);
    support::Random random(42);
    for (size_t i = 0; i < size_t{3} * kTuples; ++i) indices[i] = static_cast<int8_t>(random.below(kExtents[i % 3]));
    _NN_GATHERND_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.ind_addr = address_of(indices);
    parm.work_buffer = address_of(work);
    parm.in_channel = kExtents[0];
    parm.in_height = kExtents[1];
    parm.in_width = kExtents[2];
    parm.ind_height = kTuples;
    parm.ind_width = 3;
    parm.out_width = kTuples;
    parm.in_fmt = parm.out_fmt = support::format(8, 4, 1);
    parm.ind_fmt = support::format(8, 0, 1);
    const auto ours = [in, out, indices, work, parm] {
      const selection_test::HeapWatch watch;
      expect_ok(tarvu_gathernd_process(&parm));
    };
    const std::vector<uint32_t> strides = {uint32_t{kExtents[1]} * kExtents[2], kExtents[2], 1};
    const auto plain = [in, out, indices, strides] {
      plain_gather_nd(in.get(), indices.get(), out.get(), kTuples, strides.size(), strides.data());
    };
    return Calls{ours, plain};
  };
  return {name, "default", "tuple", kTuples, size_t{3} * kTuples, prepare};
}

}  // namespace

void add_gathernd_workloads(std::vector<Workload> &suite) { suite.push_back(gather_nd("gathernd_8b_64x56x56_i4096")); }

}  // namespace bench
