#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tarvu.h"
#include "tests/activation/softmax_cases.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/support/differential.h"
#include "tests/support/formats.h"

namespace {

using softmax_cases::axis_line;
using softmax_cases::float_block;
using softmax_cases::Shape;
using softmax_cases::softmax_of_floats;
using support::Case;
using support::Element;
using support::format;
using support::GuardedMemory;
using support::Random;
using support::scale;
using support::StdoutCapture;
using support::test_random;
using support::unreadable_address;

std::vector<float> softmax(std::vector<float> in, Shape shape, int axis) {
  return softmax_of_floats<_NN_SOFTMAX_PARM>(::tarvu_softmax_process, std::move(in), shape, axis);
}

std::vector<float> counted(size_t count) {
  std::vector<float> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = 0.75f * static_cast<float>((i * 5) % 11);
  return values;
}

TEST(Softmax, RandomBlocksMatchTheReference) {
  Random random = test_random(311);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 900; ++i) {
    softmax_cases::expect_same_for_random_block<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_process,
                                                                  reference::tarvu_softmax_process);
    if (HasFatalFailure()) break;
  }
}

TEST(Softmax, ColumnsAcrossTheChannelsMatchTheReference) {
  Random random = test_random(312);
  SCOPED_TRACE(random.trace());
  for (int columns = 2; columns <= 2 * 16 + 3; ++columns) {
    for (int channel : {1, 2, 21}) {
      const Shape shape = columns % 3 == 0 ? Shape{3, columns / 3, channel, 1} : Shape{columns, 1, channel, 1};
      Case<_NN_SOFTMAX_PARM> columns_case;
      columns_case.block = float_block<_NN_SOFTMAX_PARM>(shape, 1);
      const size_t bytes = size_t{4} * static_cast<size_t>(columns * channel);
      const GuardedMemory in(bytes), out(bytes), scratch(bytes);
      softmax_cases::fill_input(random, in, true);
      columns_case.attach(&_NN_SOFTMAX_PARM::in_addr, in, "input");
      columns_case.attach(&_NN_SOFTMAX_PARM::out_addr, out, "output", Element::kFloat);
      columns_case.block.work_buffer = scratch.address();
      ASSERT_TRUE(columns_case.same(::tarvu_softmax_process, reference::tarvu_softmax_process))
          << columns << " columns";
    }
  }
}

TEST(Softmax, EverySmallShapeAndAxisMatchesTheReference) {
  Random random = test_random(318);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_for_every_small_shape<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_process,
                                                                     reference::tarvu_softmax_process);
}

TEST(Softmax, OneBatchItemMatchesTheReference) {
  Random random = test_random(313);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 200; ++i) {
    softmax_cases::expect_same_for_random_block<_NN_SOFTMAX_PARM>(
        random,
        [](const _NN_SOFTMAX_PARM *parm) {
          return ::tarvu_softmax_process_one_batch(parm, reinterpret_cast<const void *>(parm->in_addr),
                                                   reinterpret_cast<void *>(parm->out_addr));
        },
        [](const _NN_SOFTMAX_PARM *parm) {
          return reference::tarvu_softmax_process_one_batch(parm, reinterpret_cast<const void *>(parm->in_addr),
                                                            reinterpret_cast<void *>(parm->out_addr));
        });
    if (HasFatalFailure()) break;
  }
}

TEST(Softmax, LongItemsApartAndOverlappingMatchTheReference) {
  Random random = test_random(319);
  SCOPED_TRACE(random.trace());
  softmax_cases::expect_same_for_long_items<_NN_SOFTMAX_PARM>(random, ::tarvu_softmax_process,
                                                              reference::tarvu_softmax_process);
}

TEST(Softmax, Axis2OfAWidthOf1RunsOverContiguousLines) {
  const std::vector<float> in = counted(3 * 5);
  const std::vector<float> out = softmax(in, {1, 5, 3, 1}, 2);
  for (size_t c = 0; c < 3; ++c) {
    const std::vector<float> line(in.begin() + static_cast<long>(5 * c), in.begin() + static_cast<long>(5 * c + 5));
    const std::vector<float> expected = softmax(line, {5, 1, 1, 1}, 3);
    EXPECT_EQ(std::vector<float>(out.begin() + static_cast<long>(5 * c), out.begin() + static_cast<long>(5 * c + 5)),
              expected);
  }
}

