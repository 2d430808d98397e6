/// \file findings.h
/// Findings of one call in tests: EXPECT_FOUND(call, "TARVU-...") and EXPECT_NOT_FOUND(call, "TARVU-..."). A script holds both
/// against the ids.
#ifndef TARVU_TESTS_CONTRACT_FINDINGS_H
#define TARVU_TESTS_CONTRACT_FINDINGS_H

#include <gtest/gtest.h>

#include <string>

#include "tests/cases/cases.h"

namespace contract_test {

/// The call of a function with a block, which has to outlive it.
template <class Block>
tarvu_contract_call call_of(const char *function, const Block &block) {
  tarvu_contract_call call = {tarvu_contract_function(function), 0, {}};
  call.argument[0] = reinterpret_cast<uintptr_t>(&block);
  return call;
}

/// The finding of that id, or one whose id is "none".
inline tarvu_contract_finding finding_of(const tarvu_contract_call &call, const std::string &id) {
  for (const tarvu_contract_finding &finding : cases::findings_of(call, TARVU_CONTRACT_READ_CONTENTS)) {
    if (id == finding.id) return finding;
  }
  tarvu_contract_finding none = {};
  none.id = "none";
  none.field = "";
  return none;
}

/// All ids, with blanks between.
inline std::string ids_of(const tarvu_contract_call &call) {
  std::string ids;
  for (const tarvu_contract_finding &finding : cases::findings_of(call, TARVU_CONTRACT_READ_CONTENTS)) {
    ids += (ids.empty() ? "" : " ") + std::string(finding.id);
  }
  return ids;
}

#define EXPECT_FOUND(call, wanted) \
  EXPECT_STREQ(contract_test::finding_of(call, wanted).id, wanted) << contract_test::ids_of(call)
#define EXPECT_NOT_FOUND(call, unwanted) EXPECT_STREQ(contract_test::finding_of(call, unwanted).id, "none")

}  // namespace contract_test

#endif  // TARVU_TESTS_CONTRACT_FINDINGS_H
