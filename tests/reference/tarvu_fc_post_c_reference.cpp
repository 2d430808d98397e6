#include "tarvu_fc_post_c_reference.h"

#include <cstdint>

#include "processor_rules.h"

namespace reference {
namespace {

enum class Element { kS8, kU8, kU16, kS16, kS32 };

/// The bytes of a format count as unsigned, their sum is taken modulo 256.
struct Format {
  uint8_t sign;
  uint8_t sum;

  explicit Format(const _NN_FMT &fmt)
      : sign(static_cast<uint8_t>(fmt.sign_bits)),
        sum(static_cast<uint8_t>(static_cast<uint8_t>(fmt.frac_bits) + static_cast<uint8_t>(fmt.int_bits) + sign)) {}

  uint32_t bytes() const { return sum / 8u; }
  Element element() const {
    if (sign == 1 && sum == 8) return Element::kS8;
    if (sign == 0 && sum == 8) return Element::kU8;
    if (sign == 0 && sum == 16) return Element::kU16;
    if (sign == 1 && sum == 16) return Element::kS16;
    return Element::kS32;
  }
};

int64_t add_64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t subtract_64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
int64_t multiply_64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int64_t read(Element element, uint64_t address) {
  const auto *from = reinterpret_cast<const void *>(address);
  switch (element) {
    case Element::kS8:
      return load<int8_t>(from);
    case Element::kU8:
      return load<uint8_t>(from);
    case Element::kU16:
      return load<uint16_t>(from);
    case Element::kS16:
      return load<int16_t>(from);
    default:
      return load<int32_t>(from);
  }
}

int64_t clamp(int64_t v, int64_t least, int64_t most) { return v < least ? least : v > most ? most : v; }

void write(Element element, uint64_t address, int64_t v) {
  auto *to = reinterpret_cast<void *>(address);
  switch (element) {
    case Element::kS8:
      return store<int8_t>(to, static_cast<int8_t>(clamp(v, -128, 127)));
    case Element::kU8:
      return store<uint8_t>(to, static_cast<uint8_t>(clamp(v, 0, 255)));
    case Element::kU16:
      return store<uint16_t>(to, static_cast<uint16_t>(clamp(v, 0, 65535)));
    case Element::kS16:
      return store<int16_t>(to, static_cast<int16_t>(clamp(v, -32768, 32767)));
    default:
      return store<int32_t>(to, static_cast<int32_t>(clamp(v, INT32_MIN, INT32_MAX)));
  }
}

int64_t rounded(int64_t p, int8_t s, int64_t r) {
  if (s > 0 && p >= 0) return shift_right_64(add_64(p, r), s);
  if (s > 0) return subtract_64(0, shift_right_64(subtract_64(r, p), s));
  const uint8_t left = static_cast<uint8_t>(-s);
  return shift_left_64(p, left);
}

}  // namespace

_QX_RESULT tarvu_fc_post_process(const _NN_FC_POST_PARM *parm) {
  if (parm->batch == 0 || parm->width == 0) return QX_OK;
  const int64_t ab = static_cast<int64_t>(parm->mul_a.scale_value) * parm->mul_b.scale_value;
  const int64_t abc = multiply_64(parm->neg_mul.scale_value, ab);
  const int8_t s_pos = static_cast<int8_t>(parm->mul_a.scale_shift + parm->mul_b.scale_shift);
  const int8_t s_neg = static_cast<int8_t>(s_pos + parm->neg_mul.scale_shift);
  const int64_t r_pos = shift_left_64(1, s_pos - 1);
  const int64_t r_neg = shift_left_64(1, s_neg - 1);
  const Format in(parm->in_fmt);
  const Format out(parm->out_fmt);

  uint64_t in_item = parm->in_addr;
  uint64_t out_item = parm->out_addr;
  for (uint32_t b = 0; b < parm->batch; ++b) {
    for (uint32_t j = 0; j < parm->width; ++j) {
      const int32_t bias = load<int32_t>(reinterpret_cast<const void *>(parm->bias_addr + 4 * uint64_t{j}));
      int64_t total = subtract_32(0, bias);
      for (uint32_t k = 0; k < parm->height; ++k) {
        const uint32_t offset = j * in.bytes() + k * parm->in_line_ofs;
        total = total + read(in.element(), in_item + offset);
      }
      const bool negative = total < 0;
      const int64_t p = multiply_64(negative ? abc : ab, total);
      const int64_t v = negative ? rounded(p, s_neg, r_neg) : rounded(p, s_pos, r_pos);
      write(out.element(), out_item + j * out.bytes(), v);
    }
    in_item += static_cast<uint64_t>(static_cast<int64_t>(parm->in_batch_ofs));
    out_item += static_cast<uint64_t>(static_cast<int64_t>(parm->out_batch_ofs));
  }
  return QX_OK;
}

}  // namespace reference