TEST(Softmax, Axis2OfASingleColumnIsOneGroup) {
  const std::vector<float> in = counted(23);
  EXPECT_EQ(softmax(in, {1, 23, 1, 1}, 2), softmax(in, {1, 23, 1, 1}, -1));
}

TEST(Softmax, ANegativeAxisRunsOverTheWholeItem) {
  const std::vector<float> in = counted(2 * 3 * 4);
  const std::vector<float> expected = softmax(in, {24, 1, 1, 1}, 3);
  EXPECT_EQ(softmax(in, {4, 3, 2, 1}, -1), expected);
  EXPECT_EQ(softmax(in, {2, 3, 4, 1}, -128), expected);
}

TEST(Softmax, FloatInputOfEveryItemIsThatOfTheFirst) {
  // The input holds the first item alone, and the second would fault.
  const GuardedMemory in(4 * 6), scratch(4 * 6);
  const std::vector<float> values = counted(6);
  std::memcpy(in.data(), values.data(), in.size());
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({3, 2, 1, 3}, 3);
  std::vector<float> out(18, -77.0f);
  block.in_addr = in.address();
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = scratch.address();
  ASSERT_EQ(::tarvu_softmax_process(&block), QX_OK);
  const std::vector<float> first(out.begin(), out.begin() + 6);
  EXPECT_EQ(first, softmax(values, {3, 2, 1, 1}, 3));
  EXPECT_EQ(std::vector<float>(out.begin() + 6, out.begin() + 12), first);
  EXPECT_EQ(std::vector<float>(out.begin() + 12, out.end()), first);
}

TEST(Softmax, FloatsInPlaceFeedTheFirstResultToTheSecondItem) {
  Case<_NN_SOFTMAX_PARM> in_place;
  in_place.block = float_block<_NN_SOFTMAX_PARM>({37, 3, 1, 3}, 3);
  const GuardedMemory tensor(3 * 4 * 111), scratch(4 * 111);
  Random random = test_random(314);
  SCOPED_TRACE(random.trace());
  random.fill_floats(tensor.data(), 333, -9.0f, 9.0f);
  in_place.attach(&_NN_SOFTMAX_PARM::in_addr, tensor, "tensor", Element::kFloat);
  in_place.block.out_addr = tensor.address();
  in_place.block.work_buffer = scratch.address();
  ASSERT_TRUE(in_place.same(::tarvu_softmax_process, reference::tarvu_softmax_process));
}

TEST(Softmax, IntegersInPlaceMatchTheReference) {
  Random random = test_random(315);
  SCOPED_TRACE(random.trace());
  for (int width : {8, 16}) {
    for (int axis : {1, 2, 3, -1}) {
      Case<_NN_SOFTMAX_PARM> in_place;
      _NN_SOFTMAX_PARM &block = in_place.block;
      block = float_block<_NN_SOFTMAX_PARM>({19, 7, 5, 2}, axis);
      block.in_fmt = format(width, width - 5, 1);
      block.out_fmt = format(width, width, 0);
      block.in_batch_ofs = static_cast<uint32_t>(19 * 7 * 5 * width / 8);
      block.out_batch_ofs = block.in_batch_ofs;
      const GuardedMemory tensor(2 * block.in_batch_ofs), scratch(8 * 19 * 7 * 5);
      random.fill(tensor.data(), tensor.size());
      in_place.attach(&_NN_SOFTMAX_PARM::in_addr, tensor, "tensor", width == 8 ? Element::k8Bit : Element::k16Bit);
      block.out_addr = tensor.address();
      block.work_buffer = scratch.address();
      ASSERT_TRUE(in_place.same(::tarvu_softmax_process, reference::tarvu_softmax_process))
          << width << ", axis " << axis;
    }
  }
}

