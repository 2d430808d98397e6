// Copies slices of a tensor that tuples of coordinates address.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include "frame/tarvu_util.h"
#include "simd/rearrange.h"
#include "simd/runs.h"

namespace tarvu {
namespace {

constexpr uint32_t kRank = 4;
constexpr uint32_t kTuplesAtOnce = 512;

/// Slowest dimension first, 0 for a dimension that the tensor lacks.
struct Shape {
  uint32_t dims[kRank];
};

Shape input_shape(const _NN_GATHERND_PARM &parm) {
  return {{parm.in_batch, parm.in_channel, parm.in_height, parm.in_width}};
}
Shape index_shape(const _NN_GATHERND_PARM &parm) {
  return {{parm.ind_batch, parm.ind_channel, parm.ind_height, parm.ind_width}};
}
Shape output_shape(const _NN_GATHERND_PARM &parm) {
  return {{parm.out_batch, parm.out_channel, parm.out_height, parm.out_width}};
}

/// The tables that a call takes from the heap.
/// Kept: nothing is given back, on success or on failure; callers plan for the heap to grow by these blocks with each
/// call.
struct Tables {
  uint32_t *strides;  // elements that a step of each coordinate spans
  int32_t *indices;   // the index tensor as integers
};

/// How tuples and slices are counted.
struct Division {
  uint32_t coordinates;       // of a tuple
  uint32_t tuples;            // of all batches
  uint32_t tuples_per_batch;  // not 0
  uint32_t batch_elements;
  uint32_t slice_elements;
};

/// Element offsets of tuples, modulo 2^32. The number of their coordinates is a constant type for short tuples.
template <class Count>
void find_offsets(const int32_t *indices, const uint32_t *strides, Count coordinates, uint32_t base, uint32_t tuples,
                  uint32_t *__restrict offsets) {
  for (uint32_t t = 0; t < tuples; ++t, indices += coordinates) {
    uint32_t offset = base;
    for (uint32_t i = 0; i < coordinates; ++i) offset += static_cast<uint32_t>(indices[i]) * strides[i];
    offsets[t] = offset;
  }
}

void find_offsets_by_count(const int32_t *indices, const uint32_t *strides, uint32_t coordinates, uint32_t base,
                           uint32_t tuples, uint32_t *offsets) {
  const auto find = [=](auto count) { find_offsets(indices, strides, count, base, tuples, offsets); };
  switch (coordinates) {
    case 1:
      return find(std::integral_constant<uint32_t, 1>{});
    case 2:
      return find(std::integral_constant<uint32_t, 2>{});
    case 3:
      return find(std::integral_constant<uint32_t, 3>{});
    case 4:
      return find(std::integral_constant<uint32_t, 4>{});
    default:
      return find(coordinates);
  }
}

/// Moves single elements: to[t] = from[offsets[t]].
template <class Element>
void move_elements(const uint8_t *from, uint8_t *to, const uint32_t *offsets, uint32_t count) {
  const auto *source = reinterpret_cast<const Unaligned<Element> *>(from);
  constexpr uint32_t kBlock = 16;
  const uint32_t *const end = offsets + count;
  for (; end - offsets >= kBlock; offsets += kBlock, to += kBlock * sizeof(Element)) {
    Element moved[kBlock];
    for (uint32_t k = 0; k < kBlock; ++k) moved[k] = source[offsets[k]].value;
    for (uint32_t k = 0; k < kBlock; ++k) store(to + k * sizeof(Element), moved[k]);
  }
  for (; offsets != end; ++offsets, to += sizeof(Element)) store(to, source[*offsets].value);
}

template <class Element>
void move_slices(const uint8_t *from, uint8_t *to, const uint32_t *offsets, uint32_t count, uint32_t slice_elements) {
  if (slice_elements == 1) return move_elements<Element>(from, to, offsets, count);
  const size_t slice_bytes = slice_elements * sizeof(Element);
  for (uint32_t t = 0; t < count; ++t, to += slice_bytes) {
    copy_run(from + offsets[t] * sizeof(Element), to, slice_bytes);
  }
}

template <class Element>
void gather_slices(const Division &division, const Tables &tables, const uint8_t *from, uint8_t *to) {
  uint32_t offsets[kTuplesAtOnce];
  const int32_t *indices = tables.indices;
  uint32_t base = 0;
  uint32_t left_in_batch = division.tuples_per_batch;
  for (uint32_t left = division.tuples; left != 0;) {
    const uint32_t count = std::min({left, left_in_batch, kTuplesAtOnce});
    find_offsets_by_count(indices, tables.strides, division.coordinates, base, count, offsets);
    move_slices<Element>(from, to, offsets, count, division.slice_elements);
    indices += size_t{count} * division.coordinates;
    to += size_t{count} * division.slice_elements * sizeof(Element);
    left -= count;
    left_in_batch -= count;
    if (left_in_batch == 0) {
      // Kept: tuples that the batches do not share evenly belong to a batch behind the last.
      left_in_batch = division.tuples_per_batch;
      base += division.batch_elements;
    }
  }
}

// The blocks stay, see Tables; a staging block is bytes.
// NOLINTBEGIN(clang-analyzer-unix.Malloc,clang-analyzer-unix.MallocSizeof)
template <class Element>
_QX_RESULT gather(const _NN_GATHERND_PARM &parm, const float *indices, bool reformats) {
  const Shape in = input_shape(parm);
  const Shape index = index_shape(parm);
  const Shape out = output_shape(parm);
  const uint32_t first_coordinate = parm.batch_dims + chk_input_offset(in.dims);
  const uint32_t index_count = size_from_dimension(index.dims, 0);

  Division division{};
  division.coordinates = parm.ind_width;
  Tables tables{};
  tables.strides = static_cast<uint32_t *>(std::calloc(division.coordinates, sizeof *tables.strides));
  if (tables.strides == nullptr) return QX_ERR_NO_MEMORY;
  tables.indices = static_cast<int32_t *>(std::calloc(index_count, sizeof *tables.indices));
  if (tables.indices == nullptr) return QX_ERR_NO_MEMORY;
  floats_to_integers<int32_t>(indices, tables.indices, index_count, [](auto x) { return x; });

  division.tuples = size_to_dimension(index.dims, kRank - 1);
  division.slice_elements = size_from_dimension(in.dims, first_coordinate + division.coordinates);
  division.batch_elements = size_from_dimension(in.dims, first_coordinate);
  division.tuples_per_batch = divide(division.tuples, size_to_dimension(in.dims, first_coordinate));
  if (division.tuples_per_batch == 0) division.tuples_per_batch = division.tuples;  // Kept: fewer tuples than batches
  const uint32_t out_count = size_from_dimension(out.dims, 0);

  uint8_t *to = pointer(parm.out_addr);
  if (reformats) {
    to = static_cast<uint8_t *>(std::malloc(out_count * sizeof(Element)));
    if (to == nullptr) return QX_ERR_NO_MEMORY;
  }
  for (uint32_t i = 0; i < division.coordinates; ++i) {
    tables.strides[i] = size_from_dimension(in.dims, first_coordinate + 1 + i);
  }
  gather_slices<Element>(division, tables, pointer<const uint8_t>(parm.in_addr), to);
  if (reformats) {
    tarvu_convert_fmt_c(to, pointer(parm.out_addr), out_count, &parm.in_fmt, &parm.out_fmt, &parm.in_scale,
                        &parm.out_scale);
  }
  return QX_OK;
}

// NOLINTEND(clang-analyzer-unix.Malloc,clang-analyzer-unix.MallocSizeof)

/// The index tensor as floats: as it stands if it is 32 bits wide, else converted in scratch memory.
const float *float_indices(const _NN_GATHERND_PARM &parm) {
  if (tarvu_get_fmt_type(&parm.ind_fmt) == NN_AI_IO_TYPE_32BIT) return pointer<const float>(parm.ind_addr);
  const uint32_t count = size_from_dimension(index_shape(parm).dims, 0);
  uint64_t cursor = parm.work_buffer;
  auto *floats = static_cast<float *>(tarvu_getbuffrom(&cursor, count * static_cast<uint32_t>(sizeof(float))));
  _NN_SCALE scale{};
  scale.scale_value = 1;
  tarvu_fixtofloat_1d_neon(pointer<const void>(parm.ind_addr), floats, count, &parm.ind_fmt, &scale, 0);
  return floats;
}

}  // namespace
}  // namespace tarvu

