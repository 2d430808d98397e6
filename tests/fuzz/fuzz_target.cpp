// The libFuzzer target of one family, TARVU_FUZZ_FAMILY.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/operators.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const fuzz::Family *const family = fuzz::family_of_name(TARVU_FUZZ_FAMILY);
  fuzz::run_input(*family, data, size);
  return 0;
}
