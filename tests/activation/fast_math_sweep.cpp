/// \file fast_math_sweep.cpp
/// Holds fast_exp() against its twin for all 2^32 floats, and fast_Pow() with five powers. Takes minutes; run by hand
/// after a change of either. Prints the first difference of each function and returns 1 if there is any.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

#include "tarvu.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/reference/tarvu_softmax_reference.h"

namespace {

template <class Product, class Reference>
bool same_for_all_floats(const char *name, Product product, Reference twin) {
  uint64_t different = 0;
  for (uint64_t i = 0; i < (uint64_t{1} << 32); ++i) {
    const uint32_t bits = static_cast<uint32_t>(i);
    const float x = std::bit_cast<float>(bits);
    const uint32_t ours = std::bit_cast<uint32_t>(product(x));
    const uint32_t expected = std::bit_cast<uint32_t>(twin(x));
    if (ours == expected) continue;
    if (different++ == 0) std::printf("%s of 0x%08X: product 0x%08X, reference 0x%08X\n", name, bits, ours, expected);
  }
  std::printf("%s: %llu of 2^32 floats differ\n", name, static_cast<unsigned long long>(different));
  return different == 0;
}

}  // namespace

int main() {
  bool same = same_for_all_floats("fast_exp", ::fast_exp, reference::fast_exp);
  for (float p : {-0.75f, -0.5f, -1.0f, -0.1f, 2.0f}) {
    char name[48];
    std::snprintf(name, sizeof name, "fast_Pow to the power %g", static_cast<double>(p));
    same = same_for_all_floats(
               name, [p](float x) { return ::fast_Pow(x, p); }, [p](float x) { return reference::fast_Pow(x, p); }) &&
           same;
  }
  return same ? 0 : 1;
}