TEST(Softmax, AnAxisThatIsNotServedPrintsALineForEveryItemAndWritesNoOutputByte) {
  for (int axis : {0, 4, 127}) {
    std::vector<float> in = counted(8), out(16, -77.0f), scratch(16);
    _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({4, 2, 1, 2}, axis);
    block.in_addr = reinterpret_cast<uintptr_t>(in.data());
    block.out_addr = reinterpret_cast<uintptr_t>(out.data());
    block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
    StdoutCapture capture;
    const _QX_RESULT result = ::tarvu_softmax_process(&block);
    const std::string line = axis_line("tarvu_softmax_process_one_batch");
    EXPECT_EQ(capture.text(), line + line);
    EXPECT_EQ(result, QX_ERR_UNSUPPORTED);
    EXPECT_EQ(out, std::vector<float>(16, -77.0f));
  }
}

TEST(Softmax, ABatchOf0TouchesNothing) {
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({4, 2, 1, 0}, 0);
  block.in_addr = block.out_addr = block.work_buffer = unreadable_address();
  StdoutCapture capture;
  const _QX_RESULT result = ::tarvu_softmax_process(&block);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, QX_OK);
}

TEST(Softmax, AnIntegerOutputOfAnotherSignIsLeftUnwritten) {
  for (int sign_bits : {2, -1}) {
    const std::vector<float> in = counted(8);
    std::vector<float> scratch(16);
    std::vector<uint8_t> out(8, 99);
    _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({8, 1, 1, 1}, 3);
    block.out_fmt = format(8, 7, sign_bits);
    block.in_addr = reinterpret_cast<uintptr_t>(in.data());
    block.out_addr = reinterpret_cast<uintptr_t>(out.data());
    block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
    EXPECT_EQ(::tarvu_softmax_process(&block), QX_OK);
    EXPECT_EQ(out, std::vector<uint8_t>(8, 99));
  }
}

TEST(Softmax, AnInputThatNoConversionServesComputesOnStaleScratchMemory) {
  std::vector<float> scratch = counted(16);
  const std::vector<float> expected = softmax({scratch.begin(), scratch.begin() + 8}, {8, 1, 1, 1}, 3);
  std::vector<float> out(8, -77.0f);
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({8, 1, 1, 1}, 3);
  block.in_fmt = format(32, 0, 0);
  block.in_addr = unreadable_address();
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  StdoutCapture capture;
  const _QX_RESULT result = ::tarvu_softmax_process(&block);
  EXPECT_EQ(capture.text(), "");
  EXPECT_EQ(result, QX_OK);
  EXPECT_EQ(out, expected);
}

