#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

constexpr uint32_t kLong = 8192;

/// Runs of one call; `make(arena, count)` returns the call. Callers by line and by plane multiply what a call costs, so
/// a call itself may cost little.
Case run(const std::string &kind, uint32_t count, const std::function<Call(Arena &, uint32_t)> &make) {
  Case what;
  what.kind = kind;
  what.shape = std::to_string(count);
  what.extent = count;
  what.unit = "element";
  what.units = count;
  what.fixed = 60;
  if (count != kLong) what.neighbour = what.kind + ", " + std::to_string(kLong);
  what.make = [=](Arena &arena) { return make(arena, count); };
  return what;
}

void add_runs(Cases &cases, const std::string &kind, const std::function<Call(Arena &, uint32_t)> &make) {
  add(cases, run(kind, kLong, make));
  for (const uint32_t count : {1u, 2u, 4u, 7u, 10u, 14u, 21u, 28u, 49u, 100u, 224u, 1000u}) {
    add(cases, run(kind, count, make));
  }
  add_doublings(cases, [&](const Shape &shape) { return run(kind, shape.width, make); }, {1, 1, 1, 128});
}

template <class T>
void add_to_floats(Cases &cases, const char *type, void (*convert)(const T *, float *, int16_t, uint32_t, float)) {
  for (const float scale : {0.97f, 1.0f}) {
    add_runs(cases, std::string(type) + " to float" + (scale == 1.0f ? ", power of two" : ""),
             [=](Arena &arena, uint32_t count) -> Call {
               const auto *from = reinterpret_cast<const T *>(random_bytes(arena, count * sizeof(T)));
               float *to = random_floats(arena, count, 1.0f);
               return [=] { convert(from, to, 4, count, scale); };
             });
  }
}

template <class T>
void add_from_floats(Cases &cases, const char *type, void (*convert)(const float *, T *, int16_t, uint32_t, float),
                     void (*convert_rounded)(const float *, T *, int16_t, uint32_t, uint32_t, float)) {
  const std::string kind = std::string("float to ") + type;
  add_runs(cases, kind, [=](Arena &arena, uint32_t count) -> Call {
    const float *from = random_floats(arena, count, 9.0f);
    auto *to = reinterpret_cast<T *>(zero_bytes(arena, count * sizeof(T)));
    return [=] { convert(from, to, 4, count, 0.97f); };
  });
  for (const uint32_t code : {3u, 5u, 6u, 8u}) {
    if (sizeof(T) == 4 && code != 3) continue;
    add_runs(cases, kind + ", rounding " + std::to_string(code), [=](Arena &arena, uint32_t count) -> Call {
      const float *from = random_floats(arena, count, 9.0f);
      auto *to = reinterpret_cast<T *>(zero_bytes(arena, count * sizeof(T)));
      return [=] { convert_rounded(from, to, 4, count, code, 0.97f); };
    });
  }
}

template <class T>
void add_zero_points(Cases &cases, const char *type,
                     void (*to_float)(const T *, float *, uint32_t, int16_t, int32_t, float),
                     void (*from_float)(const float *, T *, uint32_t, int16_t, int32_t, float)) {
  add_runs(cases, std::string(type) + " to float, zero point", [=](Arena &arena, uint32_t count) -> Call {
    const auto *from = reinterpret_cast<const T *>(random_bytes(arena, count * sizeof(T)));
    float *to = random_floats(arena, count, 1.0f);
    return [=] { to_float(from, to, count, 4, 101, 0.97f); };
  });
  add_runs(cases, std::string("float to ") + type + ", zero point", [=](Arena &arena, uint32_t count) -> Call {
    const float *from = random_floats(arena, count, 9.0f);
    auto *to = reinterpret_cast<T *>(zero_bytes(arena, count * sizeof(T)));
    return [=] { from_float(from, to, count, 4, 101, 0.97f); };
  });
}

}  // namespace

void add_convert_cases(Cases &cases) {
  add_to_floats(cases, "s8", int8tofloat_neon);
  add_to_floats(cases, "u8", uint8tofloat_neon);
  add_to_floats(cases, "s16", int16tofloat_neon);
  add_to_floats(cases, "u16", uint16tofloat_neon);
  add_to_floats(cases, "s32", int32tofloat_neon);
  add_from_floats(cases, "s8", floattoint8_neon, floattoint8_rnd_neon);
  add_from_floats(cases, "u8", floattouint8_neon, floattouint8_rnd_neon);
  add_from_floats(cases, "s16", floattoint16_neon, floattoint16_rnd_neon);
  add_from_floats(cases, "u16", floattouint16_neon, floattouint16_rnd_neon);
  add_from_floats(cases, "s32", floattoint32_neon, floattoint32_rnd_neon);
  add_zero_points(cases, "s8", int8tofloat_1d_neon, floattoint8_1d_neon);
  add_zero_points(cases, "u8", uint8tofloat_1d_neon, floattouint8_1d_neon);
  add_zero_points(cases, "s16", int16tofloat_1d_neon, floattoint16_1d_neon);
  add_zero_points(cases, "u16", uint16tofloat_1d_neon, floattouint16_1d_neon);
}

}  // namespace sweep
