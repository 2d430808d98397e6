#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Types {
  Type in;
  Type out;
};

Case norm(const Types &types, bool whole_item, bool shared_scale, const Shape &shape) {
  Case what;
  what.kind = std::string(whole_item ? "whole item" : "by position") + (shared_scale ? ", shared scale, " : ", ") +
              types.in.name + " to " + types.out.name;
  what.shape = name_of(shape);
  what.extent = u32(shape.plane());
  what.unit = "input";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    _NN_NORM_PARM parm{};
    parm.in_addr = address(random_elements(arena, shape.elements(), types.in.bits));
    parm.out_addr = address(zero_bytes(arena, shape.elements() * types.out.bytes()));
    parm.work_buffer = address(zero_bytes(arena, 8 * shape.item()));
    parm.scale_addr = address(random_floats(arena, shape.channels, 10.0f));
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_batch_ofs = u32(shape.item() * types.in.bytes());
    parm.out_batch_ofs = u32(shape.item() * types.out.bytes());
    parm.in_fmt = format(types.in, types.in.bits == 32 ? 0 : 3);
    parm.out_fmt = format(types.out, types.out.bits == 32 ? 0 : 6);
    parm.in_scale = scale(181, 7);
    parm.out_scale = scale(77, 6);
    parm.norm_whole_item = whole_item ? 1 : 0;
    parm.shared_scale = shared_scale ? 1 : 0;
    parm.eps = 1e-10f;
    return call_of(tarvu_norm_process, parm);
  };
  return what;
}

}  // namespace

void add_norm_cases(Cases &cases) {
  for (const Types &types :
       {Types{kS8, kS8}, Types{kU8, kU8}, Types{kS16, kS16}, Types{kF32, kF32}, Types{kS8, kF32}}) {
    for (const bool whole_item : {false, true}) {
      for (const bool shared_scale : {false, true}) {
        const Case wide = norm(types, whole_item, shared_scale, {1, 16, 16, 32});
        add(cases, wide);
        const auto held = [&](const Shape &shape) {
          Case what = norm(types, whole_item, shared_scale, shape);
          what.neighbour = wide.name();
          // The last positions of a plane take exact roots, two to a vector of doubles.
          if (!whole_item) {
            what.extra = 25.0 * static_cast<double>(shape.batch * (shape.plane() % 16));
            what.why = "and 25 instructions for each exact root of the last positions";
          }
          return what;
        };
        for (const uint32_t side : {1u, 2u, 3u, 4u, 7u, 10u, 14u, 20u, 38u}) {
          Case what = held({1, std::clamp(8192 / (side * side), 4u, 512u), side, side});
          if (side == 1 && !whole_item) {
            what.neighbour.clear();
            what.figure = 10;
            what.limit = 1;
            what.why = "a chain over the channels, then one factor for all";
          }
          add(cases, std::move(what));
        }
        Case items = held({8, 64, 3, 3});
        items.extra += 8 * 60;
        items.why = "and 60 instructions for each item";
        add(cases, std::move(items));
        add_doublings(cases, held, {2, 16, 14, 14});
      }
    }
  }
}

}  // namespace sweep
