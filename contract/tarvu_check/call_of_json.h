/// \file call_of_json.h
/// A call of libtarvu, written as a JSON object: the function, and its fields and arguments by the names of the headers.
#ifndef TARVU_CONTRACT_CHECK_CALL_OF_JSON_H
#define TARVU_CONTRACT_CHECK_CALL_OF_JSON_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarvu_contract.h"

namespace tarvu_check {

/// A call and the memory that its arguments point to.
struct Call {
  tarvu_contract_call call = {};
  std::vector<std::unique_ptr<uint64_t[]>> records;
};

/// An empty block of a call; null for a function that takes none.
uint8_t *add_block(Call &made);

/// Reads a call.
/// \return an empty string, or in one sentence what is wrong with the text
std::string call_of_json(const std::string &text, Call &made);

/// Whether a field or an argument of the call holds an address, so that memory is laid out.
bool has_address(const Call &made);

}  // namespace tarvu_check

#endif  // TARVU_CONTRACT_CHECK_CALL_OF_JSON_H
