// Mistakes that are made when a block is filled in, each with the sentence that is said of it.
#include "tests/contract/findings.h"
#include "tests/support/formats.h"

namespace {

using contract_test::call_of;
using contract_test::finding_of;

/// The field of a finding and its sentence; both empty where there is none.
struct Said {
  std::string field;
  std::string sentence;
};

template <class Block>
Said said_of(const char *function, const Block &block, const char *id) {
  const auto finding = finding_of(call_of(function, block), id);
  return {finding.field, finding.sentence};
}

#define EXPECT_SAID(said, wanted_field, wanted_sentence) \
  EXPECT_EQ(said.field, wanted_field);                   \
  EXPECT_EQ(said.sentence, wanted_sentence)

constexpr const char *kPool = "tarvu_pool_process";
constexpr const char *kReverse = "tarvu_reverse_process";
constexpr const char *kPermute = "tarvu_permute_process";
constexpr const char *kTopK = "tarvu_topk_process";
constexpr const char *kGather = "tarvu_gather_process";

/// A dense tensor of 2 x 3 x 4 x 6 signed bytes, input and output far apart.
template <class Block>
Block dense_block() {
  Block block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.width = 6;
  block.height = 4;
  block.channel = 3;
  block.batch = 2;
  block.in_line_ofs = block.out_line_ofs = 6;
  block.in_channel_ofs = block.out_channel_ofs = 24;
  block.in_batch_ofs = block.out_batch_ofs = 72;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  return block;
}

/// Windows of 2 x 2 beside each other.
_NN_POOL_PARM pool() {
  auto block = dense_block<_NN_POOL_PARM>();
  block.out_line_ofs = 3;
  block.out_channel_ofs = 6;
  block.out_batch_ofs = 18;
  block.in_scale = block.out_scale = support::scale(1, 0);
  block.kernel_w = block.kernel_h = block.stride_w = block.stride_h = 2;
  return block;
}

_NN_PERMUTE_PARM permute() {
  auto block = dense_block<_NN_PERMUTE_PARM>();
  for (int8_t i = 0; i < 4; ++i) block.order[i] = i;
  return block;
}

_NN_REVERSE_PARM reverse() {
  auto block = dense_block<_NN_REVERSE_PARM>();
  block.axis = 2;
  return block;
}

/// The two largest of each five elements.
_NN_TOPK_PARM topk() {
  _NN_TOPK_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.out_index_addr = 0x30000;
  block.work_buffer = 0x40000;
  block.width = 5;
  block.height = block.channel = block.batch = 1;
  block.in_fmt = support::format(8, 4, 1);
  block.axis = 3;
  block.largest = block.sorted = 1;
  block.k = 2;
  return block;
}

/// Two of four lines.
_NN_GATHER_PARM gather(const uint8_t *list) {
  _NN_GATHER_PARM block = {};
  block.in_addr = 0x10000;
  block.out_addr = 0x20000;
  block.ind_addr = reinterpret_cast<uintptr_t>(list);
  block.in_width = block.out_width = 5;
  block.in_height = 4;
  block.ind_width = block.out_height = 2;
  block.in_line_ofs = block.out_line_ofs = 5;
  block.in_channel_ofs = 20;
  block.out_channel_ofs = 10;
  block.in_fmt = block.out_fmt = support::format(8, 4, 1);
  block.ind_fmt = support::format(8, 0, 0);
  return block;
}

TEST(ContractMistakes, AStrideThatIsTooSmall) {
  _NN_POOL_PARM block = pool();
  block.out_line_ofs = 2;
  EXPECT_SAID(said_of(kPool, block, "TARVU-ANY-05"), "out_line_ofs",
              "out_line_ofs is 2, but one step holds 3 bytes: results are written over results.");
}

TEST(ContractMistakes, AStrideThatWasLeft0) {
  _NN_PERMUTE_PARM block = permute();
  block.in_line_ofs = 0;
  EXPECT_SAID(
      said_of(kPermute, block, "TARVU-ANY-04"), "in_line_ofs",
      "in_line_ofs is 0, but one step holds 6 bytes: the input overlaps itself, and the same bytes are read again.");
}

TEST(ContractMistakes, AFormatWhoseBitsAddUpToNeither8Nor16) {
  _NN_POOL_PARM block = pool();
  block.in_fmt = {4, 4, 1, 0};
  EXPECT_SAID(said_of(kPool, block, "TARVU-POOL-01"), "in_fmt",
              "Pooling reads elements of 8 or 16 bits; the bits of in_fmt add up to 9.");
}

TEST(ContractMistakes, AnAddressThatIsNull) {
  _NN_REVERSE_PARM block = reverse();
  block.out_addr = 0;
  EXPECT_SAID(said_of(kReverse, block, "TARVU-ANY-01"), "out_addr",
              "out_addr is null, and 144 bytes there are touched.");
}

TEST(ContractMistakes, ScratchMemoryThatIsMissing) {
  _NN_TOPK_PARM block = topk();
  block.work_buffer = 0;
  EXPECT_SAID(said_of(kTopK, block, "TARVU-ANY-01"), "work_buffer",
              "work_buffer is null, and 20 bytes there are touched.");
}

TEST(ContractMistakes, TensorsThatOverlap) {
  _NN_POOL_PARM block = pool();
  block.out_addr = block.in_addr + 1;
  EXPECT_SAID(said_of(kPool, block, "TARVU-ANY-06"), "out_addr",
              "What is written from out_addr on overlaps what else the call uses, which is not allowed here.");
}

TEST(ContractMistakes, AnExtentThatIs0) {
  _NN_PERMUTE_PARM block = permute();
  block.batch = 0;
  EXPECT_SAID(said_of(kPermute, block, "TARVU-ANY-08"), "batch",
              "batch is 0, so no element of the output is computed.");
}

TEST(ContractMistakes, AnAxisThatThereIsNot) {
  _NN_TOPK_PARM block = topk();
  block.axis = -1;
  EXPECT_SAID(said_of(kTopK, block, "TARVU-TOPK-03"), "axis", "axis is -1; there are the axes 0 to 3.");
}

TEST(ContractMistakes, IndicesOfAWrongType) {
  const uint8_t list[] = {0, 1};
  _NN_GATHER_PARM block = gather(list);
  block.ind_fmt = support::format(24, 0, 0);
  EXPECT_SAID(said_of(kGather, block, "TARVU-GATHER-02"), "ind_fmt",
              "Indices have 8, 16 or 32 bits; the bits of ind_fmt add up to 24.");
}

TEST(ContractMistakes, AnIndexOutsideTheAxis) {
  const uint8_t list[] = {0, 4};
  EXPECT_EQ(
      said_of(kGather, gather(list), "TARVU-GATHER-03").sentence,
      "Index 1 of the list is 4 and means position 4, but the axis has 4 positions: memory outside the input is read.");
}

TEST(ContractMistakes, MorePicksThanALineHolds) {
  _NN_TOPK_PARM block = topk();
  block.k = 6;
  EXPECT_SAID(said_of(kTopK, block, "TARVU-TOPK-04"), "k",
              "k is 6, but a line holds 5 elements: what the work buffer held before is used as element offsets.");
}

TEST(ContractMistakes, AnOutputOfAnotherWidth) {
  _NN_REVERSE_PARM block = reverse();
  block.out_fmt = support::format(16, 8, 1);
  EXPECT_SAID(
      said_of(kReverse, block, "TARVU-REVERSE-03"), "out_fmt",
      "The output has 16 bits and the input 8: slices are re-formatted over themselves and run into what follows.");
}

TEST(ContractMistakes, AnOrderWithTheSameAxisTwice) {
  _NN_PERMUTE_PARM block = permute();
  block.order[1] = 0;
  EXPECT_SAID(said_of(kPermute, block, "TARVU-PERMUTE-05"), "order",
              "order takes axis 0 twice, which walks its diagonal; another axis is not walked at all.");
}

TEST(ContractMistakes, AKernelOverThePaddedPlane) {
  _NN_POOL_PARM block = pool();
  block.pad_left = block.pad_right = 1;
  block.kernel_w = 9;
  EXPECT_SAID(said_of(kPool, block, "TARVU-POOL-08"), "kernel_w",
              "kernel_w is 9, but the plane with its padding is only 8 long: the first window holds all of it.");
}

TEST(ContractMistakes, AnOddAddressOfFloats) {
  _NN_PRIORBOX_PARM block = {};
  block.out_addr = 0x10001;
  block.in_width = block.in_height = 2;
  block.img_width = block.img_height = 300;
  block.variance_ofs = 64;
  block.min_sizes[0] = 30.0f;
  block.min_size_num = 1;
  block.aspect_ratios[0] = 2.0f;
  block.aspect_ratios_num = block.variance_num = 1;
  EXPECT_SAID(said_of("tarvu_priorbox_process", block, "TARVU-ANY-02"), "out_addr",
              "out_addr is no multiple of 4, as its elements need it.");
}

}  // namespace
