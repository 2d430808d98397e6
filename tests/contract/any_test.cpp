// Findings that any function may have, and the overlap of ranges.
#include "contract/overlap.h"
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace contract_test {

/// What is said of the address of one range.
tarvu_contract_finding finding_of(const tarvu_contract_range &range, const std::string &id) {
  tarvu_contract_finding found[3] = {};
  contract::FindingSink sink = {found, 3, 0};
  contract::check_address(sink, range);
  for (size_t i = 0; i < sink.count; ++i) {
    if (id == found[i].id) return found[i];
  }
  found[0].id = "none";
  return found[0];
}

std::string ids_of(const tarvu_contract_range &) { return {}; }

}  // namespace contract_test

namespace {

using contract_test::call_of;
using contract_test::finding_of;

/// A dense permute of 2 x 3 x 4 x 5 bytes by lines.
_NN_PERMUTE_PARM plain_permute() {
  _NN_PERMUTE_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.width = 5;
  block.height = 4;
  block.channel = 3;
  block.batch = 2;
  block.in_line_ofs = 5;
  block.in_channel_ofs = 20;
  block.in_batch_ofs = 60;
  block.out_line_ofs = 5;
  block.out_channel_ofs = 15;
  block.out_batch_ofs = 60;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.order[0] = 0;
  block.order[1] = 2;
  block.order[2] = 1;
  block.order[3] = 3;
  return block;
}

constexpr const char *kPermute = "tarvu_permute_process";

TEST(ContractAny, ANullAddressIsToldWhereItIsTouched) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-01");
  block.out_addr = 0;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-01");
  EXPECT_STREQ(finding_of(call_of(kPermute, block), "TARVU-ANY-01").sentence,
               "out_addr is null, and 120 bytes there are touched.");
  const auto call = call_of(kPermute, block);
  EXPECT_EQ(tarvu_contract_findings(&call, TARVU_CONTRACT_WITHOUT_ADDRESSES, nullptr, 0), 0u);
}

TEST(ContractAny, AnAddressThatIsNotAlignedAsTheElementsNeedItIsTold) {
  tarvu_contract_range range = contract::range_of("work_buffer", 0x1004, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_F32, 4);
  range.alignment = 4;
  EXPECT_NOT_FOUND(range, "TARVU-ANY-02");
  range.address = 0x1003;
  EXPECT_FOUND(range, "TARVU-ANY-02");
}

TEST(ContractAny, MemoryBehindTheLastAddressIsTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.in_addr = 0 - uint64_t{120};
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-03");
  block.in_addr += 1;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-03");
}

TEST(ContractAny, AStepThatIsSmallerThanWhatItStepsOverIsTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-04");
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-05");
  block.in_line_ofs = 4;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-04");
  block.out_line_ofs = 0;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-05");
  const auto finding = finding_of(call_of(kPermute, block), "TARVU-ANY-05");
  EXPECT_STREQ(finding.field, "out_line_ofs");
  EXPECT_STREQ(finding.sentence, "out_line_ofs is 0, but one step holds 5 bytes: results are written over results.");
}

TEST(ContractAny, APermutedTensorStepsBetweenItsPlacesWithoutOverlap) {
  tarvu_contract_range range = contract::range_of("in_addr", 0, TARVU_CONTRACT_READS, TARVU_CONTRACT_S8, 1);
  contract::extend(range, 4, 5);
  contract::extend(range, 5, 1);
  contract::Wide bytes;
  EXPECT_EQ(contract::folded_extent(range, bytes), nullptr);
  range.extents[1].count = 6;
  EXPECT_EQ(contract::folded_extent(range, bytes), range.extents + 1);
}

TEST(ContractAny, TensorsThatShareAByteAreTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.out_addr = block.in_addr + 120;
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-06");
  block.out_addr -= 1;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-06");
}

TEST(ContractAny, TensorsThatLieBetweenEachOthersLinesDoNotOverlap) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.order[1] = 1;
  block.order[2] = 2;
  block.in_line_ofs = block.out_line_ofs = 10;
  block.in_channel_ofs = block.out_channel_ofs = 40;
  block.in_batch_ofs = block.out_batch_ofs = 120;
  block.out_addr = block.in_addr + 5;
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-06");
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-07");
  block.out_addr = block.in_addr + 4;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-06");
}

