#include "tests/reference/tarvu_gathernd_c_reference.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

// The tables lie in vectors, which are given back: what the product leaves on the heap is counted by a test of its own.
_QX_RESULT gather(const _NN_GATHERND_PARM *parm, uint32_t element_bytes, const void *indices, NN_AI_IO_TYPE in_type,
                  NN_AI_IO_TYPE out_type) {
  const uint32_t in_shape[4] = {parm->in_batch, parm->in_channel, parm->in_height, parm->in_width};
  const uint32_t index_shape[4] = {parm->ind_batch, parm->ind_channel, parm->ind_height, parm->ind_width};
  const uint32_t out_shape[4] = {parm->out_batch, parm->out_channel, parm->out_height, parm->out_width};
  const uint32_t off = reference::chk_input_offset(in_shape);
  const uint32_t coordinates = parm->ind_width;
  const uint32_t b = parm->batch_dims;

  std::vector<uint32_t> stride(coordinates, 0);
  const uint32_t index_count = reference::size_from_dimension(index_shape, 0);
  std::vector<int32_t> index(index_count, 0);
  for (uint32_t i = 0; i < index_count; ++i) {
    index[i] = float_to_s32(load<float>(static_cast<const uint8_t *>(indices) + size_t{4} * i));
  }

  const uint32_t tuples = reference::size_to_dimension(index_shape, 3);
  const uint32_t slice = reference::size_from_dimension(in_shape, b + coordinates + off);
  const uint32_t batches = reference::size_to_dimension(in_shape, b + off);
  const uint32_t per_batch = reference::size_from_dimension(in_shape, b + off);
  const uint32_t out_total = reference::size_from_dimension(out_shape, 0);
  const uint32_t tuples_per_batch = divide_u32(tuples, batches);

  const bool staged = parm->in_fmt.frac_bits != parm->out_fmt.frac_bits || in_type != out_type;
  std::vector<uint8_t> staging(staged ? size_t{out_total} * element_bytes : 0);
  auto *to = staged ? staging.data() : reinterpret_cast<uint8_t *>(parm->out_addr);

  for (uint32_t i = 0; i < coordinates; ++i) stride[i] = reference::size_from_dimension(in_shape, b + off + 1 + i);

  for (uint32_t t = 0; t < tuples; ++t) {
    uint32_t offset = divide_u32(t, tuples_per_batch) * per_batch;
    for (uint32_t i = 0; i < coordinates; ++i) {
      offset += static_cast<uint32_t>(index[size_t{t} * coordinates + i]) * stride[i];
    }
    const size_t slice_bytes = size_t{slice} * element_bytes;
    std::memcpy(to, reinterpret_cast<const void *>(parm->in_addr + uint64_t{offset} * element_bytes), slice_bytes);
    to += slice_bytes;
  }
  if (staged) {
    reference::tarvu_convert_fmt_c(staging.data(), reinterpret_cast<void *>(parm->out_addr), out_total, &parm->in_fmt,
                                   &parm->out_fmt, &parm->in_scale, &parm->out_scale);
  }
  return QX_OK;
}

}  // namespace

uint32_t size_to_dimension(const uint32_t *dims, uint32_t n) {
  uint32_t product = 1;
  for (uint32_t i = 0; i < n; ++i) {
    if (dims[i] != 0) product *= dims[i];
  }
  return product;
}

uint32_t size_from_dimension(const uint32_t *dims, uint32_t n) {
  uint32_t product = 1;
  for (uint32_t i = n; i <= 3; ++i) {
    if (dims[i] != 0) product *= dims[i];
  }
  return product;
}

uint32_t chk_input_offset(const uint32_t *dims) {
  if (dims[2] == 0) return 3;
  if (dims[1] == 0) return 2;
  if (dims[0] == 0) return 1;
  return 0;
}

_QX_RESULT tarvu_gathernd_process(const _NN_GATHERND_PARM *parm) {
  const NN_AI_IO_TYPE in_type = reference::tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = reference::tarvu_get_fmt_type(&parm->out_fmt);
  const NN_AI_IO_TYPE index_type = reference::tarvu_get_fmt_type(&parm->ind_fmt);
  const uint32_t index_shape[4] = {parm->ind_batch, parm->ind_channel, parm->ind_height, parm->ind_width};
  const uint32_t index_count = reference::size_from_dimension(index_shape, 0);
  uint64_t cursor = parm->work_buffer;
  _NN_SCALE scale = {};
  scale.scale_value = 1;
  scale.scale_shift = 0;

  const void *indices = reinterpret_cast<const void *>(parm->ind_addr);
  if (index_type != NN_AI_IO_TYPE_32BIT) {
    auto *floats = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, index_count * 4));
    reference::tarvu_fixtofloat_1d_neon(indices, floats, index_count, &parm->ind_fmt, &scale, 0);
    indices = floats;
  }
  switch (in_type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return gather(parm, 1, indices, in_type, out_type);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return gather(parm, 2, indices, in_type, out_type);
    default:
      std::printf("unsupported input type %d\r\n", static_cast<int>(in_type));
      return QX_ERR_UNSUPPORTED;
  }
}

}  // namespace reference
