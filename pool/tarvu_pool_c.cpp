// Pooling: the checks of a block, and the way to its operation by mode.
#include <cstdio>
#include <cstring>

#include "frame/tarvu_util.h"
#include "pool/pool_global.h"
#include "pool/pool_local.h"
#include "simd/processor.h"

namespace tarvu {
namespace {

enum Mode : uint32_t { kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage };

bool is_pooled(NN_AI_IO_TYPE type) { return type >= NN_AI_IO_TYPE_INT8 && type <= NN_AI_IO_TYPE_UINT16; }

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) {
  using namespace tarvu;
  const NN_AI_IO_TYPE in = tarvu_get_fmt_type(&parm->in_fmt);
  if (!is_pooled(in)) return unsupported_input_type("tarvu_pool_process", in);
  const NN_AI_IO_TYPE out = tarvu_get_fmt_type(&parm->out_fmt);
  if (!is_pooled(out)) return unsupported_output_type("vendor_ai_pool_out_type", out);
  switch (parm->mode) {
    case kLocalMaximum:
      pool_local_maximum(*parm, in, out);
      return QX_OK;
    case kLocalAverage:
      if (parm->non_count_pad != 0) {
        // Kept: whole batch items are cleared, bytes between lines and channels included, whatever is written later.
        const uint32_t bytes = parm->batch * parm->out_batch_ofs;
        if (bytes != 0) std::memset(pointer(parm->out_addr), 0, bytes);
      }
      pool_local_average(*parm, in, out);
      return QX_OK;
    case kGlobalMaximum:
      pool_global_maximum(*parm, in, out);
      return QX_OK;
    case kGlobalAverage:
      pool_global_average(*parm, in, out);
      return QX_OK;
    default:
      std::printf("\033[1;31mERR:%s() unsupported pooling mode %d\r\n\033[0m", "vendor_ai_pool_mode",
                  static_cast<int32_t>(parm->mode));
      return QX_ERR_UNSUPPORTED;
  }
}
