#include "bench/bench.h"
#include "tests/support/formats.h"

namespace bench {
namespace {

constexpr uint32_t kWidth = 56;
constexpr uint32_t kHeight = 56;
constexpr uint32_t kChannels = 64;
constexpr size_t kElements = size_t{kWidth} * kHeight * kChannels;

void plain_reverse_lines(const int8_t *__restrict source, int8_t *__restrict destination, size_t lines, size_t width) {
  for (size_t line = 0; line < lines; ++line) {
    for (size_t x = 0; x < width; ++x) destination[x] = source[width - 1 - x];
    source += width;
    destination += width;
  }
}

Workload reverse_width(const char *name) {
  const auto prepare = [=] {
    const std::shared_ptr<int8_t[]> in = random_buffer<int8_t>(kElements, 21);
    const std::shared_ptr<int8_t[]> out = make_buffer<int8_t>(kElements);
    _NN_REVERSE_PARM parm{};
    parm.in_addr = address_of(in);
    parm.out_addr = address_of(out);
    parm.width = kWidth;
    parm.height = kHeight;
    parm.channel = kChannels;
    parm.batch = 1;
    parm.in_line_ofs = parm.out_line_ofs = kWidth;
    parm.in_channel_ofs = parm.out_channel_ofs = kWidth * kHeight;
    parm.in_batch_ofs = parm.out_batch_ofs = kElements;
    parm.in_fmt = parm.out_fmt = support::format(8, 4, 1);
    parm.axis = 3;
    const auto plain = [in, out] { plain_reverse_lines(in.get(), out.get(), kElements / kWidth, kWidth); };
    return Calls{[in, out, parm] { expect_ok(tarvu_reverse_process(&parm)); }, plain};
  };
  return {name, "default", "element", kElements, kElements, prepare};
}

}  // namespace

void add_reverse_workloads(std::vector<Workload> &suite) { suite.push_back(reverse_width("reverse_w_8b_1x64x56x56")); }

}  // namespace bench
