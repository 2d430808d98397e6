/// \file special_floats.h
/// The floats that break kernels: one list for all tests.
#ifndef TARVU_TESTS_SUPPORT_SPECIAL_FLOATS_H
#define TARVU_TESTS_SUPPORT_SPECIAL_FLOATS_H

#include <limits>

namespace support {

// One line a kind.
// clang-format off
inline constexpr float kSpecialFloats[] = {
    0.0f, -0.0f, 1.0f, -1.0f, 0.5f, -0.5f, 1.5f, -1.5f, 2.5f, -2.5f, 3.5f, -3.5f,
    0x1.fffffep-2f, -0x1.fffffep-2f, 0x1.000002p-1f, -0x1.000002p-1f,  // the neighbours of one half
    0x1.fffffep-1f, -0x1.fffffep-1f, 0x1.000002p0f, -0x1.000002p0f,    // the neighbours of one
    126.5f, 127.0f, 127.5f, 128.0f, 128.5f, -127.5f, -128.0f, -128.5f, -129.0f,
    254.5f, 255.0f, 255.5f, 256.0f,
    32766.5f, 32767.0f, 32767.5f, 32768.0f, -32767.5f, -32768.0f, -32768.5f, -32769.0f,
    65534.5f, 65535.0f, 65535.5f, 65536.0f,
    8388607.5f, 8388608.0f, 8388609.0f, -8388607.5f, 16777215.0f, 16777216.0f, -16777216.0f,
    2147483520.0f, 2147483648.0f, -2147483648.0f, -2147483904.0f, 4294967040.0f, 4294967296.0f,
    0x1p63f, -0x1p63f, 0x1p64f, 1e-20f, -1e-20f, 1e20f, -1e20f,
    std::numeric_limits<float>::min(), -std::numeric_limits<float>::min(),
    std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::denorm_min(),
    std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
    std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
    std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(),
};
// clang-format on

}  // namespace support

#endif  // TARVU_TESTS_SUPPORT_SPECIAL_FLOATS_H
