// PReLU and its kernels: every finding with a call that has it and one that has it not.
#include <algorithm>

#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kProcess = "tarvu_prelu_process";

/// 3 channels of 4 x 5 signed bytes.
_NN_PRELU_PARM plain_block() {
  _NN_PRELU_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.weight_addr = 0x30000;
  block.width = 5;
  block.height = 4;
  block.channels = 3;
  block.num = 1;
  block.in_fmt = support::format(8, 4, 1);
  block.shift = 7;
  return block;
}

uint64_t extended(int64_t number) { return static_cast<uint64_t>(number); }

tarvu_contract_call slope_call(uint32_t count, int8_t shift) {
  return {tarvu_contract_function("tarvu_prelu_neon_func_int16"), 0, {0x10000, 0x20000, 3, count, extended(shift)}};
}

struct Lookup {
  uint32_t modulus = 60;
  int32_t divisor_a = 1;
  uint32_t divisor_b = 20;
  int32_t count = 50;
  int8_t shift = 7;
};

tarvu_contract_call lookup_call(const Lookup &lookup) {
  return {tarvu_contract_function("tarvu_prelu_c_func_int8"),
          0,
          {0x10000, 0x20000, 0x30000, lookup.modulus, extended(lookup.shift), extended(lookup.count),
           extended(lookup.divisor_a), lookup.divisor_b}};
}

TEST(ContractPRelu, APlainBlockTouchesOneItemAndASlopeForEachChannel) {
  const _NN_PRELU_PARM block = plain_block();
  EXPECT_EQ(contract_test::ids_of(call_of(kProcess, block)), "");
  const auto ranges = cases::ranges_of(call_of(kProcess, block), 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 60u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 60u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 3u);
}

TEST(ContractPRelu, AnExtentOfZeroIsRefusedWithAllFour) {
  _NN_PRELU_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-01");
  block.height = 0;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-PRELU-01");
  const auto finding = finding_of(call_of(kProcess, block), "TARVU-PRELU-01");
  EXPECT_EQ(finding.result, QX_ERR_PARAM);
  EXPECT_STREQ(finding.field, "height");
  EXPECT_STREQ(finding.line,
               "\033[1;31mERR:tarvu_prelu_checkparm() shape should be positive, but input is 1x3x0x5(num x channels x "
               "height x width)\r\n\033[0m");
  EXPECT_TRUE(cases::ranges_of(call_of(kProcess, block), 0).empty());
}

TEST(ContractPRelu, AWidthThatIsNot8Or16TouchesNothing) {
  _NN_PRELU_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-02");
  block.in_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-PRELU-02");
  EXPECT_TRUE(cases::ranges_of(call_of(kProcess, block), 0).empty());
}

TEST(ContractPRelu, FurtherBatchItemsAreNotComputed) {
  _NN_PRELU_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-03");
  block.num = 2;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-PRELU-03");
}

TEST(ContractPRelu, UnsignedElementsAreReadAsSigned) {
  _NN_PRELU_PARM block = plain_block();
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-04");
  block.in_fmt = support::format(16, 4, 0);
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-PRELU-04");
  EXPECT_STREQ(finding_of(call_of(kProcess, block), "TARVU-PRELU-04").sentence,
               "in_fmt has no sign, but elements are read as signed: those from 2^15 on count as negative.");
}

TEST(ContractPRelu, AShiftOutsideTheDesignDependsOnThePlaceOfTheElement) {
  _NN_PRELU_PARM block = plain_block();
  block.shift = 31;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-05");
  block.shift = 32;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-PRELU-05");
  block.height = 16;
  EXPECT_NOT_FOUND(call_of(kProcess, block), "TARVU-PRELU-05");
  EXPECT_FOUND(slope_call(9, -1), "TARVU-PRELU-05");
  EXPECT_NOT_FOUND(slope_call(8, -1), "TARVU-PRELU-05");
}

TEST(ContractPRelu, PlanesWhoseSizeWrapsAreUndefined) {
  _NN_PRELU_PARM block = plain_block();
  block.width = 0x10000;
  block.height = 0x10001;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-10");
}

TEST(ContractPRelu, TheOutputMayBeTheInputButNotTheSlopesAndNotApartByAnElement) {
  _NN_PRELU_PARM block = plain_block();
  block.out_addr = block.in_addr;
  EXPECT_EQ(contract_test::ids_of(call_of(kProcess, block)), "");
  block.out_addr += 1;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-06");
  block.out_addr = block.weight_addr;
  EXPECT_FOUND(call_of(kProcess, block), "TARVU-ANY-06");
}

