/// \file examples.h
/// What the examples of the reference share. Each says in its last lines what it gives, and fails if it gives anything else.
#ifndef TARVU_DOCS_EXAMPLES_H
#define TARVU_DOCS_EXAMPLES_H

#include <stddef.h>
#include <string.h>

#include "tarvu.h"

/// Holds the elements of an array against the list.
#define GIVES(array, ...)                                                                                 \
  expect_bytes(__FILE__, __LINE__, (array), sizeof(array), (const __typeof__((array)[0])[]){__VA_ARGS__}, \
               sizeof((const __typeof__((array)[0])[]){__VA_ARGS__}), sizeof((array)[0]))

/// Holds one integer against another.
#define IS(value, wanted) expect_equal(__FILE__, __LINE__, (value), (wanted))

void expect_bytes(const char *file, int line, const void *given, size_t given_bytes, const void *wanted,
                  size_t wanted_bytes, size_t element_bytes);
void expect_equal(const char *file, int line, long long given, long long wanted);

/// The format of elements with these bits.
static inline _NN_FMT format(int frac_bits, int int_bits, int sign_bits) {
  return (_NN_FMT){(int8_t)frac_bits, (int8_t)int_bits, (int8_t)sign_bits, 0};
}

/// The scale `value / 2^shift`.
static inline _NN_SCALE scale(int32_t value, int shift) { return (_NN_SCALE){value, (int8_t)shift, {0}}; }

void conversion_examples(void);
void activation_examples(void);
void normalisation_examples(void);
void detection_examples(void);
void tensor_examples(void);
void selection_examples(void);

#endif  // TARVU_DOCS_EXAMPLES_H