uint32_t size_to_dimension(const uint32_t *dims, uint32_t n) {
  uint32_t size = 1;
  for (uint32_t i = 0; i < n; ++i) size *= dims[i] != 0 ? dims[i] : 1;
  return size;
}

uint32_t size_from_dimension(const uint32_t *dims, uint32_t n) {
  uint32_t size = 1;
  for (uint32_t i = n; i < tarvu::kRank; ++i) size *= dims[i] != 0 ? dims[i] : 1;
  return size;
}

uint32_t chk_input_offset(const uint32_t *dims) {
  for (uint32_t place = 3; place != 0; --place) {
    if (dims[place - 1] == 0) return place;
  }
  return 0;
}

_QX_RESULT tarvu_gathernd_process(const _NN_GATHERND_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE out_type = tarvu_get_fmt_type(&parm->out_fmt);
  const bool reformats = parm->in_fmt.frac_bits != parm->out_fmt.frac_bits || in_type != out_type;
  const float *indices = tarvu::float_indices(*parm);
  switch (in_type) {
    case NN_AI_IO_TYPE_INT8:
    case NN_AI_IO_TYPE_UINT8:
      return tarvu::gather<uint8_t>(*parm, indices, reformats);
    case NN_AI_IO_TYPE_INT16:
    case NN_AI_IO_TYPE_UINT16:
      return tarvu::gather<uint16_t>(*parm, indices, reformats);
    default:
      // Kept: a plain line, and only now that the scratch memory is written.
      std::printf("unsupported input type %d\r\n", static_cast<int>(in_type));
      return QX_ERR_UNSUPPORTED;
  }
}
