#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Change {
  const char *name;
  Type in;
  int in_frac_bits;
  Type out;
  int out_frac_bits;
};

constexpr Change kChanges[] = {{"s8 to s8, left", kS8, 3, kS8, 5},     {"s8 to s8, right", kS8, 5, kS8, 3},
                               {"u8 to s8, equal", kU8, 4, kS8, 4},    {"u8 to s8, left", kU8, 3, kS8, 4},
                               {"s8 to u8, right", kS8, 5, kU8, 4},    {"s8 to s16", kS8, 4, kS16, 9},
                               {"u8 to u16", kU8, 4, kU16, 9},         {"s16 to s8", kS16, 8, kS8, 5},
                               {"u16 to u8", kU16, 8, kU8, 5},         {"s16 to s16, left", kS16, 8, kS16, 10},
                               {"s16 to s16, right", kS16, 8, kS16, 6}};

constexpr uint32_t kLong = 8192;

/// Runs of one call. Callers by line and by plane multiply what a call costs, so a call itself may cost little.
Case run(const Change &change, uint32_t count) {
  Case what;
  what.kind = change.name;
  what.shape = std::to_string(count);
  what.extent = count;
  what.unit = "element";
  what.units = count;
  what.fixed = 60;
  if (count != kLong) what.neighbour = what.kind + ", " + std::to_string(kLong);
  what.make = [=](Arena &arena) -> Call {
    const uint8_t *from = random_bytes(arena, count * change.in.bytes());
    uint8_t *to = zero_bytes(arena, count * change.out.bytes());
    const _NN_FMT in = format(change.in, change.in_frac_bits);
    const _NN_FMT out = format(change.out, change.out_frac_bits);
    return [=] { tarvu_convert_fmt_c(from, to, count, &in, &out, nullptr, nullptr); };
  };
  return what;
}

}  // namespace

void add_reformat_cases(Cases &cases) {
  for (const Change &change : kChanges) {
    add(cases, run(change, kLong));
    for (const uint32_t count : kExtents) {
      if (count != 20 && count != 56 && count != 3 && count != 13) add(cases, run(change, count));
    }
    add_doublings(cases, [&](const Shape &shape) { return run(change, shape.width); }, {1, 1, 1, 512});
  }
}

}  // namespace sweep
