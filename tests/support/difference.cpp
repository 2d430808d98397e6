#include "tests/support/difference.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <sstream>

namespace support {
namespace {

uint32_t bits_at(const void *tensor, size_t index, size_t width) {
  uint32_t bits = 0;
  std::memcpy(&bits, static_cast<const uint8_t *>(tensor) + index * width, width);
  return bits;
}

bool is_nan(uint32_t bits) { return std::isnan(std::bit_cast<float>(bits)); }

void print(std::ostream &out, uint32_t bits, size_t width, bool as_float) {
  out << "0x" << std::hex << std::setw(static_cast<int>(2 * width)) << std::setfill('0') << bits << std::dec;
  if (as_float) out << " (" << std::setprecision(9) << std::bit_cast<float>(bits) << ")";
}

}  // namespace

std::string element_difference(const std::string &name, const void *product, const void *reference, size_t bytes,
                               Element element, RunShape shape) {
  if (bytes == 0 || std::memcmp(product, reference, bytes) == 0) return {};
  const bool as_float = element == Element::kFloat;
  const size_t width = element == Element::k8Bit ? 1 : element == Element::k16Bit ? 2 : 4;
  const size_t count = bytes / width;
  size_t different = 0;
  size_t first = 0;
  for (size_t i = count; i-- > 0;) {
    const uint32_t ours = bits_at(product, i, width);
    const uint32_t expected = bits_at(reference, i, width);
    if (ours == expected || (as_float && is_nan(ours) && is_nan(expected))) continue;
    ++different;
    first = i;
  }
  std::ostringstream out;
  if (different == 0) {
    const size_t rest = count * width;
    if (std::memcmp(static_cast<const uint8_t *>(product) + rest, static_cast<const uint8_t *>(reference) + rest,
                    bytes - rest) == 0) {
      return {};
    }
    out << name << ": the bytes behind the last whole element differ";
    return out.str();
  }
  out << name << "[" << first << "]: product ";
  print(out, bits_at(product, first, width), width, as_float);
  out << ", reference ";
  print(out, bits_at(reference, first, width), width, as_float);
  if (shape.run != 0 && shape.block != 0) {
    const size_t in_run = first % shape.run;
    out << (in_run < shape.run / shape.block * shape.block ? ", in block " : ", in the tail behind block ")
        << in_run / shape.block << " of run " << first / shape.run;
  }
  out << "; " << different << " of " << count << " elements differ";
  return out.str();
}

}  // namespace support
