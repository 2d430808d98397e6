#include <algorithm>

#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

constexpr size_t kMillion = size_t{1} << 20;

template <class T>
void plain_reformat(const T *__restrict source, int8_t *__restrict destination, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t shifted = sizeof(T) == 2 ? source[i] >> 3 : source[i] * 4;
    destination[i] = static_cast<int8_t>(std::clamp(shifted, -128, 127));
  }
}

/// A saturating change of format to signed 8 bits: a shift right by three from 16 bits, left by two from 8.
template <class T>
Workload reformat(const char *name, const _NN_FMT &in_fmt, const _NN_FMT &out_fmt) {
  const auto prepare = [=] {
    const std::shared_ptr<T[]> in = random_buffer<T>(kMillion, 11);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kMillion);
    const auto ours = [=] {
      tarvu_convert_fmt_c(in.get(), out.get(), uint32_t{kMillion}, &in_fmt, &out_fmt, nullptr, nullptr);
    };
    const auto plain = [in, out] { plain_reformat(in.get(), out.get(), kMillion); };
    return Calls{ours, plain};
  };
  return {name, "default", "input", kMillion, kMillion * sizeof(T), prepare};
}

}  // namespace

void add_convert_workloads(std::vector<Workload> &suite) {
  using support::format;
  suite.push_back(reformat<int16_t>("reformat_s16_s8_1M", format(16, 8, 1), format(8, 5, 1)));
  suite.push_back(reformat<int8_t>("reformat_s8_s8_1M", format(8, 3, 1), format(8, 5, 1)));
}

}  // namespace bench
