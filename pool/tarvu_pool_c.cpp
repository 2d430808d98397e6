// Pooling: the checks of a block, and the way to its operation by mode.
#include <cstdio>
#include <cstring>

#include "frame/tarvu_util.h"
#include "pool/pool_plan.h"

namespace tarvu {
namespace {

bool is_pooled(NN_AI_IO_TYPE type) { return type >= NN_AI_IO_TYPE_INT8 && type <= NN_AI_IO_TYPE_UINT16; }

WindowAxis columns(const _NN_POOL_PARM &block) {
  return {block.width, block.kernel_w, block.stride_w, block.pad_left, block.pad_right, block.floor_mode == 0};
}

WindowAxis lines(const _NN_POOL_PARM &block) {
  return {block.height, block.kernel_h, block.stride_h, block.pad_top, block.pad_bottom, block.floor_mode == 0};
}

void pool_local(const _NN_POOL_PARM &block, NN_AI_IO_TYPE in, NN_AI_IO_TYPE out) {
  if (block.batch == 0 || block.channel == 0) return;
  PoolPlan plan = {.block = block, .in = in, .out = out, .columns = columns(block), .lines = lines(block)};
  plan_windows(plan);
  const LinesLeft left = pool_side_by_side(plan);
  if (left.above != 0) pool_lines(plan, 0, left.above);
  if (left.below < plan.line_count) pool_lines(plan, left.below, plan.line_count);
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_pool_process(const _NN_POOL_PARM *parm) {
  using namespace tarvu;
  const NN_AI_IO_TYPE in = tarvu_get_fmt_type(&parm->in_fmt);
  if (!is_pooled(in)) return unsupported_input_type("tarvu_pool_process", in);
  const NN_AI_IO_TYPE out = tarvu_get_fmt_type(&parm->out_fmt);
  if (!is_pooled(out)) return unsupported_output_type("vendor_ai_pool_out_type", out);
  switch (parm->mode) {
    case kLocalAverage:
      if (parm->non_count_pad != 0) {
        // Kept: whole batch items are cleared, bytes between lines and channels included, whatever is written later.
        const uint32_t bytes = parm->batch * parm->out_batch_ofs;
        if (bytes != 0) std::memset(pointer(parm->out_addr), 0, bytes);
      }
      [[fallthrough]];
    case kLocalMaximum:
      pool_local(*parm, in, out);
      return QX_OK;
    case kGlobalMaximum:
    case kGlobalAverage:
      pool_global(*parm, in, out);
      return QX_OK;
    default:
      std::printf("\033[1;31mERR:%s() unsupported pooling mode %d\r\n\033[0m", "vendor_ai_pool_mode",
                  static_cast<int32_t>(parm->mode));
      return QX_ERR_UNSUPPORTED;
  }
}
