// Rounded and zero-point conversions, and those by format: every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"
#include "tests/support/stdout_capture.h"

namespace {

using contract_test::finding_of;

constexpr uint64_t kSource = 0x10000;
constexpr uint64_t kDestination = 0x20000000000;

tarvu_contract_call rounded_call(const char *function, uint32_t count, uint32_t code, int16_t frac_bits = 0) {
  return {tarvu_contract_function(function),
          0,
          {kSource, kDestination, static_cast<uint64_t>(int64_t{frac_bits}), count, code, cases::argument_of(1.0f)}};
}

tarvu_contract_call run_call(const char *function, uint32_t count, int32_t zero_point) {
  return {tarvu_contract_function(function),
          0,
          {kSource, kDestination, count, 0, static_cast<uint64_t>(int64_t{zero_point}), cases::argument_of(1.0f)}};
}

struct Tensor {
  uint32_t shape[6] = {12, 3, 2, 1, 1, 1};
  uint32_t stride[6] = {0, 12, 36, 72, 72, 72};
};

tarvu_contract_call tensor_call(const char *function, const Tensor &tensor, int32_t zero_point = 0) {
  return {tarvu_contract_function(function),
          0,
          {kSource, kDestination, reinterpret_cast<uintptr_t>(tensor.shape), reinterpret_cast<uintptr_t>(tensor.stride),
           0, static_cast<uint64_t>(int64_t{zero_point}), cases::argument_of(1.0f)}};
}

struct Records {
  _NN_FMT fmt = support::format(8, 4, 1);
  _NN_SCALE scale = support::scale(3, 1);
};

tarvu_contract_call format_call(const char *function, const Records &records, uint32_t count = 10) {
  return {tarvu_contract_function(function),
          0,
          {kSource, kDestination, count, reinterpret_cast<uintptr_t>(&records.fmt),
           reinterpret_cast<uintptr_t>(&records.scale)}};
}

tarvu_contract_call tensor_format_call(const char *function, const Records &records, const Tensor &tensor) {
  return {tarvu_contract_function(function),
          0,
          {kSource, kDestination, reinterpret_cast<uintptr_t>(tensor.shape), reinterpret_cast<uintptr_t>(tensor.stride),
           reinterpret_cast<uintptr_t>(&records.fmt), reinterpret_cast<uintptr_t>(&records.scale)}};
}

TEST(ContractRounded, APlainRunHasElementsOfItsTypesAndNothingToSay) {
  const auto call = rounded_call("floattoint16_rnd_neon", 40, 3);
  EXPECT_EQ(contract_test::ids_of(call), "");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 160u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 80u);
  EXPECT_EQ(ranges[1].type, TARVU_CONTRACT_S16);
}

TEST(ContractRounded, AnUnknownCodePrintsALineForEachBlockAndTailElementAndWritesTheTailAlone) {
  EXPECT_NOT_FOUND(rounded_call("floattouint8_rnd_neon", 19, 11), "TARVU-ROUND-01");
  EXPECT_NOT_FOUND(rounded_call("floattouint8_rnd_neon", 0, 12), "TARVU-ROUND-01");
  const auto call = rounded_call("floattouint8_rnd_neon", 19, 12);
  EXPECT_FOUND(call, "TARVU-ROUND-01");
  const auto finding = finding_of(call, "TARVU-ROUND-01");
  EXPECT_EQ(finding.kind, TARVU_CONTRACT_TOLD);
  EXPECT_STREQ(finding.line, "no rounding method!!!\r\n");
  EXPECT_STREQ(
      finding.sentence,
      "No rounding has the code 12: a line is printed for each of the 2 blocks, which are not written, and for "
      "each of the 3 elements behind them, which are truncated.");
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 3u);
  EXPECT_EQ(ranges[0].exact, 0);
  EXPECT_EQ(ranges[1].offset, 64);
  EXPECT_EQ(ranges[2].offset, 16);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 3u);
}

