// The choice of an element type by width and sign, by format, and by code.
#include "frame/element_type.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

template <class T>
std::string name_of(T) {
  return std::string(std::is_signed_v<T> ? "s" : "u") + std::to_string(8 * sizeof(T));
}

std::string chosen(int sign_bits, int frac_bits, int int_bits) {
  _NN_FMT fmt{};
  fmt.sign_bits = static_cast<decltype(fmt.sign_bits)>(sign_bits);
  fmt.frac_bits = static_cast<decltype(fmt.frac_bits)>(frac_bits);
  fmt.int_bits = static_cast<decltype(fmt.int_bits)>(int_bits);
  std::string names;
  tarvu::with_element_type(fmt, [&](auto element) { names += name_of(element); });
  return names;
}

TEST(ElementType, AFormatOf8Or16BitsHasAType) {
  EXPECT_EQ(chosen(0, 8, 0), "u8");
  EXPECT_EQ(chosen(1, 3, 4), "s8");
  EXPECT_EQ(chosen(0, -4, 20), "u16");
  EXPECT_EQ(chosen(1, 15, 0), "s16");
}

TEST(ElementType, OtherWidthsAndOtherSignBitsDoNothing) {
  for (const int width : {0, 1, 7, 9, 12, 15, 17, 32, 64}) {
    EXPECT_EQ(chosen(0, width, 0), "");
    EXPECT_EQ(chosen(1, width - 1, 0), "");
  }
  EXPECT_EQ(chosen(2, 6, 0), "");
  EXPECT_EQ(chosen(-1, 9, 0), "");
}

TEST(ElementType, AnyWidthOtherThan8And16DoesNothing) {
  for (int width = -300; width <= 300; ++width) {
    std::string names;
    tarvu::with_element_of(width, false, [&](auto element) { names += name_of(element); });
    tarvu::with_element_of(width, true, [&](auto element) { names += name_of(element); });
    EXPECT_EQ(names, width == 8 ? "u8s8" : width == 16 ? "u16s16" : "") << width;
  }
}

TEST(ElementType, EveryCodeButTheFirstThreeIsUnsigned16Bits) {
  const auto name = [](NN_AI_IO_TYPE type) {
    return tarvu::with_element_type(type, [](auto element) { return name_of(element); });
  };
  EXPECT_EQ(name(NN_AI_IO_TYPE_INT8), "s8");
  EXPECT_EQ(name(NN_AI_IO_TYPE_UINT8), "u8");
  EXPECT_EQ(name(NN_AI_IO_TYPE_INT16), "s16");
  EXPECT_EQ(name(NN_AI_IO_TYPE_UINT16), "u16");
  EXPECT_EQ(name(NN_AI_IO_TYPE_32BIT), "u16");
}

}  // namespace
