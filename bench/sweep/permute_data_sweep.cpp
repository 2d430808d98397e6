#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

Case permute(bool in, uint32_t lanes, uint32_t bytes) {
  Case what;
  what.kind = in ? "to planes" : "to lanes";
  what.shape = std::to_string(bytes / lanes) + " groups of " + std::to_string(lanes);
  what.extent = lanes;
  what.unit = "byte";
  what.units = bytes;
  what.make = [=](Arena &arena) -> Call {
    const uint8_t *from = random_bytes(arena, bytes);
    uint8_t *to = zero_bytes(arena, bytes);
    return [=] { (in ? permute_data_in : permute_data_out)(from, to, lanes, bytes); };
  };
  return what;
}

}  // namespace

void add_permute_data_cases(Cases &cases) {
  for (const bool in : {true, false}) {
    const Case wide = permute(in, 64, 8192);
    add(cases, wide);
    for (const uint32_t lanes : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 10u, 13u, 14u, 16u, 20u, 21u, 24u, 28u, 32u, 49u, 100u}) {
      for (const uint32_t groups : {7u, 49u, 8192 / lanes}) {
        Case what = permute(in, lanes, lanes * groups);
        if (lanes == 3 && groups > 49) {
          what.figure = in ? 0.23 : 0.36;
          what.limit = 1;
          what.why = "loads and stores that split three ways";
        } else {
          what.neighbour = wide.name();
        }
        add(cases, std::move(what));
      }
    }
    add_doublings(cases,
                  [&](const Shape &shape) {
                    Case what = permute(in, shape.width, shape.width * shape.height);
                    what.neighbour = wide.name();
                    return what;
                  },
                  {1, 1, 512, 12});
  }
}

}  // namespace sweep
