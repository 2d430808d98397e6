// Re-formatting, the flat conversions and the interleaving of bytes: every finding with a call that has it and one that has not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

struct Formats {
  _NN_FMT in;
  _NN_FMT out;
};

tarvu_contract_call reformat_call(const Formats &formats, uint32_t count) {
  tarvu_contract_call call = {tarvu_contract_function("tarvu_convert_fmt_c"), 0, {0x10000, 0x20000, count}};
  call.argument[3] = reinterpret_cast<uintptr_t>(&formats.in);
  call.argument[4] = reinterpret_cast<uintptr_t>(&formats.out);
  return call;
}

TEST(ContractRuns, ReformattingReadsAndWritesElementsOfBothWidthsAndItsFormats) {
  const Formats formats = {support::format(8, 4, 1), support::format(16, 4, 1)};
  const auto call = reformat_call(formats, 10);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 10u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 20u);
  EXPECT_EQ(ranges[2].role, TARVU_CONTRACT_PARAMETER);
  EXPECT_EQ(ranges[3].address, reinterpret_cast<uintptr_t>(&formats.out));
}

TEST(ContractRuns, WidthsThatNoConversionServesWriteNothing) {
  Formats formats = {support::format(16, 4, 1), support::format(16, 3, 1)};
  EXPECT_NOT_FOUND(reformat_call(formats, 10), "TARVU-RUN-01");
  formats.in = formats.out = support::format(32, 4, 1);
  EXPECT_FOUND(reformat_call(formats, 10), "TARVU-RUN-01");
}

TEST(ContractRuns, GrowingInPlaceSpoilsAllButTheFirstElement) {
  const Formats formats = {support::format(8, 4, 1), support::format(16, 4, 1)};
  uint8_t elements[8] = {1, 2, 3, 4, 0, 0, 0, 0};
  auto call = reformat_call(formats, 4);
  EXPECT_NOT_FOUND(call, "TARVU-RUN-02");
  call.argument[0] = call.argument[1] = reinterpret_cast<uintptr_t>(elements);
  EXPECT_FOUND(call, "TARVU-RUN-02");
  cases::invoke(call);
  EXPECT_EQ(elements[0], 1);
  EXPECT_NE(elements[2], 2) << "the second element was overwritten before it was read";
}

tarvu_contract_call flat_call(int16_t frac_bits, uint32_t count) {
  return {tarvu_contract_function("floattoint8_neon"),
          0,
          {0x10000, 0x20000000000, static_cast<uint64_t>(int64_t{frac_bits}), count, cases::argument_of(1.0f)}};
}

TEST(ContractRuns, AFlatConversionHasElementsOfItsTypes) {
  const auto call = flat_call(4, 10);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges[0].type, TARVU_CONTRACT_F32);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 40u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 10u);
}

TEST(ContractRuns, ACountOf2To31IsUndefined) {
  EXPECT_NOT_FOUND(flat_call(4, 0x7FFFFFFF), "TARVU-RUN-03");
  EXPECT_FOUND(flat_call(4, 0x80000000), "TARVU-RUN-03");
}

TEST(ContractRuns, APowerOfTwoThatWrapsIsTold) {
  EXPECT_NOT_FOUND(flat_call(62, 10), "TARVU-RUN-04");
  EXPECT_NOT_FOUND(flat_call(-62, 10), "TARVU-RUN-04");
  EXPECT_FOUND(flat_call(63, 10), "TARVU-RUN-04");
  EXPECT_FOUND(flat_call(-63, 10), "TARVU-RUN-04");
}

TEST(ContractRuns, BytesThatMakeNoGroupAreLeft) {
  tarvu_contract_call call = {tarvu_contract_function("permute_data_in"), 0, {0x10000, 0x20000, 4, 12}};
  EXPECT_NOT_FOUND(call, "TARVU-RUN-05");
  call.argument[3] = 14;
  EXPECT_FOUND(call, "TARVU-RUN-05");
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 12u);
}

}  // namespace
