/// \file conversion.cpp
/// Conversion of a picture to floats and back, by format and scale, with and without a zero point.

#include "demo.h"

namespace demo {

namespace {

constexpr uint32_t kHalfAway = 3;  // rounding code: to nearest, ties away from zero

uint32_t count_of(const Tensor &tensor) { return static_cast<uint32_t>(tensor.bytes.size()) / tensor.element_bytes(); }

Tensor to_floats(Demo &demo, const std::string &name, const Tensor &in, _NN_SCALE scale, int32_t zero_point) {
  Tensor out(in.shape, kFloats);
  auto *floats = reinterpret_cast<float *>(out.bytes.data());
  auto const convert = [&] {
    tarvu_fixtofloat_1d_neon(in.bytes.data(), floats, count_of(in), &in.format, &scale, zero_point);
  };
  demo.run("to float: " + name, convert, in, out);
  return out;
}

Tensor from_floats(Demo &demo, const std::string &name, const Tensor &in, _NN_FMT format, _NN_SCALE scale,
                   int32_t zero_point) {
  Tensor out(in.shape, format);
  auto const *floats = reinterpret_cast<const float *>(in.bytes.data());
  auto const convert = [&] {
    tarvu_floattofix_1d_neon(floats, out.bytes.data(), count_of(in), &format, &scale, zero_point);
  };
  demo.run("to fixed: " + name, convert, in, out);
  return out;
}

Tensor from_floats_rounded(Demo &demo, const std::string &name, const Tensor &in, _NN_FMT format, _NN_SCALE scale) {
  Tensor out(in.shape, format);
  auto const *floats = reinterpret_cast<const float *>(in.bytes.data());
  auto const convert = [&] {
    tarvu_floattofix_rnd_neon(floats, out.bytes.data(), count_of(in), &format, &scale, kHalfAway);
  };
  demo.run("to fixed: " + name, convert, in, out);
  return out;
}

}  // namespace

void conversion_stages(Demo &demo, const Tensor &planes) {
  constexpr _NN_SCALE kOne = {1, 0, {}};
  constexpr _NN_SCALE kDividedBy256 = {1, 8, {}};
  constexpr _NN_SCALE kTimes256 = {256, 0, {}};

  // The scale is a multiplier in both directions, so the way back takes the reciprocal.
  constexpr int32_t kZeroPoint = -64;
  Tensor const floats = to_floats(demo, "0.25 to 1.25", planes, kDividedBy256, kZeroPoint);
  expect_same(from_floats(demo, "back", floats, kByte, kTimes256, kZeroPoint), planes,
              "floats and back do not give the picture again");
  constexpr _NN_SCALE kTimes128 = {128, 0, {}};
  show_planes(demo, "pale", from_floats(demo, "half the contrast", floats, kByte, kTimes128, 48), "half the contrast");

  // Signed numbers of seven fraction bits hold what lies about 128; 128 added again, they are the picture.
  constexpr _NN_SCALE kDividedBy128 = {1, 7, {}};
  constexpr _NN_FMT kSigned = {7, 0, 1, 0};
  Tensor const centred = to_floats(demo, "-1 to 1 about 128", planes, kDividedBy128, 128);
  Tensor const as_signed = from_floats_rounded(demo, "signed, 7 fraction bits", centred, kSigned, kOne);
  Tensor const from_zero = to_floats(demo, "signed, 0 to 2", as_signed, kOne, -128);
  expect_same(from_floats(demo, "signed back", from_zero, kByte, kTimes128, 0), planes,
              "signed numbers and back do not give the picture again");
}

}  // namespace demo
