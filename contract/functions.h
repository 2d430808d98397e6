/// \file functions.h
/// The table of functions.
#ifndef TARVU_CONTRACT_FUNCTIONS_H
#define TARVU_CONTRACT_FUNCTIONS_H

#include "contract/call.h"

namespace contract {

struct Function {
  tarvu_contract_function_info info;
  const Description *description;
};

/// Null for a number that no function has.
const Function *function_of(int32_t number);

}  // namespace contract

#endif  // TARVU_CONTRACT_FUNCTIONS_H
