#include "tests/fuzz/trial.h"

#include <bit>
#include <cmath>

namespace fuzz {

using support::Fault;
using support::GuardedMemory;

std::set<std::string_view> &called_names() {
  static std::set<std::string_view> names;
  return names;
}

const GuardedMemory &make_memory(Trial &trial, size_t bytes, Address address) {
  const Fault fault = one_of(trial.source, {Fault::kBehind, Fault::kInFront});
  size_t misalign = one_of(trial.source, {0u, 1u, 0u, below(trial.source, 16)});
  if (address == Address::kFloats) misalign = misalign % 4 * 4;
  const size_t alignment = address == Address::kFloats ? 4 : 1;
  trial.memories.emplace_back(bytes, support::Placement{fault, alignment, misalign});
  return trial.memories.back();
}

const GuardedMemory &make_tensor(Trial &trial, const char *name, size_t bytes, size_t element_bytes, float reach) {
  const bool floats = element_bytes == 4;
  const GuardedMemory &memory = make_memory(trial, bytes, floats ? Address::kFloats : Address::kAny);
  if (floats && bytes % 4 == 0) {
    fill_floats(trial.source, memory.data(), bytes / 4, reach);
  } else {
    fill_bytes(trial.source, memory.data(), bytes);
  }
  trial.run.track(memory, name, element_of(element_bytes));
  return memory;
}

const GuardedMemory &make_floats(Trial &trial, const char *name, size_t count, float reach) {
  return make_tensor(trial, name, 4 * count, 4, reach);
}

const GuardedMemory &make_scratch(Trial &trial, size_t bytes) {
  const GuardedMemory &memory = make_memory(trial, bytes, Address::kFloats);
  support::Random random(below(trial.source, 256));
  random.fill(memory.data(), bytes);
  random.fill_floats(memory.data(), bytes / 4, -300.0f, 300.0f);
  trial.run.track_scratch(memory);
  return memory;
}

int64_t result_bits(float value) { return std::isnan(value) ? 0x7FC00000 : std::bit_cast<uint32_t>(value); }

}  // namespace fuzz
