#include "bench/sweep/sweep.h"

#include <algorithm>

#include "bench/bench.h"

namespace sweep {
namespace {

constexpr size_t kRoomBehind = 256;

}  // namespace

uint8_t *zero_bytes(Arena &arena, size_t count) {
  arena.pieces.push_back(bench::make_buffer<uint8_t>(count + kRoomBehind));
  return arena.pieces.back().get();
}

uint8_t *random_bytes(Arena &arena, size_t count) {
  uint8_t *bytes = zero_bytes(arena, count);
  support::Random random(arena.seed++);
  for (size_t i = 0; i + 8 <= count + kRoomBehind; i += 8) {
    const uint64_t eight = random.next();
    std::memcpy(bytes + i, &eight, sizeof eight);
  }
  return bytes;
}

float *random_floats(Arena &arena, size_t count, float limit) {
  uint8_t *bytes = zero_bytes(arena, count * sizeof(float));
  support::Random(arena.seed++).fill_floats(bytes, count, -limit, limit);
  return reinterpret_cast<float *>(bytes);
}

uint8_t *random_indices(Arena &arena, size_t count, uint32_t bits, uint32_t bound) {
  uint8_t *bytes = zero_bytes(arena, count * bits / 8);
  support::Random random(arena.seed++);
  for (size_t i = 0; i < count; ++i) {
    const uint32_t index = random.below(bound);
    std::memcpy(bytes + i * bits / 8, &index, bits / 8);
  }
  return bytes;
}

uint8_t *random_elements(Arena &arena, size_t count, uint32_t bits) {
  if (bits == 32) return reinterpret_cast<uint8_t *>(random_floats(arena, count, 4.0f));
  return random_bytes(arena, count * bits / 8);
}

std::string name_of(const Shape &shape) {
  return std::to_string(shape.batch) + "x" + std::to_string(shape.channels) + "x" + std::to_string(shape.height) + "x" +
         std::to_string(shape.width);
}

void add(Cases &cases, Case what) {
  const auto same = [&](const Case &other) { return other.kind == what.kind && other.shape == what.shape; };
  if (std::none_of(cases.cases.begin(), cases.cases.end(), same)) cases.cases.push_back(std::move(what));
}

void add_doublings(Cases &cases, const std::function<Case(const Shape &)> &make, const Shape &shape) {
  const Case once = make(shape);
  add(cases, once);
  const std::pair<const char *, uint32_t Shape::*> axes[] = {
      {"batch", &Shape::batch}, {"channels", &Shape::channels}, {"height", &Shape::height}, {"width", &Shape::width}};
  for (const auto &[axis, extent] : axes) {
    if (shape.*extent == 1) continue;
    Shape doubled = shape;
    doubled.*extent *= 2;
    Case twice = make(doubled);
    if (twice.neighbour.empty() && !twice.calls && twice.figure == 0) twice.neighbour = once.name();
    add(cases, twice);
    cases.doublings.push_back({axis, once.name(), twice.name()});
  }
}

_NN_FMT format(const Type &type, int frac_bits) {
  return {static_cast<int8_t>(frac_bits), static_cast<int8_t>(static_cast<int>(type.bits - type.sign_bits) - frac_bits),
          static_cast<int8_t>(type.sign_bits), 0};
}

_NN_SCALE scale(int32_t value, int shift) { return {value, static_cast<int8_t>(shift), {0, 0, 0}}; }

}  // namespace sweep