TEST(Softmax, BatchOffsetsWrapIn32Bits) {
  constexpr uint64_t kHalf = uint64_t{1} << 31;
  constexpr size_t kPage = 65536;
  void *space = mmap(nullptr, 2 * kHalf + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(space, MAP_FAILED);
  auto *items = static_cast<uint8_t *>(space);
  ASSERT_EQ(mprotect(items, kPage, PROT_READ | PROT_WRITE), 0);
  ASSERT_EQ(mprotect(items + kHalf, kPage, PROT_READ | PROT_WRITE), 0);
  const uint8_t first[3] = {10, 10, 20};
  const uint8_t second[3] = {10, 30, 30};
  std::memcpy(items, first, 3);
  std::memcpy(items + kHalf, second, 3);
  std::vector<float> out(9, -77.0f), scratch(6);
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({3, 1, 1, 3}, 3);
  block.in_fmt = format(8, 4, 0);
  block.in_addr = reinterpret_cast<uintptr_t>(items);
  block.in_batch_ofs = static_cast<uint32_t>(kHalf);
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  EXPECT_EQ(::tarvu_softmax_process(&block), QX_OK);
  munmap(space, 2 * kHalf + kPage);
  EXPECT_EQ(out[1], out[0]) << "first item";
  EXPECT_EQ(out[4], out[5]) << "second item";
  EXPECT_LT(out[3], out[4]) << "second item";
  EXPECT_EQ(std::vector<float>(out.begin() + 6, out.end()), std::vector<float>(out.begin(), out.begin() + 3));
}

// ---- The whole-tensor form

TEST(SoftmaxOfConsecutiveElements, RandomBlocksMatchTheReference) {
  Random random = test_random(316);
  SCOPED_TRACE(random.trace());
  for (int i = 0; i < 400; ++i) {
    Case<_NN_SOFTMAX_PARM> whole;
    _NN_SOFTMAX_PARM &block = whole.block;
    block = softmax_cases::random_block<_NN_SOFTMAX_PARM>(random);
    block.batch = static_cast<uint16_t>(random.between(1, 3));
    block.in_batch_ofs = static_cast<uint32_t>(random.next());
    block.out_batch_ofs = static_cast<uint32_t>(random.next());
    block.axis = static_cast<int8_t>(random.pick({0, 1, 2, 3, 4, -1, -128, 127}));
    const size_t count =
        size_t{block.batch} * softmax_cases::elements_of_an_item(block.width, block.height, block.channel);
    const bool float_in = softmax_cases::width_in_bits(block.in_fmt) == 32 && block.in_fmt.sign_bits == 1;
    const GuardedMemory in(count * softmax_cases::out_element_bytes(block.in_fmt));
    const GuardedMemory out(count * softmax_cases::out_element_bytes(block.out_fmt));
    const GuardedMemory scratch(count * (softmax_cases::out_element_bytes(block.out_fmt) == 4 ? 4 : 8));
    softmax_cases::fill_input(random, in, float_in);
    random.fill(out.data(), out.size());
    std::vector<float> stale(scratch.size() / 4);
    random.fill_floats(stale.data(), stale.size(), -1.0f, 1.0f);
    whole.attach(&_NN_SOFTMAX_PARM::in_addr, in, "input");
    whole.attach(&_NN_SOFTMAX_PARM::out_addr, out, "output", softmax_cases::out_element(block.out_fmt));
    block.work_buffer = scratch.address();
    const auto with_stale_scratch = [&](auto process) {
      return [&, process](const _NN_SOFTMAX_PARM *parm) {
        if (!stale.empty()) std::memcpy(scratch.data(), stale.data(), scratch.size());
        return process(parm);
      };
    };
    ASSERT_TRUE(whole.same(with_stale_scratch(::tarvu_softmax_process_0),
                           with_stale_scratch(reference::tarvu_softmax_process_0)))
        << "case " << i;
    ASSERT_EQ(scratch.guard_damage(), "");
  }
}

std::vector<float> consecutive(const std::vector<float> &in, Shape shape, int axis) {
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>(shape, axis);
  std::vector<float> out(in.size(), -77.0f), scratch(in.size());
  block.in_addr = reinterpret_cast<uintptr_t>(in.data());
  block.out_addr = reinterpret_cast<uintptr_t>(out.data());
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  StdoutCapture capture;
  EXPECT_EQ(::tarvu_softmax_process_0(&block), QX_OK);
  EXPECT_EQ(capture.text(), "");
  return out;
}

TEST(SoftmaxOfConsecutiveElements, Axis0GroupsAsManyElementsAsThereAreItems) {
  // Two items of four: two groups of two, and the second item stays as it was.
  const std::vector<float> out = consecutive({1, 1, 2, 2, 3, 4, 5, 6}, {4, 1, 1, 2}, 0);
  EXPECT_EQ(out, (std::vector<float>{0.5f, 0.5f, 0.5f, 0.5f, -77.0f, -77.0f, -77.0f, -77.0f}));
}

TEST(SoftmaxOfConsecutiveElements, Axis0OfNoItemsHasNoGroups) {
  _NN_SOFTMAX_PARM block = float_block<_NN_SOFTMAX_PARM>({4, 2, 1, 0}, 0);
  block.in_addr = block.out_addr = block.work_buffer = unreadable_address();
  EXPECT_EQ(::tarvu_softmax_process_0(&block), QX_OK);
}

TEST(SoftmaxOfConsecutiveElements, AnUnknownAxisMakesEveryElementOfOneItemAGroup) {
  for (int axis : {4, -1}) {
    const std::vector<float> out = consecutive({1, 2, 3, 4, 5, 6, 7, 8}, {2, 1, 2, 2}, axis);
    EXPECT_EQ(out, (std::vector<float>{1, 1, 1, 1, -77, -77, -77, -77})) << axis;
  }
}

TEST(SoftmaxOfConsecutiveElements, Axis2GroupsConsecutiveElementsNotColumns) {
  const std::vector<float> out = consecutive({7, 7, 7, 9, 9, 9}, {2, 3, 1, 1}, 2);
  EXPECT_EQ(out[0], out[1]);
  EXPECT_EQ(out, std::vector<float>(6, out[0]));
}

// ---- Helpers

TEST(SoftmaxHelpers, SixteenBitIntegersAreReadAsSignedInSpiteOfTheName) {
  const std::vector<int16_t> in = {-1, 100, -32768};
  std::vector<float> out(3);
  EXPECT_EQ(::dataTransform_u16tofloat(in.data(), out.data(), 2, 3), 0);
  EXPECT_EQ(out, (std::vector<float>{-0.25f, 25.0f, -8192.0f}));
  EXPECT_EQ(::dataTransform_u16tofloat(in.data(), out.data(), -3, 3), 0);
  EXPECT_EQ(out, (std::vector<float>{-8.0f, 800.0f, -262144.0f}));
}

TEST(SoftmaxHelpers, ATransformShiftCountsModulo32AndMayReachTheSignBit) {
  const std::vector<int16_t> in = {3};
  std::vector<float> out(1);
  const auto transformed = [&](int shift) {
    ::dataTransform_u16tofloat(in.data(), out.data(), static_cast<int8_t>(shift), 1);
    return out[0];
  };
  EXPECT_EQ(transformed(31), -3.0f * 0x1p-31f);
  EXPECT_EQ(transformed(32), 3.0f);
  EXPECT_EQ(transformed(-31), -3.0f * 0x1p31f);
  EXPECT_EQ(transformed(-128), 3.0f);
}

TEST(SoftmaxHelpers, EveryLengthAndShiftOfTheTransformMatchesTheReference) {
  Random random = test_random(317);
  SCOPED_TRACE(random.trace());
  for (int32_t count = 0; count <= 35; ++count) {
    const GuardedMemory in(2 * static_cast<size_t>(count)), out(4 * static_cast<size_t>(count));
    random.fill(in.data(), in.size());
    support::Differential transform;
    transform.track(in, "input");
    transform.track(out, "output", Element::kFloat);
    const int8_t shift = static_cast<int8_t>(random.between(-128, 127));
    ASSERT_TRUE(transform.same(
        [&] { return ::dataTransform_u16tofloat(in.as<int16_t>(), out.as<float>(), shift, count); },
        [&] { return reference::dataTransform_u16tofloat(in.as<int16_t>(), out.as<float>(), shift, count); }));
  }
}

std::string text_of(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TEST(SoftmaxHelpers, WriteFileWritesOneFloatALineWithEightDecimals) {
  const std::string path = testing::TempDir() + "tarvu_write_file_test.txt";
  const std::vector<float> values = {1.5f, -0.1f, 1e10f};
  EXPECT_EQ(::write_file(path.c_str(), values.data(), 3), 0);
  EXPECT_EQ(text_of(path), "1.50000000\n-0.10000000\n10000000000.00000000\n");
  EXPECT_EQ(::write_file(path.c_str(), values.data(), 0), 0);
  EXPECT_EQ(text_of(path), "") << "an older content goes";
  EXPECT_EQ(::write_file(path.c_str(), values.data(), -1), 0);
  EXPECT_EQ(text_of(path), "");
  std::remove(path.c_str());
}

TEST(SoftmaxHelpers, WriteFileReturnsMinus1ForAFileThatCannotBeOpened) {
  const float value = 0.0f;
  const std::string path = testing::TempDir() + "no such folder/file.txt";
  EXPECT_EQ(::write_file(path.c_str(), &value, 1), -1);
}

}  // namespace
