// Copies slices of a tensor, chosen along one axis by a list of positions.
#include <cstdio>

#include "simd/copy.h"
#include "tensor/gather_types.h"

namespace tarvu {
namespace {

constexpr uint32_t kMostRank = 4;

/// One dimension outside the axis.
struct Outer {
  uint32_t count;
  size_t in_step;   // bytes
  size_t out_step;  // bytes
};

/// How the tensors are walked, all steps in bytes.
struct Walk {
  Outer outer[kMostRank - 1];  // the slowest first, of count 1 where there are fewer
  uint32_t indices;
  uint32_t position_step;   // from one position of the axis to the next
  size_t run_bytes;         // what moves for one index
  size_t out_step;          // from one index to the next
  uint32_t reformat_count;  // elements
  bool single_elements;     // the axis is the fastest dimension
};

uint32_t product(const uint32_t *extents, uint32_t count) {
  uint32_t result = 1;
  for (uint32_t i = 0; i < count; ++i) result *= extents[i];
  return result;
}

/// Ranks are read from the extents, width first.
uint32_t input_rank(const _NN_GATHER_PARM &parm) {
  return parm.in_batch != 0 ? 4 : parm.in_channel != 0 ? 3 : parm.in_height != 0 ? 2 : 1;
}
uint32_t index_rank(const _NN_GATHER_PARM &parm) {
  return parm.ind_batch != 0 ? 4 : parm.ind_channel != 0 ? 3 : parm.ind_height != 0 ? 2 : 1;
}

/// Bytes of an output element where single ones move; no step at all for a format without elements of 8 or 16 bits.
size_t out_element_bytes(const _NN_GATHER_PARM &parm, size_t in_element) {
  const uint8_t width = width_modulo_256(parm.out_fmt);
  if (width == width_modulo_256(parm.in_fmt)) return in_element;
  return width == 8 ? 1 : width == 16 ? 2 : 0;
}

/// Returns false if nothing is to be gathered.
bool walk_of(const _NN_GATHER_PARM &parm, size_t in_element, Walk &walk) {
  const uint32_t rank = input_rank(parm);
  // Kept: of the index tensor of a rank-4 input the first line alone counts.
  const uint32_t list_rank = rank == 4 ? 1 : index_rank(parm);
  const uint32_t out_rank = rank + list_rank - 1;
  const uint32_t axis = parm.axis;
  if (rank == 1 || out_rank > kMostRank || axis >= rank) return false;
  const uint32_t ind_extents[] = {parm.ind_width, parm.ind_height, parm.ind_channel, parm.ind_batch};
  const uint32_t out_extents[] = {parm.out_width, parm.out_height, parm.out_channel, parm.out_batch};
  const uint32_t in_steps[] = {static_cast<uint32_t>(in_element), parm.in_line_ofs, parm.in_channel_ofs,
                               parm.in_batch_ofs};
  const size_t out_steps[] = {out_element_bytes(parm, in_element), parm.out_line_ofs, parm.out_channel_ofs,
                              parm.out_batch_ofs};
  for (Outer &outer : walk.outer) outer = {1, 0, 0};
  for (uint32_t t = 0; t < axis; ++t) {
    walk.outer[t] = {out_extents[out_rank - 1 - t], in_steps[rank - 1 - t], out_steps[out_rank - 1 - t]};
    if (walk.outer[t].count == 0) return false;
  }
  const uint32_t dimension = rank - 1 - axis;
  walk.indices = product(ind_extents, list_rank);
  walk.position_step = in_steps[dimension];
  walk.run_bytes = in_steps[dimension];
  walk.out_step = out_steps[dimension];
  // Kept: for a list of rank above 1 this counts more than one slice. Each re-formatting spills over the slices behind
  // it, which their own indices then overwrite; the last spill stays behind the output.
  walk.reformat_count = product(out_extents, out_rank - 1 - axis);
  walk.single_elements = dimension == 0;
  return walk.indices != 0;
}

/// Kept: -1 is the first slice, and what is below counts back from the number of indices, not from the axis.
template <class Index>
uint32_t position_of(Index index, uint32_t indices) {
  if constexpr (std::is_unsigned_v<Index>) {
    return index;
  } else {
    if (index >= 0) return static_cast<uint32_t>(index);
    return index == -1 ? 0 : indices + static_cast<uint32_t>(int32_t{index});
  }
}

/// The slices for a list of indices; `from` is where position 0 lies.
template <class Index>
struct Slices {
  const uint8_t *from;
  const uint8_t *list;
  uint32_t indices;
  uint32_t position_step;  // bytes