TEST(ContractAny, OverlapThatWouldTakeLongToReckonIsPossible) {
  _NN_PERMUTE_PARM block = plain_permute();
  block.height = block.channel = 2000;
  block.width = 1;
  block.batch = 1;
  block.in_line_ofs = 6;
  block.in_channel_ofs = 2000 * 6;
  block.out_line_ofs = 10;
  block.out_channel_ofs = 2000 * 10;
  block.out_addr = block.in_addr + 1;
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-06");
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-07");
}

TEST(ContractAny, AnExtentOfZeroIsTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-08");
  block.height = 0;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-08");
  EXPECT_STREQ(finding_of(call_of(kPermute, block), "TARVU-ANY-08").field, "height");
}

TEST(ContractAny, FormatsThatDifferInTheReservedByteAreTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-09");
  block.out_fmt.fmt_reserved = 1;
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-09");
}

TEST(ContractAny, ASizeThatWrapsIsTold) {
  _NN_REVERSE_PARM block = {};
  block.in_addr = 0x1000000000;
  block.out_addr = 0x2000000000;
  block.width = block.channel = block.batch = 1;
  block.height = 2;
  block.in_line_ofs = block.out_line_ofs = 0x7FFFFFFF;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.axis = 2;
  EXPECT_NOT_FOUND(call_of("tarvu_reverse_process", block), "TARVU-ANY-10");
  block.in_line_ofs = block.out_line_ofs = 0x80000000;
  EXPECT_FOUND(call_of("tarvu_reverse_process", block), "TARVU-ANY-10");
}

TEST(ContractAny, FormatsThatNoConversionServesAreTold) {
  _NN_PERMUTE_PARM block = plain_permute();
  EXPECT_NOT_FOUND(call_of(kPermute, block), "TARVU-ANY-11");
  block.out_fmt = support::format(32, 4, 1);
  EXPECT_FOUND(call_of(kPermute, block), "TARVU-ANY-11");
  EXPECT_TRUE(cases::ranges_of(call_of(kPermute, block), 0).empty());
}

TEST(ContractAny, ANullRecordIsTold) {
  const _NN_PERMUTE_PARM block = plain_permute();
  tarvu_contract_call call = call_of(kPermute, block);
  EXPECT_NOT_FOUND(call, "TARVU-ANY-12");
  call.argument[0] = 0;
  EXPECT_FOUND(call, "TARVU-ANY-12");
  EXPECT_TRUE(cases::ranges_of(call, 0).empty());
}

/// Overlap by its definition: a byte that both have.
bool share_a_byte(const tarvu_contract_range &a, const tarvu_contract_range &b) {
  std::vector<bool> bytes(4096);
  cases::for_each_element(a, [&](uint64_t at) {
    for (uint32_t i = 0; i < a.element_bytes; ++i) bytes[at + i] = true;
  });
  bool shared = false;
  cases::for_each_element(b, [&](uint64_t at) {
    for (uint32_t i = 0; i < b.element_bytes; ++i) shared |= bytes[at + i];
  });
  return shared;
}

TEST(ContractOverlap, AgreesWithACountOfEveryByteWhereItIsSure) {
  support::Random random = support::test_random(31);
  SCOPED_TRACE(random.trace());
  int sure = 0;
  for (int round = 0; round < 4000; ++round) {
    tarvu_contract_range ranges[2];
    for (auto &range : ranges) {
      range = contract::range_of("field", random.below(300), TARVU_CONTRACT_READS, TARVU_CONTRACT_BYTES,
                                 1 + random.below(3));
      for (uint32_t i = 0; i < 3; ++i) {
        contract::extend(range, 1 + random.below(4), random.pick<int64_t>({0, 1, 4, 12, 40, random.between(0, 60)}));
      }
    }
    const contract::Overlap found = contract::overlap_of(ranges[0], ranges[1]);
    if (found == contract::Overlap::kPossible) continue;
    ++sure;
    ASSERT_EQ(found == contract::Overlap::kCertain, share_a_byte(ranges[0], ranges[1])) << round;
  }
  EXPECT_GT(sure, 3900);
}

}  // namespace
