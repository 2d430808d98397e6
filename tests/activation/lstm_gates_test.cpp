#include "activation/lstm_gates.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/support/random.h"

namespace {

using namespace support;

bool same(float a, float b) {
  return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (std::isnan(a) && std::isnan(b));
}

float tanh_of(float x) { return static_cast<float>(std::tanh(static_cast<double>(x))); }
float product_of(float factor, float x) { return static_cast<float>(double{factor} * std::tanh(double{x})); }

/// Arguments from every binade, both signs, and special ones; an odd number, so that a tail is left.
std::vector<float> arguments() {
  std::vector<float> x;
  for (uint64_t bits = 0; bits < (uint64_t{1} << 32); bits += 9973)
    x.push_back(std::bit_cast<float>(static_cast<uint32_t>(bits)));
  Random random = test_random(394);
  for (int i = 0; i < 200000; ++i) x.push_back(random.uniform(-20.0f, 20.0f));
  for (const float special :
       {0.0f, -0.0f, 80.0f, -80.0f, std::nextafterf(80.0f, 90.0f), std::nextafterf(-80.0f, -90.0f), 40.0f, 41.0f,
        -104.0f, 0x1p-149f, -0x1p-126f, std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
        std::numeric_limits<float>::quiet_NaN()}) {
    x.insert(x.end(), 3, special);
  }
  x.push_back(1.0f);
  return x;
}

TEST(LstmGates, LogisticFunctionHasTheLibrarysBits) {
  const std::vector<float> x = arguments();
  std::vector<float> gates = x;
  tarvu::logistic_run(gates.data(), static_cast<uint32_t>(gates.size()));
  for (size_t i = 0; i < x.size(); ++i) ASSERT_TRUE(same(reference::sigmoid(x[i]), gates[i])) << std::hexfloat << x[i];
}

TEST(LstmGates, HyperbolicTangentHasTheLibrarysBits) {
  const std::vector<float> x = arguments();
  std::vector<float> gates = x;
  tarvu::tanh_run(gates.data(), static_cast<uint32_t>(gates.size()));
  for (size_t i = 0; i < x.size(); ++i) ASSERT_TRUE(same(tanh_of(x[i]), gates[i])) << std::hexfloat << x[i];
}

TEST(LstmGates, OutputIsRoundedOnceFromTheProductWithTheHyperbolicTangent) {
  const std::vector<float> x = arguments();
  Random random = test_random(395);
  SCOPED_TRACE(random.trace());
  std::vector<float> factors;
  while (factors.size() < x.size()) {
    factors.push_back(random.one_in(9) ? random.pick({0.0f, 1.0f, 0x1p-149f, 0x1p-126f, 0x1.fffffep-1f, std::nanf("")})
                                       : reference::sigmoid(random.uniform(-100.0f, 20.0f)));
  }
  std::vector<float> outputs(x.size());
  tarvu::scaled_tanh_run(factors.data(), x.data(), outputs.data(), static_cast<uint32_t>(x.size()));
  for (size_t i = 0; i < x.size(); ++i) {
    ASSERT_TRUE(same(product_of(factors[i], x[i]), outputs[i]))
        << std::hexfloat << factors[i] << " * tanh(" << x[i] << ")";
  }
}

TEST(LstmGates, VectorsThatTheFastFunctionsCannotSettleGoToTheLibrary) {
  // 80 and below the fast function knows, beyond it does not; neither does it know a NaN.
  const auto known = [](float x) { return tarvu::all(tarvu::fast_logistic(tarvu::fill<tarvu::f32xn>(x)).known); };
  EXPECT_TRUE(known(80.0f));
  EXPECT_TRUE(known(-80.0f));
  EXPECT_FALSE(known(81.0f));
  EXPECT_FALSE(known(-81.0f));
  EXPECT_FALSE(known(std::numeric_limits<float>::quiet_NaN()));
}

}  // namespace
