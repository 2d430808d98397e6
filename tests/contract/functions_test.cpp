// The table of functions against the header, the list of names and the layout of the records.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/contract/findings.h"

namespace {

const tarvu_contract_function_info &info_of(const char *name) {
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(tarvu_contract_function(name));
  EXPECT_NE(info, nullptr) << name;
  return *info;
}

TEST(ContractFunctions, EveryExportedNameHasANumberAndNoOther) {
  std::ifstream list(TARVU_EXPORTED_NAMES_FILE);
  std::vector<std::string> names;
  for (std::string line; std::getline(list, line);) {
    if (line.starts_with("+ ")) names.push_back(line.substr(2));
  }
  ASSERT_EQ(tarvu_contract_function_count(), static_cast<int32_t>(names.size()));
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(tarvu_contract_function(names[i].c_str()), static_cast<int32_t>(i)) << names[i];
  }
  EXPECT_EQ(tarvu_contract_function("tarvu_pool"), -1);
  EXPECT_EQ(tarvu_contract_function(""), -1);
  EXPECT_EQ(tarvu_contract_function_info_of(-1), nullptr);
  EXPECT_EQ(tarvu_contract_function_info_of(tarvu_contract_function_count()), nullptr);
}

TEST(ContractFunctions, ArgumentsAndResultsAreThoseOfThePrototypes) {
  const auto &pool = info_of("tarvu_pool_process");
  EXPECT_STREQ(pool.block, "_NN_POOL_PARM");
  EXPECT_EQ(pool.block_bytes, sizeof(_NN_POOL_PARM));
  EXPECT_EQ(pool.argument_count, 1u);
  EXPECT_EQ(pool.arguments[0].target, TARVU_CONTRACT_RECORD);
  EXPECT_EQ(pool.result, TARVU_CONTRACT_S32);
  EXPECT_EQ(pool.described, 1);
  const auto &flat = info_of("floattouint16_neon");
  EXPECT_EQ(flat.block, nullptr);
  EXPECT_EQ(flat.argument_count, 5u);
  EXPECT_STREQ(flat.arguments[1].name, "destination");
  EXPECT_EQ(flat.arguments[1].target, TARVU_CONTRACT_U16);
  EXPECT_EQ(flat.arguments[2].type, TARVU_CONTRACT_S16);
  EXPECT_EQ(flat.arguments[4].type, TARVU_CONTRACT_F32);
  EXPECT_EQ(flat.result, TARVU_CONTRACT_NONE);
  EXPECT_EQ(info_of("nn_check_net_parm").described, 0);
  EXPECT_EQ(info_of("tarvu_lrn_c_func").argument_count, 13u);
}

TEST(ContractFunctions, FieldsOfBlocksLieWhereTheRecordsHaveThem) {
  struct Line {
    const char *record;
    const char *field;
    uint32_t offset;
    uint32_t bytes;
  };
#define RECORD(record, bytes)
#define FIELD(record, field, offset, bytes) {#record, #field, offset, bytes},
  static const Line lines[] = {
#include "tests/include/record_layout.inc"
  };
#undef RECORD
#undef FIELD
  uint32_t blocks = 0;
  for (int32_t function = 0; function < tarvu_contract_function_count(); ++function) {
    const auto &info = *tarvu_contract_function_info_of(function);
    if (info.block == nullptr) continue;
    ++blocks;
    uint32_t at = 0;
    for (const Line &line : lines) {
      if (std::strcmp(line.record, info.block) != 0) continue;
      ASSERT_LT(at, info.field_count) << info.block;
      EXPECT_STREQ(info.fields[at].name, line.field) << info.block;
      EXPECT_EQ(info.fields[at].offset, line.offset) << info.block << " " << line.field;
      EXPECT_EQ(info.fields[at].bytes, line.bytes) << info.block << " " << line.field;
      ++at;
    }
    EXPECT_EQ(at, info.field_count) << info.block;
  }
  EXPECT_GE(blocks, 30u);
}

TEST(ContractFunctions, AFunctionThatIsNotDescribedOrDoesNotExistHasNeitherRangesNorFindings) {
  tarvu_contract_call call = {tarvu_contract_function("fast_exp"), 0, {}};
  EXPECT_EQ(tarvu_contract_ranges(&call, 0, 0, nullptr, 0), 0u);
  EXPECT_EQ(tarvu_contract_findings(&call, 0, nullptr, 0), 0u);
  call.function = 12345;
  EXPECT_EQ(tarvu_contract_ranges(&call, 0, 0, nullptr, 0), 0u);
  EXPECT_EQ(tarvu_contract_findings(&call, 0, nullptr, 0), 0u);
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 0u);
  char text[16];
  EXPECT_EQ(tarvu_contract_describe(&call, text, 0), std::strlen("no function\n"));
}

TEST(ContractFunctions, ADescriptionThatDoesNotFitEndsWithAZeroAndIsCountedInFull) {
  tarvu_contract_call call = {tarvu_contract_function("permute_data_in"), 0, {}};
  char all[256];
  const size_t length = tarvu_contract_describe(&call, all, sizeof all);
  EXPECT_EQ(std::strlen(all), length);
  EXPECT_STREQ(all, "permute_data_in\n  source 0x0\n  destination 0x0\n  lanes 0\n  total_bytes 0\n");
  char part[8];
  EXPECT_EQ(tarvu_contract_describe(&call, part, sizeof part), length);
  EXPECT_STREQ(part, "permute");
}

}  // namespace