TEST(ContractRounded, TheLinesThatAreToldComeAsOftenAsTheirSentencesSay) {
  const float source[19] = {};
  int8_t destination[19] = {};
  const auto printed = [&](uint32_t code) {
    auto call = rounded_call("floattoint8_rnd_neon", 19, code);
    call.argument[0] = reinterpret_cast<uintptr_t>(source);
    call.argument[1] = reinterpret_cast<uintptr_t>(destination);
    support::StdoutCapture capture;
    cases::invoke(call);
    return capture.text();
  };
  const std::string unknown = "no rounding method!!!\r\n";
  EXPECT_EQ(printed(12), unknown + unknown + unknown + unknown + unknown);
  EXPECT_EQ(printed(11), "toint8 to rint\r\ntoint8 to rint\r\n");
}

TEST(ContractRounded, SignedBytesTellOfEachBlockThatTheEnvironmentRounds) {
  EXPECT_NOT_FOUND(rounded_call("floattouint8_rnd_neon", 19, 11), "TARVU-ROUND-02");
  EXPECT_NOT_FOUND(rounded_call("floattoint8_rnd_neon", 7, 11), "TARVU-ROUND-02");
  const auto call = rounded_call("floattoint8_rnd_neon", 19, 11);
  EXPECT_FOUND(call, "TARVU-ROUND-02");
  EXPECT_STREQ(finding_of(call, "TARVU-ROUND-02").line, "toint8 to rint\r\n");
  EXPECT_STREQ(finding_of(call, "TARVU-ROUND-02").sentence,
               "Rounding signed 8-bit elements by the environment prints a line for each of the 2 blocks.");
}

TEST(ContractRounded, TailsOfSignedElementsLoseTheFractionOfNegativeValuesWithThreeCodes) {
  for (const uint32_t code : {6u, 7u, 9u}) {
    EXPECT_FOUND(rounded_call("floattoint16_rnd_neon", 17, code), "TARVU-ROUND-03");
    EXPECT_NOT_FOUND(rounded_call("floattoint16_rnd_neon", 16, code), "TARVU-ROUND-03");
    EXPECT_NOT_FOUND(rounded_call("floattouint16_rnd_neon", 17, code), "TARVU-ROUND-03");
  }
  EXPECT_NOT_FOUND(rounded_call("floattoint16_rnd_neon", 17, 8), "TARVU-ROUND-03");
}

TEST(ContractRounded, APowerOfTwoThatWrapsIn32BitsIsTold) {
  EXPECT_NOT_FOUND(rounded_call("floattoint16_rnd_neon", 16, 3, 30), "TARVU-ROUND-04");
  EXPECT_NOT_FOUND(rounded_call("floattoint16_rnd_neon", 16, 3, -30), "TARVU-ROUND-04");
  EXPECT_FOUND(rounded_call("floattoint16_rnd_neon", 16, 3, 31), "TARVU-ROUND-04");
  EXPECT_FOUND(rounded_call("floattoint16_rnd_neon", 16, 3, -31), "TARVU-ROUND-04");
}

TEST(ContractByFormat, TheFormatChoosesTheElementsOnBothWays) {
  const Records records;
  const auto to_floats = format_call("tarvu_fixtofloat_neon", records);
  EXPECT_EQ(contract_test::ids_of(to_floats), "");
  auto ranges = cases::ranges_of(to_floats, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(ranges[0].type, TARVU_CONTRACT_S8);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 40u);
  EXPECT_EQ(ranges[2].role, TARVU_CONTRACT_PARAMETER);
  EXPECT_STREQ(ranges[3].field, "scale");
  const auto from_floats = format_call("tarvu_floattofix_1d_neon", records);
  EXPECT_EQ(contract_test::ids_of(from_floats), "");
  ranges = cases::ranges_of(from_floats, 0);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 40u);
  EXPECT_EQ(ranges[1].type, TARVU_CONTRACT_S8);
}

