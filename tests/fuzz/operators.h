/// \file operators.h
/// Every case maker, by the name under which the differential test runs it.
#ifndef TARVU_TESTS_FUZZ_OPERATORS_H
#define TARVU_TESTS_FUZZ_OPERATORS_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/source.h"

namespace fuzz {

/// Draws one case, runs product and twin over it, and tells what differs; empty if nothing does.
using CaseMaker = std::string (*)(Source &source);

struct Operator {
  const char *name;
  CaseMaker run;
  std::vector<std::string_view> functions;  ///< exported functions that the cases call by themselves
};

/// Operators that share a fuzz target and a corpus.
struct Family {
  const char *name;
  std::span<const Operator> operators;
};

std::span<const Operator> convert_operators();
std::span<const Operator> activation_operators();
std::span<const Operator> detection_operators();
std::span<const Operator> pool_operators();
std::span<const Operator> rearrange_operators();
std::span<const Operator> select_operators();

std::span<const Family> all_families();

/// Null if there is none of that name.
const Family *family_of_name(std::string_view name);

/// One input of a family's fuzz target: the first byte chooses the operator, the rest is what its maker draws from. A
/// difference is reported on standard error and ends the program.
void run_input(const Family &family, const uint8_t *bytes, size_t count);

}  // namespace fuzz

#endif  // TARVU_TESTS_FUZZ_OPERATORS_H
