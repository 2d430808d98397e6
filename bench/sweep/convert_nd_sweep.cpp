#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// A tensor of lines: dense, or with lines apart by the next multiple of 64 elements. A dense line shorter than a block
/// is written over by the next one, so its elements are the work; a padded one stays, so its whole block is.
Case lines(const Type &type, bool to_float, uint32_t height, uint32_t width, bool is_padded) {
  const uint32_t block = type.bits == 8 ? 8 : 16;
  const uint32_t stride = is_padded ? u32(round_up(width + 1, 64)) : width;
  Case what;
  what.kind = to_float ? std::string(type.name) + " to float" : std::string("float to ") + type.name;
  what.shape = std::to_string(height) + " lines of " + std::to_string(width) + (is_padded ? " padded" : "");
  what.extent = width;
  what.unit = "element";
  what.units = static_cast<double>(height) * (is_padded ? std::max(width, block) : width);
  what.make = [=](Arena &arena) -> Call {
    const size_t count = size_t{height} * stride;
    const uint8_t *integers = random_bytes(arena, count * type.bytes());
    const float *floats = random_floats(arena, count, 9.0f);
    uint8_t *to = zero_bytes(arena, count * 4);
    const std::array<uint32_t, 6> shape = {width, height, 1, 1, 1, 1};
    const std::array<uint32_t, 6> strides = {
        1, stride, stride * height, stride * height, stride * height, stride * height};
    const _NN_FMT fmt = format(type, 4);
    const _NN_SCALE factor = scale(31, 5);
    if (to_float) {
      return [=] {
        tarvu_fixtofloat_nd_neon(integers, reinterpret_cast<float *>(to), shape.data(), strides.data(), &fmt, &factor,
                                 101);
      };
    }
    return [=] { tarvu_floattofix_nd_neon(floats, to, shape.data(), strides.data(), &fmt, &factor, 101); };
  };
  return what;
}

}  // namespace

void add_convert_nd_cases(Cases &cases) {
  for (const Type &type : {kS8, kU8, kS16, kU16}) {
    for (const bool to_float : {true, false}) {
      const Case wide = lines(type, to_float, 4, 1024, false);
      add(cases, wide);
      for (const uint32_t width : {1u, 2u, 3u, 4u, 7u, 8u, 10u, 13u, 14u, 20u, 21u, 24u, 28u, 49u, 56u, 100u, 112u}) {
        for (const bool is_padded : {false, true}) {
          Case what = lines(type, to_float, std::max(1u, 4096 / width), width, is_padded);
          what.neighbour = wide.name();
          add(cases, std::move(what));
        }
      }
      add_doublings(cases,
                    [&](const Shape &shape) {
                      Case what = lines(type, to_float, shape.height, shape.width, false);
                      what.neighbour = wide.name();
                      return what;
                    },
                    {1, 1, 14, 28});
    }
  }
}

}  // namespace sweep
