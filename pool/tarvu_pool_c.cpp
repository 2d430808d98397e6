// Pooling: the way from a block to its operation, by input type, output type and mode.
#include <cstdio>
#include <cstring>

#include "frame/tarvu_util.h"
#include "pool/pool_global.h"
#include "pool/pool_local.h"

namespace tarvu {
namespace {

enum Mode : uint32_t { kLocalMaximum, kLocalAverage, kGlobalMaximum, kGlobalAverage };

template <class In, class Out>
void pool_local_maximum(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  const Axis columns = columns_of(parm);
  const Axis lines = lines_of(parm);
  pool_windows(parm, columns, lines, MaximumOperation<In, Out>(columns, lines, terms));
}

template <class In, class Out>
void pool_local_average(const _NN_POOL_PARM &parm, const OutputTerms &terms) {
  const Axis columns = columns_of(parm);
  const Axis lines = lines_of(parm);
  const Counting counting(parm.non_count_pad == 0);
  if constexpr (sizeof(In) == 1) {
    using Narrow = SumFold<In, std::conditional_t<std::is_signed_v<In>, int16_t, uint16_t>>;
    if (parm.kernel_w * parm.kernel_h <= Narrow::kMostElements) {
      return pool_windows(parm, columns, lines, AverageOperation<Narrow, Out>(columns, lines, terms, counting));
    }
  }
  pool_windows(parm, columns, lines, AverageOperation<SumFold<In, uint32_t>, Out>(columns, lines, terms, counting));
}

template <class In, class Out>
_QX_RESULT pool(const _NN_POOL_PARM &parm) {
  const int width_delta = 8 * (static_cast<int>(sizeof(In)) - static_cast<int>(sizeof(Out)));
  const OutputTerms terms(parm, width_delta);
  switch (parm.mode) {
    case kLocalMaximum:
      pool_local_maximum<In, Out>(parm, terms);
      return QX_OK;
    case kLocalAverage:
      if (parm.non_count_pad != 0) {
        // Kept: whole batch items are cleared, bytes between lines and channels included, whatever is written later.
        const uint32_t bytes = parm.batch * parm.out_batch_ofs;
        if (bytes != 0) std::memset(pointer(parm.out_addr), 0, bytes);
      }
      pool_local_average<In, Out>(parm, terms);
      return QX_OK;
    case kGlobalMaximum:
      pool_global_maximum<In, Out>(parm, terms);
      return QX_OK;
    case kGlobalAverage:
      pool_global_average<In, Out>(parm, terms);
      return QX_OK;
    default:
      std::printf("\033[1;31mERR:%s() unsupported pooling mode %d\r\n\033[0m", "vendor_ai_pool_mode",
                  static_cast<int32_t>(parm.mode));
      return QX_ERR_UNSUPPORTED;
  }
}

template <class In>
_QX_RESULT pool_from(const _NN_POOL_PARM &parm) {
  const NN_AI_IO_TYPE type = tarvu_get_fmt_type(&parm.out_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return pool<In, int8_t>(parm);
    case NN_AI_IO_TYPE_UINT8:
      return pool<In, uint8_t>(parm);
    case NN_AI_IO_TYPE_INT16:
      return pool<In, int16_t>(parm);
    case NN_AI_IO_TYPE_UINT16:
      return pool<In, uint16_t>(parm);
    default:
      return unsupported_output_type("vendor_ai_pool_out_type", type);
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) {
  const NN_AI_IO_TYPE type = tarvu_get_fmt_type(&parm->in_fmt);
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return tarvu::pool_from<int8_t>(*parm);
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::pool_from<uint8_t>(*parm);
    case NN_AI_IO_TYPE_INT16:
      return tarvu::pool_from<int16_t>(*parm);
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::pool_from<uint16_t>(*parm);
    default:
      return tarvu::unsupported_input_type("tarvu_pool_process", type);
  }
}
