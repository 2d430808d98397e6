#include "tests/reference/tarvu_topk_c_reference.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

struct Level {
  uint32_t count;
  uint32_t in_step;         // elements
  uint32_t out_step;        // bytes
  uint32_t out_index_step;  // bytes
};

int32_t element_at(const uint8_t *in, NN_AI_IO_TYPE type, uint32_t offset) {
  switch (type) {
    case NN_AI_IO_TYPE_INT8:
      return load<int8_t>(in + offset);
    case NN_AI_IO_TYPE_UINT8:
      return load<uint8_t>(in + offset);
    case NN_AI_IO_TYPE_INT16:
      return load<int16_t>(in + size_t{2} * offset);
    default:
      return load<uint16_t>(in + size_t{2} * offset);
  }
}

/// Leaves the picks of one line in work[0] to work[k - 1]; `work` is as long as the greater of k and n.
void pick(const uint8_t *in, NN_AI_IO_TYPE type, bool largest, bool sorted, uint32_t k, uint64_t base, uint32_t n,
          uint32_t stride, std::vector<uint32_t> &work) {
  const auto ranks_before = [&](uint32_t a, uint32_t b) {
    const int32_t x = element_at(in, type, a);
    const int32_t y = element_at(in, type, b);
    if (x != y) return largest ? x > y : x < y;
    return static_cast<int32_t>(a) < static_cast<int32_t>(b);
  };
  for (uint32_t i = 0; i < n; ++i) work[i] = static_cast<uint32_t>(base) + stride * i;
  // Ranking the whole line is one way of bringing its k best to the front.
  if (k != n) std::sort(work.begin(), work.begin() + n, ranks_before);
  if (sorted) std::sort(work.begin(), work.begin() + k, ranks_before);
}

_QX_RESULT walk(const _NN_TOPK_PARM *parm, NN_AI_IO_TYPE type, bool largest) {
  const uint32_t w = parm->width;
  const uint32_t h = parm->height;
  const uint32_t c = parm->channel;
  const uint32_t n = parm->batch;
  const uint32_t element_bytes = type == NN_AI_IO_TYPE_INT8 || type == NN_AI_IO_TYPE_UINT8 ? 1 : 2;
  const Level levels[4] = {
      {n, w * h * c, parm->out_batch_ofs, parm->out_index_batch_ofs},
      {c, w * h, parm->out_channel_ofs, parm->out_index_channel_ofs},
      {h, w, parm->out_line_ofs, parm->out_index_line_ofs},
      {w, 1, element_bytes, 2},
  };
  const int32_t axis = parm->axis;
  if (axis < 0 || axis > 3) {
    std::printf("\033[1;31mERR:%s() not support axis = %d\r\n\033[0m", "tarvu_topk_general", axis);
    return QX_ERR_UNSUPPORTED;
  }
  const Level line = levels[axis];
  const Level outer = levels[axis == 0 ? 1 : 0];
  const Level middle = levels[axis <= 1 ? 2 : 1];
  const Level inner = levels[axis <= 2 ? 3 : 2];
  if (outer.count == 0 || middle.count == 0 || inner.count == 0) return QX_OK;

  const auto *in = reinterpret_cast<const uint8_t *>(parm->in_addr);
  auto *out = reinterpret_cast<uint8_t *>(parm->out_addr);
  auto *out_index = reinterpret_cast<uint8_t *>(parm->out_index_addr);
  void *scratch = reinterpret_cast<void *>(parm->work_buffer);
  std::vector<uint32_t> work(std::max(parm->k, line.count));
  const size_t work_bytes = work.size() * sizeof(uint32_t);
  if (work_bytes != 0) std::memcpy(work.data(), scratch, work_bytes);

  for (uint32_t x = 0; x < outer.count; ++x) {
    for (uint32_t y = 0; y < middle.count; ++y) {
      for (uint32_t z = 0; z < inner.count; ++z) {
        const uint64_t base = uint64_t{x} * outer.in_step + uint64_t{y} * middle.in_step + uint64_t{z} * inner.in_step;
        const uint64_t out_start =
            uint64_t{x} * outer.out_step + uint64_t{y} * middle.out_step + uint64_t{z} * inner.out_step;
        const uint64_t out_index_start = uint64_t{x} * outer.out_index_step + uint64_t{y} * middle.out_index_step +
                                         uint64_t{z} * inner.out_index_step;
        pick(in, type, largest, parm->sorted != 0, parm->k, base, line.count, line.in_step, work);
        for (uint32_t i = 0; i < parm->k; ++i) {
          const uint32_t e = work[i];
          if (parm->out_index_addr != 0) {
            const uint64_t position = (e - base) / line.in_step;
            store<uint16_t>(out_index + out_index_start + uint64_t{i} * line.out_index_step,
                            static_cast<uint16_t>(position));
          }
          if (parm->out_addr != 0) {
            std::memcpy(out + out_start + uint64_t{i} * line.out_step, in + uint64_t{e} * element_bytes, element_bytes);
          }
        }
      }
    }
  }
  if (work_bytes != 0) std::memcpy(scratch, work.data(), work_bytes);
  return QX_OK;
}

}  // namespace

_QX_RESULT tarvu_topk_process(const _NN_TOPK_PARM *parm) {
  const NN_AI_IO_TYPE type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  if (type < NN_AI_IO_TYPE_INT8 || type > NN_AI_IO_TYPE_UINT16) {
    std::printf("\033[1;31mERR:%s() not support in_type = %d\r\n\033[0m", "tarvu_topk_process", static_cast<int>(type));
    return QX_ERR_UNSUPPORTED;
  }
  if (parm->largest != 0 && parm->largest != 1) {
    std::printf("\033[1;31mERR:%s() wrong parameter largest: %d\n\033[0m", "tarvu_topk_large", int{parm->largest});
    return QX_ERR_UNSUPPORTED;
  }
  return walk(parm, type, parm->largest == 1);
}

}  // namespace reference
