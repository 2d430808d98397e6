// Top-K, and the table of the family.
#include <algorithm>
#include <utility>
#include <vector>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_topk_c_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

/// An output of Top-K: its byte steps, slowest axis first, and where it lies.
struct Picks {
  uint32_t steps[4];
  size_t element;
  size_t bytes;
  const GuardedMemory *memory;  ///< null if it is not wanted

  uint8_t *at(const uint32_t (&place)[4]) const {
    uint8_t *address = memory->data();
    for (int i = 0; i < 4; ++i) address += size_t{place[i]} * steps[i];
    return address;
  }
};

Picks lay_out(Source &source, size_t element, const uint32_t (&counts)[4]) {
  Picks picks{{}, element, 0, nullptr};
  auto bytes = static_cast<uint32_t>(element);
  for (int i = 3; i >= 0; --i) {
    picks.steps[i] = i == 3 ? bytes : bytes + one_of(source, {0u, 1u, 6u});
    bytes = picks.steps[i] * std::max(1u, counts[i]);
  }
  const bool is_empty = std::count(counts, counts + 4, 0u) != 0;
  picks.bytes = is_empty ? 0 : picks.element;
  for (int i = 0; !is_empty && i < 4; ++i) picks.bytes += size_t{picks.steps[i]} * (counts[i] - 1);
  return picks;
}

/// Brings the picks of one line into ascending order, by index where there is one: without `sorted` they are a set.
void order_line(const Picks &values, const Picks &indices, uint32_t (&place)[4], int axis, uint32_t k) {
  std::vector<std::pair<uint16_t, uint16_t>> picks(k);
  const auto move = [&](bool store) {
    for (uint32_t i = 0; i < k; ++i) {
      place[axis] = i;
      for (const auto &[side, at] : {std::pair(&indices, &picks[i].first), std::pair(&values, &picks[i].second)}) {
        if (side->memory == nullptr) continue;
        if (store) {
          std::memcpy(side->at(place), at, side->element);
        } else {
          std::memcpy(at, side->at(place), side->element);
        }
      }
    }
    place[axis] = 0;
  };
  move(false);
  std::sort(picks.begin(), picks.end());
  move(true);
}

void order_all(const Picks &values, const Picks &indices, const uint32_t (&extents)[4], int axis, uint32_t k) {
  uint32_t counts[4] = {extents[0], extents[1], extents[2], extents[3]};
  counts[axis] = 1;
  uint32_t at[4];
  for (at[0] = 0; at[0] < counts[0]; ++at[0])
    for (at[1] = 0; at[1] < counts[1]; ++at[1])
      for (at[2] = 0; at[2] < counts[2]; ++at[2])
        for (at[3] = 0; at[3] < counts[3]; ++at[3]) order_line(values, indices, at, axis, k);
}

std::string run_topk_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_TOPK_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.axis = one_of<int8_t>(source, {3, 0, 1, 2});
  const int axis = block.axis;
  uint32_t extents[4];
  for (int i = 0; i < 4; ++i) extents[i] = one_in(source, 24) ? 0 : 1 + below(source, 4);
  if (one_in(source, 2)) extents[below(source, 4)] = some_extent(source, 50);
  extents[axis] = one_in(source, 12) ? 60 + below(source, 300) : some_extent(source, 140);
  block.batch = static_cast<uint16_t>(extents[0]);
  block.channel = static_cast<uint16_t>(extents[1]);
  block.height = static_cast<uint16_t>(extents[2]);
  block.width = static_cast<uint16_t>(extents[3]);
  const uint32_t n = extents[axis];
  block.k = one_in(source, 3) ? below(source, n + 1) : std::min(n, one_of(source, {1u, 2u, 5u, n, 0u}));
  block.largest = static_cast<int8_t>(below(source, 2));
  block.sorted = one_of<int8_t>(source, {1, 0, -1});
  block.in_fmt = some_integer_format(source);
  if (one_in(source, 12)) block.in_fmt = some_format(source);
  if (one_in(source, 16)) block.largest = one_of<int8_t>(source, {2, -1, 127});
  if (one_in(source, 16)) block.axis = one_of<int8_t>(source, {4, -1, -128});
  const int32_t width = width_of(block.in_fmt);
  const bool runs = (width == 8 || width == 16) && (block.largest == 0 || block.largest == 1) && block.axis == axis;
  const size_t element = width == 16 ? 2 : 1;

  uint32_t counts[4] = {extents[0], extents[1], extents[2], extents[3]};
  counts[axis] = block.k;
  Picks values = lay_out(source, element, counts);
  Picks indices = lay_out(source, 2, counts);
  const uint32_t wanted = below(source, 8);  // 7: none of them
  const size_t all = size_t{extents[0]} * extents[1] * extents[2] * extents[3];
  block.in_addr = make_tensor(trial, "input", runs ? all * element : 0).address();
  block.out_addr = block.out_index_addr = 0;
  if (wanted != 5 && wanted != 7) {
    values.memory = &make_tensor(trial, "values", runs ? values.bytes : 0, element);
    block.out_addr = values.memory->address();
  }
  if (wanted != 6 && wanted != 7) {
    indices.memory = &make_tensor(trial, "indices", runs ? indices.bytes : 0, 2);
    block.out_index_addr = indices.memory->address();
  }
  block.out_batch_ofs = values.steps[0];
  block.out_channel_ofs = values.steps[1];
  block.out_line_ofs = values.steps[2];
  block.out_index_batch_ofs = indices.steps[0];
  block.out_index_channel_ofs = indices.steps[1];
  block.out_index_line_ofs = indices.steps[2];
  block.work_buffer = make_scratch(trial, runs ? 4 * size_t{std::max(block.k, n)} : 0).address();
  const bool in_any_order = runs && block.sorted == 0 && block.k != n && all != 0;
  const auto call = [&](auto process) {
    return [&, process](const _NN_TOPK_PARM *parm) {
      const _QX_RESULT result = process(parm);
      if (in_any_order) order_all(values, indices, extents, axis, block.k);
      return result;
    };
  };
  return compare_blocks(trial, block, "tarvu_topk_process", call(::tarvu_topk_process),
                        call(reference::tarvu_topk_process));
}

}  // namespace

std::span<const Operator> select_operators() {
  static const Operator operators[] = {
      {"topk", run_topk_case, {"tarvu_topk_process"}},
      {"gather", run_gather_case, {"tarvu_gather_process"}},
      {"gathernd",
       run_gathernd_case,
       {"tarvu_gathernd_process", "size_to_dimension", "size_from_dimension", "chk_input_offset"}},
      {"gatherelement", run_gatherelement_case, {"tarvu_gatherelement_process"}},
  };
  return operators;
}

}  // namespace fuzz
