// LSTM: what its blocks touch, and every finding with a call that has it and one that has it not.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

constexpr const char *kProcess = "tarvu_lstm_process";
constexpr const char *kRecurrence = "lstm_process_c";

/// 3 steps of 2 sequences, 5 inputs of signed bytes and 4 hidden units.
struct Plain {
  uint8_t flags[6] = {0, 0, 1, 1, 1, 1};
  _NN_LSTM_PARM block = {};

  Plain() {
    block.in_addr = 0x10000;
    block.out_addr = 0x20000;
    block.work_buffer = 0x30000;
    block.cont_addr = reinterpret_cast<uintptr_t>(flags);
    for (uint32_t gate = 0; gate < 4; ++gate) {
      block.input_weights[gate] = 0x40000 + gate * 0x100;
      block.static_weights[gate] = 0x50000 + gate * 0x100;
      block.recurrent_weights[gate] = 0x60000 + gate * 0x100;
      block.biases[gate] = 0x70000 + gate * 0x100;
    }
    block.width = 5;
    block.height = 1;
    block.channel = 2;
    block.batch = 3;
    block.in_fmt = block.out_fmt = support::format(8, 4, 1);
    block.hidden_size = 4;
  }
};

tarvu_contract_range range_of(const tarvu_contract_call &call, const std::string &field, uint32_t options = 0) {
  for (const auto &range : cases::ranges_of(call, options)) {
    if (field == range.field) return range;
  }
  tarvu_contract_range none = {};
  none.field = "";
  return none;
}

TEST(ContractLstm, APlainBlockReadsInputsFlagsAndWeightsAndLeavesItsStatesInTheWorkArea) {
  const Plain plain;
  const auto call = call_of(kProcess, plain.block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(tarvu_contract_scratch_bytes(&call), 4u * (30 + 10 + 8 + 24));
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 18u);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[0]), 30u);
  const auto input_weights = range_of(call, "input_weights[3]");
  EXPECT_EQ(input_weights.address, 0x40300u);
  EXPECT_EQ(tarvu_contract_range_bytes(&input_weights), 80u);
  const auto biases = range_of(call, "biases[0]");
  EXPECT_EQ(tarvu_contract_range_bytes(&biases), 16u);
  EXPECT_EQ(range_of(call, "static_weights[0]").address, 0u) << "there is no static input";
  EXPECT_EQ(ranges[15].role, TARVU_CONTRACT_SCRATCH);
  EXPECT_EQ(ranges[16].role, TARVU_CONTRACT_SCRATCH_RESULT);
  EXPECT_EQ(ranges[16].offset, 160);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[16]), 32u);
  EXPECT_EQ(ranges[17].offset, 192);
  EXPECT_EQ(tarvu_contract_range_bytes(&ranges[17]), 96u);
}

TEST(ContractLstm, TheRecurrentWeightsAreReadIfAFlagContinuesASequence) {
  Plain plain;
  const auto call = call_of(kProcess, plain.block);
  EXPECT_EQ(range_of(call, "recurrent_weights[1]").exact, 0);
  EXPECT_EQ(range_of(call, "recurrent_weights[1]", TARVU_CONTRACT_READ_CONTENTS).exact, 1);
  std::memset(plain.flags, 0, sizeof plain.flags);
  EXPECT_EQ(range_of(call, "recurrent_weights[1]", TARVU_CONTRACT_READ_CONTENTS).address, 0u);
}

TEST(ContractLstm, TheRecurrenceAloneReadsItsInputsFromTheWorkArea) {
  Plain plain;
  plain.block.use_static = 1;
  plain.block.in_fmt = support::format(24, 0, 0);
  const auto call = call_of(kRecurrence, plain.block);
  EXPECT_EQ(contract_test::ids_of(call), "");
  EXPECT_EQ(range_of(call, "in_addr").address, 0u);
  EXPECT_EQ(range_of(call, "static_addr").address, 0u);
  EXPECT_EQ(range_of(call, "static_weights[2]").address, 0x50200u);
  const auto ranges = cases::ranges_of(call, 0);
  ASSERT_EQ(ranges.size(), 21u);
  EXPECT_EQ(ranges[17].role, TARVU_CONTRACT_READS);
  EXPECT_EQ(ranges[17].exact, 1);
  EXPECT_EQ(ranges[18].offset, 120);
}

TEST(ContractLstm, FloatsStandInTheWorkAreaBeforeAndAfterwards) {
  Plain plain;
  EXPECT_NOT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-01");
  EXPECT_NOT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-02");
  plain.block.in_fmt = plain.block.out_fmt = support::format(32, 0, 1);
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-01");
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-02");
  EXPECT_EQ(range_of(call_of(kProcess, plain.block), "work_buffer").role, TARVU_CONTRACT_READS);
  EXPECT_EQ(range_of(call_of(kProcess, plain.block), "out_addr").address, 0u);
}

TEST(ContractLstm, WhatIsEasilyMeantOtherwiseIsTold) {
  Plain plain;
  EXPECT_NOT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-03");
  EXPECT_NOT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-04");
  EXPECT_NOT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-05");
  plain.flags[1] = 7;
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-03");
  EXPECT_STREQ(
      finding_of(call_of(kProcess, plain.block), "TARVU-LSTM-03").sentence,
      "cont_addr holds 7 for sequence 1 in the first step: for want of hidden states its cell states are taken.");
  plain.block.static_addr = 0x80000;
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-04");
  plain.block.width = 0;
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-LSTM-05");
}

TEST(ContractLstm, EachAddressIsLookedAtAndSoIsEachOverlap) {
  Plain plain;
  plain.block.biases[2] = 0;
  EXPECT_STREQ(finding_of(call_of(kProcess, plain.block), "TARVU-ANY-01").field, "biases[2]");
  plain.block.biases[2] = plain.block.out_addr + 8;
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-ANY-06");
  plain.block.biases[2] = 0x70200;
  plain.block.hidden_size = 65536;
  EXPECT_FOUND(call_of(kProcess, plain.block), "TARVU-ANY-10");
}

}  // namespace