TEST(ContractByFormat, AFormatWithoutKernelTouchesNothingAndIsTold) {
  Records records;
  EXPECT_NOT_FOUND(format_call("tarvu_floattofix_neon", records), "TARVU-FORMAT-01");
  records.fmt = support::format(32, 4, 1);
  const auto call = format_call("tarvu_floattofix_neon", records);
  EXPECT_FOUND(call, "TARVU-FORMAT-01");
  EXPECT_TRUE(cases::pieces_of(cases::ranges_of(call, 0)).empty());
  records.fmt = support::format(8, 4, 2);
  EXPECT_FOUND(format_call("tarvu_floattofix_neon", records), "TARVU-FORMAT-01");
}

TEST(ContractByFormat, APowerOfTheScaleThatWrapsIsTold) {
  Records records;
  records.scale = support::scale(1, 30);
  EXPECT_NOT_FOUND(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-02");
  records.scale = support::scale(1, 31);
  EXPECT_FOUND(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-02");
  EXPECT_STREQ(
      finding_of(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-02").sentence,
      "scale_shift is 31; a power of two from 31 on is reckoned modulo 2^32 with its sign, and is -2147483648.");
  records.scale = support::scale(1, -33);
  EXPECT_FOUND(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-02");
}

TEST(ContractByFormat, AScaleOfZeroLeavesNothingOfTheValues) {
  Records records;
  EXPECT_NOT_FOUND(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-03");
  records.scale = support::scale(0, 0);
  EXPECT_FOUND(format_call("tarvu_fixtofloat_neon", records), "TARVU-FORMAT-03");
}

TEST(ContractByFormat, RecordsThatAreMissingAreTold) {
  const Records records;
  const Tensor tensor;
  const auto call = tensor_format_call("tarvu_fixtofloat_nd_neon", records, tensor);
  EXPECT_EQ(contract_test::ids_of(call), "");
  for (int argument = 2; argument <= 5; ++argument) {
    auto spoilt = call;
    spoilt.argument[argument] = 0;
    EXPECT_FOUND(spoilt, "TARVU-ANY-12");
  }
}

TEST(ContractByFormat, RoundedEntryPointsTellOfUnknownCodes) {
  Records records;
  auto call = format_call("tarvu_floattofix_rnd_neon", records, 9);
  call.argument[5] = 12;
  EXPECT_FOUND(call, "TARVU-ROUND-01");
  records.fmt.sign_bits = 3;
  EXPECT_NOT_FOUND(call, "TARVU-ROUND-01");
}

TEST(ContractZeroPoint, NegativeValuesOfUnsignedBlocksEndAtTheZeroPoint) {
  EXPECT_FOUND(run_call("floattouint8_1d_neon", 8, 128), "TARVU-ZERO-01");
  EXPECT_NOT_FOUND(run_call("floattouint8_1d_neon", 7, 128), "TARVU-ZERO-01");
  EXPECT_NOT_FOUND(run_call("floattouint8_1d_neon", 8, 0), "TARVU-ZERO-01");
  EXPECT_NOT_FOUND(run_call("floattoint8_1d_neon", 8, 128), "TARVU-ZERO-01");
  EXPECT_NOT_FOUND(run_call("uint8tofloat_1d_neon", 8, 128), "TARVU-ZERO-01");
}

TEST(ContractZeroPoint, SumsBelowZeroOfUnsignedBlocksEndAtTheTop) {
  EXPECT_FOUND(run_call("floattouint16_1d_neon", 16, -1), "TARVU-ZERO-02");
  EXPECT_NOT_FOUND(run_call("floattouint16_1d_neon", 15, -1), "TARVU-ZERO-02");
  EXPECT_NOT_FOUND(run_call("floattouint16_1d_neon", 16, 1), "TARVU-ZERO-02");
  EXPECT_NOT_FOUND(run_call("floattoint16_1d_neon", 16, -1), "TARVU-ZERO-02");
}

TEST(ContractZeroPoint, ATensorIsReadAndWrittenLineByLineWithItsStridesInElements) {
  const Tensor tensor;
  const auto plain = tensor_call("int8tofloat_nd_neon", tensor);
  EXPECT_EQ(contract_test::ids_of(plain), "");
  const auto ranges = cases::ranges_of(plain, 0);
  ASSERT_EQ(ranges.size(), 4u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 72u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 288u);
  EXPECT_EQ(ranges[1].extents[1].step, 48);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[2]), 24u);
}

TEST(ContractZeroPoint, AnEmptyDimensionIsTold) {
  Tensor tensor;
  EXPECT_NOT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-03");
  tensor.shape[4] = 0;
  EXPECT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-03");
  EXPECT_TRUE(cases::pieces_of(cases::ranges_of(tensor_call("int8tofloat_nd_neon", tensor), 0)).empty());
}

TEST(ContractZeroPoint, AnExtentCountsByItsLow16Bits) {
  Tensor tensor;
  tensor.shape[0] = 0xFFFF;
  tensor.stride[1] = tensor.stride[2] = 0x40000;
  EXPECT_NOT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-04");
  tensor.shape[0] = 0x1000C;
  const auto call = tensor_call("int8tofloat_nd_neon", tensor);
  EXPECT_FOUND(call, "TARVU-ZERO-04");
  EXPECT_STREQ(finding_of(call, "TARVU-ZERO-04").sentence,
               "Extent 0 of the shape is 65548; its low 16 bits alone count, which are 12.");
  EXPECT_EQ(cases::ranges_of(call, 0)[0].extents[0].count, 12u);
}

TEST(ContractZeroPoint, AShortLineIsOneWholeBlock) {
  Tensor tensor;
  tensor.shape[0] = 8;
  EXPECT_NOT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-05");
  tensor.shape[0] = 5;
  const auto call = tensor_call("int8tofloat_nd_neon", tensor);
  EXPECT_FOUND(call, "TARVU-ZERO-05");
  EXPECT_STREQ(finding_of(call, "TARVU-ZERO-05").sentence,
               "Lines of 5 elements are converted as one block of 8: 3 elements behind each are read and written.");
  const auto ranges = cases::ranges_of(call, 0);
  EXPECT_EQ(ranges[0].extents[0].count, 8u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[1]), 4u * (36 + 24 + 8));
  EXPECT_EQ(cases::ranges_of(tensor_call("int16tofloat_nd_neon", tensor), 0)[0].extents[0].count, 16u);
}

TEST(ContractZeroPoint, LinesThatLieOverEachOtherAreToldAndThoseBackToBackAreNot) {
  Tensor tensor = {{5, 3, 2, 1, 1, 1}, {0, 5, 15, 30, 30, 30}};
  EXPECT_NOT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-06");
  tensor.stride[1] = 4;
  const auto call = tensor_call("int8tofloat_nd_neon", tensor);
  EXPECT_FOUND(call, "TARVU-ZERO-06");
  EXPECT_STREQ(finding_of(call, "TARVU-ZERO-06").sentence,
               "Stride 1 is 4, but one step holds 5 elements: lines are written over lines.");
}

TEST(ContractZeroPoint, LinesWithoutElementsAreWalkedForNothing) {
  Tensor tensor;
  tensor.shape[5] = 0;
  EXPECT_NOT_FOUND(tensor_call("int8tofloat_nd_neon", tensor), "TARVU-ZERO-07");
  tensor = {{0, 3, 2, 1, 1, 1}, {0, 5, 15, 30, 30, 30}};
  const auto call = tensor_call("int8tofloat_nd_neon", tensor);
  EXPECT_FOUND(call, "TARVU-ZERO-07");
  EXPECT_EQ(finding_of(call, "TARVU-ZERO-07").value, 6);
}

TEST(ContractConversion, TheShapeOfATensorStandsInItsDescription) {
  const Tensor tensor;
  const auto call = tensor_call("int8tofloat_nd_neon", tensor);
  char text[1024];
  tarvu_contract_describe(&call, text, sizeof text);
  EXPECT_NE(std::string(text).find("  = shape 12 3 2 1 1 1, stride - 12 36 72 72 72\n"), std::string::npos) << text;
}

}  // namespace