TEST(ContractPReluKernels, ARunWithOneSlopeHasTwoRanges) {
  EXPECT_EQ(contract_test::ids_of(slope_call(20, 7)), "");
  const auto ranges = cases::ranges_of(slope_call(20, 7), 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 40u);
}

TEST(ContractPReluKernels, SlopesAreReadAsFarAsTheirNumbersReach) {
  const auto bytes = [](const Lookup &lookup) {
    const auto ranges = cases::ranges_of(lookup_call(lookup), 0);
    return tarvu_contract_range_bytes(&ranges[2]);
  };
  EXPECT_EQ(contract_test::ids_of(lookup_call({})), "");
  EXPECT_EQ(bytes({}), 3u);
  EXPECT_EQ(bytes({.count = 40}), 2u);
  EXPECT_EQ(bytes({.count = 500}), 3u) << "the modulus turns round";
  EXPECT_EQ(bytes({.divisor_a = 4}), 1u);
}

TEST(ContractPReluKernels, AShiftOutsideItsFiveBitsIsReduced) {
  EXPECT_NOT_FOUND(lookup_call({.shift = 31}), "TARVU-PRELU-06");
  EXPECT_FOUND(lookup_call({.shift = -1}), "TARVU-PRELU-06");
  EXPECT_STREQ(finding_of(lookup_call({.shift = -1}), "TARVU-PRELU-06").sentence,
               "shift is -1, and its low five bits alone count, which are 31.");
}

TEST(ContractPReluKernels, ADivisorOfZeroLeavesOneSlope) {
  EXPECT_NOT_FOUND(lookup_call({}), "TARVU-PRELU-07");
  EXPECT_FOUND(lookup_call({.divisor_a = 0}), "TARVU-PRELU-07");
  EXPECT_FOUND(lookup_call({.divisor_b = 0}), "TARVU-PRELU-07");
  const auto ranges = cases::ranges_of(lookup_call({.divisor_b = 0}), 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 1u);
}

TEST(ContractPReluKernels, AModulusOfZeroDoesNotReduce) {
  EXPECT_NOT_FOUND(lookup_call({}), "TARVU-PRELU-08");
  const Lookup lookup = {.modulus = 0, .count = 201};
  EXPECT_FOUND(lookup_call(lookup), "TARVU-PRELU-08");
  EXPECT_STREQ(finding_of(lookup_call(lookup), "TARVU-PRELU-08").sentence,
               "modulus is 0 and leaves the quotients as they are: slopes up to number 10 are read.");
}

TEST(ContractPReluKernels, ANegativeDivisorReadsFarBehind) {
  EXPECT_NOT_FOUND(lookup_call({.divisor_a = 3}), "TARVU-PRELU-09");
  const Lookup lookup = {.modulus = 0, .divisor_a = -1, .divisor_b = 0x1000000};
  EXPECT_FOUND(lookup_call(lookup), "TARVU-PRELU-09");
  const auto ranges = cases::ranges_of(lookup_call(lookup), 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(ranges[2].offset, 0);
  EXPECT_EQ(ranges[3].offset, 255);
}

/// The numbers by their definition, element by element.
TEST(ContractPReluKernels, EverySlopeThatIsReadIsInARangeAndNoOther) {
  for (const uint32_t modulus : {0u, 1u, 7u, 40u, 0xFFFFFFFFu, 0xFFFFFFE0u}) {
    for (const int32_t divisor_a : {0, 1, 3, -1, -2, -2147483647 - 1}) {
      for (const uint32_t divisor_b : {0u, 1u, 5u, 0x10000000u}) {
        const Lookup lookup = {modulus, divisor_a, divisor_b, 50, 7};
        std::vector<uint64_t> expected;
        for (int32_t i = 0; i < lookup.count; ++i) {
          const auto quotient = static_cast<uint32_t>(divisor_a == 0 ? 0 : i / divisor_a);
          const uint32_t rest = modulus == 0 ? quotient : quotient % modulus;
          expected.push_back(0x20000 + uint64_t{divisor_b == 0 ? 0 : rest / divisor_b});
        }
        std::vector<uint64_t> told;
        for (const auto &range : cases::ranges_of(lookup_call(lookup), 0)) {
          if (std::string(range.field) != "weights") continue;
          cases::for_each_element(range, [&](uint64_t address) { told.push_back(address); });
        }
        for (auto *numbers : {&expected, &told}) {
          std::sort(numbers->begin(), numbers->end());
          numbers->erase(std::unique(numbers->begin(), numbers->end()), numbers->end());
        }
        ASSERT_EQ(told, expected) << modulus << " " << divisor_a << " " << divisor_b;
      }
    }
  }
}

}  // namespace
