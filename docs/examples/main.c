/// \file main.c
/// Runs the examples of the reference.

#include <stdio.h>

#include "examples.h"

static int failures = 0;

void expect_bytes(const char *file, int line, const void *given, size_t given_bytes, const void *wanted,
                  size_t wanted_bytes, size_t element_bytes) {
  if (given_bytes != wanted_bytes) {
    ++failures;
    printf("%s:%d: %zu elements, but %zu are listed\n", file, line, given_bytes / element_bytes,
           wanted_bytes / element_bytes);
    return;
  }
  const unsigned char *a = given, *b = wanted;
  for (size_t at = 0; at < given_bytes; at += element_bytes) {
    if (memcmp(a + at, b + at, element_bytes) != 0) {
      ++failures;
      unsigned long long given_bits = 0, wanted_bits = 0;
      memcpy(&given_bits, a + at, element_bytes);
      memcpy(&wanted_bits, b + at, element_bytes);
      printf("%s:%d: element %zu is 0x%llx, not 0x%llx\n", file, line, at / element_bytes, given_bits, wanted_bits);
      if (element_bytes == sizeof(float)) {
        float as_float = 0;
        memcpy(&as_float, a + at, sizeof as_float);
        printf("  as a float %.9g, as an integer %lld\n", (double)as_float, (long long)(int)given_bits);
      }
    }
  }
}

void expect_equal(const char *file, int line, long long given, long long wanted) {
  if (given != wanted) {
    ++failures;
    printf("%s:%d: %lld, not %lld\n", file, line, given, wanted);
  }
}

int main(void) {
  conversion_examples();
  activation_examples();
  normalisation_examples();
  detection_examples();
  tensor_examples();
  selection_examples();
  printf("%d differences\n", failures);
  return failures ? 1 : 0;
}
