// Type queries, scratch memory and the printed lines that operators share.
#include "frame/tarvu_util.h"

#include <cstdio>

namespace tarvu {

_QX_RESULT unsupported_input_type(const char *function, int32_t type) {
  std::printf("\033[1;31mERR:%s() unsupported input type %d\r\n\033[0m", function, type);
  return QX_ERR_UNSUPPORTED;
}

_QX_RESULT unsupported_output_type(const char *function, int32_t type) {
  std::printf("\033[1;31mERR:%s() unsupported output type %d\r\n\033[0m", function, type);
  return QX_ERR_UNSUPPORTED;
}

static NN_AI_IO_TYPE type_of(const _NN_FMT &fmt, NN_AI_IO_TYPE unsigned_32bit) {
  switch (width_bits(fmt)) {
    case 8:
      return fmt.sign_bits != 0 ? NN_AI_IO_TYPE_INT8 : NN_AI_IO_TYPE_UINT8;
    case 16:
      return fmt.sign_bits != 0 ? NN_AI_IO_TYPE_INT16 : NN_AI_IO_TYPE_UINT16;
    case 32:
      return fmt.sign_bits != 0 ? NN_AI_IO_TYPE_32BIT : unsigned_32bit;
    default:
      return NN_AI_IO_TYPE_INVALID;
  }
}

}  // namespace tarvu

NN_AI_IO_TYPE tarvu_get_fmt_type(const _NN_FMT *fmt) { return tarvu::type_of(*fmt, NN_AI_IO_TYPE_32BIT); }

NN_AI_IO_TYPE tarvu_get_gather_fmt_type(const _NN_FMT *fmt) { return tarvu::type_of(*fmt, NN_AI_IO_TYPE_UINT32); }

NN_AI_IO_TYPE tarvu_get_gatherelement_fmt_type(const _NN_FMT *fmt) {
  return tarvu::type_of(*fmt, NN_AI_IO_TYPE_UINT32);
}

void *tarvu_getbuffrom(uint64_t *cursor, uint32_t size) {
  const uint64_t start = *cursor;
  // Kept: rounded in 32 bits, so a size within 3 of the maximum takes nothing.
  const uint32_t rounded = (size + 3u) & ~3u;
  *cursor = start + rounded;
  return reinterpret_cast<void *>(start);
}
