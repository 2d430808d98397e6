/// \file trial.h
/// One case: its memory, each piece exactly as large as the call may use, and the comparison of product and twin.
#ifndef TARVU_TESTS_FUZZ_TRIAL_H
#define TARVU_TESTS_FUZZ_TRIAL_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "tests/fuzz/source.h"
#include "tests/support/guarded_memory.h"
#include "tests/support/twin_run.h"

/// Name, product and twin of an exported function.
#define TARVU_TWINS(function) #function, ::function, reference::function

namespace fuzz {

/// The exported functions that cases of this process have called so far.
std::set<std::string_view> &called_names();

struct Trial {
  Source &source;
  std::deque<support::GuardedMemory> memories;
  support::TwinRun run;
};

/// How the start of a piece of memory may lie.
enum class Address { kAny, kFloats };

/// Memory of exactly these bytes, one end of it at a page that faults. Neither filled nor tracked.
const support::GuardedMemory &make_memory(Trial &trial, size_t bytes, Address address = Address::kAny);

/// Memory that holds integers or floats and is compared after the calls. `element_bytes` of 4 means floats.
const support::GuardedMemory &make_tensor(Trial &trial, const char *name, size_t bytes, size_t element_bytes = 1,
                                          float reach = 60.0f);

/// Floats that are compared after the calls, at an address of floats.
const support::GuardedMemory &make_floats(Trial &trial, const char *name, size_t count, float reach);

/// Scratch memory; both calls find the same stale floats in it, and what they leave there is no result.
const support::GuardedMemory &make_scratch(Trial &trial, size_t bytes);

inline support::Element element_of(size_t bytes) {
  return bytes == 4 ? support::Element::kFloat : bytes == 2 ? support::Element::k16Bit : support::Element::k8Bit;
}

inline std::string in_function(const char *name, const std::string &difference) {
  return difference.empty() ? difference : std::string(name) + ": " + difference;
}

/// Calls two functions that take nothing. `name` is that of the product's function.
template <class Product, class Twin>
std::string compare_calls(Trial &trial, const char *name, Product product, Twin twin) {
  called_names().insert(name);
  return in_function(name, trial.run.difference(product, twin));
}

/// Calls two functions that take a parameter block, and compares the block as well.
template <class Parm, class Product, class Twin>
std::string compare_blocks(Trial &trial, const Parm &block, const char *name, Product product, Twin twin) {
  Parm for_product = block;
  Parm for_twin = block;
  std::string difference = compare_calls(
      trial, name, [&] { return product(&for_product); }, [&] { return twin(&for_twin); });
  if (!difference.empty()) return difference;
  return in_function(name, support::element_difference("block", &for_product, &for_twin, sizeof block));
}

/// The bits of a float result, every NaN the same.
int64_t result_bits(float value);

}  // namespace fuzz

#endif  // TARVU_TESTS_FUZZ_TRIAL_H
