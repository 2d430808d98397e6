#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

Case planes(const Type &type, const Shape &shape) {
  Case what;
  what.kind = std::string("planes of ") + type.name;
  what.shape = name_of(shape);
  what.extent = u32(shape.plane());
  what.unit = "input";
  what.units = static_cast<double>(shape.item());
  what.make = [=](Arena &arena) {
    _NN_PRELU_PARM parm{};
    parm.in_addr = address(random_bytes(arena, shape.item() * type.bytes()));
    parm.out_addr = address(zero_bytes(arena, shape.item() * type.bytes()));
    parm.weight_addr = address(random_bytes(arena, shape.channels));
    parm.width = shape.width;
    parm.height = shape.height;
    parm.channels = shape.channels;
    parm.num = 1;
    parm.in_fmt = format(type, 4);
    parm.shift = 7;
    return call_of(tarvu_prelu_process, parm);
  };
  return what;
}

Case run(const Type &type, uint32_t count) {
  Case what;
  what.kind = std::string("run of ") + type.name;
  what.shape = std::to_string(count);
  what.extent = count;
  what.unit = "input";
  what.units = count;
  what.fixed = 60;
  what.neighbour = std::string("planes of ") + type.name + ", 1x2x56x112";
  what.make = [=](Arena &arena) -> Call {
    const uint8_t *from = random_bytes(arena, count * type.bytes());
    uint8_t *to = zero_bytes(arena, count * type.bytes());
    if (type.bits == 8) {
      return [=] {
        tarvu_prelu_neon_func_int8(reinterpret_cast<const int8_t *>(from), reinterpret_cast<int8_t *>(to), -77, count,
                                   7);
      };
    }
    return [=] {
      tarvu_prelu_neon_func_int16(reinterpret_cast<const int16_t *>(from), reinterpret_cast<int16_t *>(to), -77, count,
                                  7);
    };
  };
  return what;
}

/// A slope looked up for each element: one a channel.
Case looked_up(const Type &type, uint32_t channels, uint32_t plane) {
  const auto count = static_cast<int32_t>(channels * plane);
  Case what;
  what.kind = std::string("looked-up slopes, ") + type.name;
  what.shape = std::to_string(channels) + " planes of " + std::to_string(plane);
  what.extent = plane;
  what.unit = "input";
  what.units = count;
  what.make = [=](Arena &arena) -> Call {
    const uint8_t *from = random_bytes(arena, size_t{channels} * plane * type.bytes());
    uint8_t *to = zero_bytes(arena, size_t{channels} * plane * type.bytes());
    const auto *slopes = reinterpret_cast<const int8_t *>(random_bytes(arena, channels));
    if (type.bits == 8) {
      return [=] {
        tarvu_prelu_c_func_int8(reinterpret_cast<const int8_t *>(from), slopes, reinterpret_cast<int8_t *>(to),
                                channels * plane, 7, count, 1, plane);
      };
    }
    return [=] {
      tarvu_prelu_c_func_int16(reinterpret_cast<const int16_t *>(from), slopes, reinterpret_cast<int16_t *>(to),
                               channels * plane, 7, count, 1, plane);
    };
  };
  return what;
}

}  // namespace

void add_prelu_cases(Cases &cases) {
  for (const Type &type : {kS8, kS16}) {
    const Case wide = planes(type, {1, 2, 56, 112});
    add(cases, wide);
    const auto make = [&](const Shape &shape) {
      Case what = planes(type, shape);
      what.neighbour = wide.name();
      return what;
    };
    for (const uint32_t side : {1u, 2u, 3u, 4u, 5u, 7u, 10u, 13u, 14u, 20u, 21u, 28u, 49u, 56u, 100u}) {
      Case what = make({1, std::clamp(8192 / (side * side), 1u, 512u), side, side});
      if (side == 1) {
        what.neighbour.clear();
        what.figure = type.bits == 8 ? 1.1 : 1.6;
        what.limit = type.bits == 8 ? 1 : 1.5;
        what.why = "slopes loaded as the elements are, eight to a vector";
      }
      add(cases, std::move(what));
    }
    add_doublings(cases, make, {1, 8, 14, 14});
    add_doublings(cases, make, {1, 64, 3, 3});
    for (const uint32_t count : kExtents) add(cases, run(type, count));
    const Case wide_look_up = looked_up(type, 2, 56 * 112);
    add(cases, wide_look_up);
    for (const uint32_t plane : {1u, 4u, 9u, 49u, 196u, 784u}) {
      Case what = looked_up(type, std::clamp(8192 / plane, 1u, 512u), plane);
      what.neighbour = wide_look_up.name();
      add(cases, std::move(what));
    }
  }
}

}  // namespace sweep
