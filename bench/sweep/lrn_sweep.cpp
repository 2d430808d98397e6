#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Types {
  Type in;
  Type out;
};

Case lrn(const Types &types, uint32_t window, const Shape &shape) {
  Case what;
  what.kind = "window " + std::to_string(window) + ", " + types.in.name + " to " + types.out.name +
              (shape.batch > 1 ? ", items" : "");
  what.shape = name_of(shape);
  what.extent = u32(shape.plane());
  what.unit = "input";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) {
    const size_t all = shape.elements();
    // Every item is converted as if all the rest of the tensor stood behind it.
    _NN_LRN_PARM parm{};
    parm.in_addr = address(random_elements(arena, 2 * all, types.in.bits));
    parm.out_addr = address(zero_bytes(arena, 2 * all * types.out.bytes()));
    parm.work_buffer =
        address(zero_bytes(arena, 4 * (all + (shape.channels + window - 1) * shape.plane() + shape.item() + all)));
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_batch_ofs = u32(shape.item() * types.in.bytes());
    parm.out_batch_ofs = u32(shape.item() * types.out.bytes());
    parm.in_fmt = format(types.in, types.in.bits == 32 ? 0 : types.in.bits == 16 ? 8 : 4);
    parm.out_fmt = format(types.out, types.out.bits == 32 ? 0 : types.out.bits == 16 ? 12 : 4);
    parm.in_scale = parm.out_scale = scale(31, 5);
    parm.local_size = window;
    parm.lrn_k = 1;
    parm.alpha = 1e-4f;
    parm.beta = 0.75f;
    return call_of(tarvu_lrn_process, parm);
  };
  return what;
}

}  // namespace

void add_lrn_cases(Cases &cases) {
  for (const Types &types : {Types{kS16, kS16}, Types{kS8, kS8}, Types{kU8, kU8}, Types{kF32, kF32}}) {
    for (const uint32_t window : {3u, 5u, 9u}) {
      if (window != 5 && types.in.bits == 32) continue;
      const Case wide = lrn(types, window, {1, 16, 28, 28});
      add(cases, wide);
      const auto held = [&](const Shape &shape) {
        Case what = lrn(types, window, shape);
        if (what.name() != wide.name()) what.neighbour = wide.name();
        return what;
      };
      for (const uint32_t side : {1u, 2u, 3u, 4u, 7u, 10u, 13u, 14u, 20u, 27u, 55u}) {
        add(cases, held({1, std::clamp(8192 / (side * side), 5u, 256u), side, side}));
      }
      if (window != 5) continue;
      for (const uint32_t batch : {2u, 4u, 8u}) {
        Case what = held({batch, 16, 14, 14});
        what.why = "one item, of which each is converted once";
        add(cases, std::move(what));
      }
      add_doublings(cases, held, {1, 16, 14, 14});
      add_doublings(cases, held, {2, 16, 14, 14});
    }
  }
}

}  // namespace sweep