  /// Kept: the distance is taken modulo 2^32 and not checked.
  const uint8_t *operator[](uint32_t i) const {
    return from + position_of(load<Index>(list + i * sizeof(Index)), indices) * position_step;
  }
};

/// Moves the runs for all indices at one outer position.
template <class T, class Index>
void gather_runs(const _NN_GATHER_PARM &parm, const Walk &walk, const Slices<Index> &slices, uint8_t *to) {
  const bool same_width = width_modulo_256(parm.in_fmt) == width_modulo_256(parm.out_fmt);
  const bool reformats = !same_width || parm.in_fmt.frac_bits != parm.out_fmt.frac_bits;
  if (walk.single_elements && (!reformats || walk.reformat_count == 1)) {
    const auto gather = [&](uint32_t first, uint32_t count, uint8_t *elements) {
      for (uint32_t i = 0; i < count; ++i) store(elements + i * sizeof(T), load<T>(slices[first + i]));
    };
    if (reformats) {
      gather_and_reformat<T>(to, walk.out_step, walk.indices, parm.in_fmt, parm.out_fmt, gather);
    } else {
      gather(0, walk.indices, to);
    }
    return;
  }
  for (uint32_t i = 0; i < walk.indices; ++i, to += walk.out_step) {
    uint8_t *const staged = same_width ? to : pointer(parm.work_buffer);
    copy_bytes(slices[i], staged, walk.run_bytes);
    if (!reformats) continue;
    tarvu_convert_fmt_c(staged, to, walk.reformat_count, &parm.in_fmt, &parm.out_fmt, &parm.in_scale, &parm.out_scale);
  }
}

template <class T, class Index>
void gather(const _NN_GATHER_PARM &parm) {
  Walk walk;
  if (!walk_of(parm, sizeof(T), walk)) return;
  const auto *list = pointer<const uint8_t>(parm.ind_addr);
  for (uint32_t i = 0; i < walk.outer[0].count; ++i) {
    for (uint32_t j = 0; j < walk.outer[1].count; ++j) {
      for (uint32_t k = 0; k < walk.outer[2].count; ++k) {
        const uint8_t *from = pointer<const uint8_t>(parm.in_addr) + i * walk.outer[0].in_step +
                              j * walk.outer[1].in_step + k * walk.outer[2].in_step;
        uint8_t *to = pointer(parm.out_addr) + i * walk.outer[0].out_step + j * walk.outer[1].out_step +
                      k * walk.outer[2].out_step;
        gather_runs<T>(parm, walk, Slices<Index>{from, list, walk.indices, walk.position_step}, to);
      }
    }
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_gather_process(const _NN_GATHER_PARM *parm) {
  const NN_AI_IO_TYPE in_type = tarvu_get_gather_fmt_type(&parm->in_fmt);
  const NN_AI_IO_TYPE index_type = tarvu_get_gather_fmt_type(&parm->ind_fmt);
  if (!tarvu::is_element_type(in_type)) {
    std::printf("\033[1;31mERR:%s() unsupported gather input type %d\r\n\033[0m", "tarvu_gather_process", in_type);
    return QX_ERR_UNSUPPORTED;
  }
  if (!tarvu::is_index_type(index_type)) {
    std::printf("\033[1;31mERR:%s() unsupported ind type %d\r\n\033[0m", "tarvu_gather_process", index_type);
    return QX_ERR_UNSUPPORTED;
  }
  tarvu::with_gather_types(in_type, index_type,
                           [=](auto element, auto index) { tarvu::gather<decltype(element), decltype(index)>(*parm); });
  return QX_OK;
}
