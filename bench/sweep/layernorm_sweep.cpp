#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

struct Types {
  Type in;
  Type out;
};

Case layernorm(const Types &types, bool known_mean, int32_t axis, const Shape &shape) {
  const size_t length = axis == 3 ? shape.width : axis == 2 ? shape.plane() : shape.item();
  Case what;
  what.kind = std::string(known_mean ? "known mean, " : "") + "axis " + std::to_string(axis) + ", " + types.in.name +
              " to " + types.out.name;
  what.shape = name_of(shape);
  what.extent = u32(length);
  what.unit = "input";
  what.units = static_cast<double>(shape.elements());
  what.make = [=](Arena &arena) -> Call {
    _NN_LAYERNORM_PARM parm{};
    parm.in_addr = address(random_elements(arena, shape.elements(), types.in.bits));
    parm.out_addr = address(zero_bytes(arena, shape.elements() * types.out.bytes()));
    parm.work_buffer = address(zero_bytes(arena, 8 * shape.elements()));
    parm.gamma_addr = address(random_floats(arena, length, 1.5f));
    parm.beta_addr = address(random_floats(arena, length, 0.5f));
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_fmt = format(types.in, types.in.bits == 32 ? 0 : 5);
    parm.out_fmt = format(types.out, types.out.bits == 32 ? 0 : 5);
    parm.in_scale = scale(181, 7);
    parm.out_scale = scale(77, 6);
    parm.eps = 1e-5f;
    parm.axis = axis;
    const auto process = known_mean ? tarvu_layernorm_process_neon : tarvu_layernorm_process;
    return [=] {
      _NN_LAYERNORM_PARM block = parm;
      bench::expect_ok(process(&block));
    };
  };
  return what;
}

}  // namespace

void add_layernorm_cases(Cases &cases) {
  for (const Types &types :
       {Types{kS8, kS8}, Types{kU8, kU8}, Types{kS16, kS16}, Types{kF32, kF32}, Types{kF32, kS8}}) {
    for (const bool known_mean : {false, true}) {
      const Case wide = layernorm(types, known_mean, 3, {1, 1, 16, 768});
      Case itself = wide;
      if (types.in.bits == 32 && !known_mean) {
        itself.figure = 9.6;
        itself.why = "sixteen chains side by side";
      }
      add(cases, itself);
      const auto held = [&](Case what, size_t runs) {
        what.neighbour = wide.name();
        what.extra = 60.0 * static_cast<double>(runs);
        what.why = "and 60 instructions for each run's root and means";
        if (types.in.bits == 32 && !known_mean) {
          what.neighbour.clear();
          what.figure = 9.6;
        }
        return what;
      };
      for (const uint32_t runs : {1u, 2u, 3u, 4u, 7u, 8u, 10u, 14u, 15u, 20u, 28u}) {
        add(cases, held(layernorm(types, known_mean, 3, {1, 1, runs, 768}), runs));
      }
      for (const uint32_t width : kExtents) {
        if (width == 1 || width == 1000) continue;
        const uint32_t runs = std::clamp(4096 / width, 8u, 196u);
        add(cases, held(layernorm(types, known_mean, 3, {1, 1, runs, width}), runs));
      }
      add(cases, held(layernorm(types, known_mean, 2, {1, 16, 7, 7}), 16));
      add(cases, held(layernorm(types, known_mean, 1, {4, 16, 7, 7}), 4));
      add_doublings(cases,
                    [&](const Shape &shape) {
                      return held(layernorm(types, known_mean, 3, shape), shape.channels * shape.height);
                    },
                    {1, 2, 14, 100});
    }
  }
}

}  // namespace sweep
