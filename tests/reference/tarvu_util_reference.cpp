#include "tests/reference/tarvu_util_reference.h"

namespace reference {

void *tarvu_getbuffrom(uint64_t *cursor, uint32_t size) {
  const uint64_t taken = *cursor;
  const uint32_t rounded = (size + 3u) & ~3u;
  *cursor = taken + rounded;
  return reinterpret_cast<void *>(taken);
}

NN_AI_IO_TYPE tarvu_get_fmt_type(const _NN_FMT *fmt) {
  const int32_t sum = int32_t{fmt->frac_bits} + int32_t{fmt->int_bits} + int32_t{fmt->sign_bits};
  if (sum == 8) return fmt->sign_bits != 0 ? NN_AI_IO_TYPE_INT8 : NN_AI_IO_TYPE_UINT8;
  if (sum == 16) return fmt->sign_bits != 0 ? NN_AI_IO_TYPE_INT16 : NN_AI_IO_TYPE_UINT16;
  if (sum == 32) return NN_AI_IO_TYPE_32BIT;
  return NN_AI_IO_TYPE_INVALID;
}

NN_AI_IO_TYPE tarvu_get_gather_fmt_type(const _NN_FMT *fmt) {
  const NN_AI_IO_TYPE type = reference::tarvu_get_fmt_type(fmt);
  if (type == NN_AI_IO_TYPE_32BIT && fmt->sign_bits == 0) return NN_AI_IO_TYPE_UINT32;
  return type;
}

NN_AI_IO_TYPE tarvu_get_gatherelement_fmt_type(const _NN_FMT *fmt) { return reference::tarvu_get_gather_fmt_type(fmt); }

}  // namespace reference
