#include <algorithm>

#include "bench/sweep/sweep.h"
#include "tests/tensor/heap_watch.h"

namespace sweep {
namespace {

/// Tuples of 1 to 3 coordinates into 16 planes of 20 lines; what they name is a plane, a line or an element. What the
/// operator leaves on the heap goes back after each call.
Case tuples(const Type &type, const Type &index_type, uint32_t coordinates, uint32_t width, uint32_t count) {
  const uint32_t slice = coordinates == 1 ? 20 * width : coordinates == 2 ? width : 1;
  Case what;
  what.kind = std::to_string(coordinates) + (coordinates == 1 ? " coordinate, " : " coordinates, ") + type.name +
              " by " + index_type.name;
  what.shape = std::to_string(count) + " slices of " + std::to_string(slice);
  what.extent = slice;
  what.unit = "tuple";
  what.units = count;
  what.fixed = 1500;
  what.extra = 0.17 * static_cast<double>(slice) * type.bytes() * count;
  what.figure = 4 + 3.0 * coordinates;
  what.why = "the workload's arithmetic, and a copy of the bytes; the heap's blocks are part of a call";
  what.make = [=](Arena &arena) -> Call {
    const uint32_t extents[3] = {16, 20, width};
    _NN_GATHERND_PARM parm{};
    parm.in_addr = address(random_bytes(arena, size_t{16} * 20 * width * type.bytes()));
    parm.out_addr = address(zero_bytes(arena, size_t{count} * slice * type.bytes()));
    uint8_t *indices = zero_bytes(arena, size_t{count} * coordinates * index_type.bytes());
    const uint8_t *noise = random_bytes(arena, size_t{count} * coordinates);
    for (size_t i = 0; i < size_t{count} * coordinates; ++i) {
      indices[i * index_type.bytes()] = static_cast<uint8_t>(noise[i] % std::min(extents[i % coordinates], 100u));
    }
    parm.ind_addr = address(indices);
    parm.work_buffer = address(zero_bytes(arena, size_t{count} * coordinates * 4));
    parm.in_channel = 16;
    parm.in_height = 20;
    parm.in_width = u16(width);
    parm.ind_height = u16(count);
    parm.ind_width = u16(coordinates);
    parm.out_height = u16(count);
    parm.out_width = u16(slice);
    parm.in_fmt = parm.out_fmt = format(type, 4);
    parm.ind_fmt = format(index_type, 0);
    return [=] {
      const selection_test::HeapWatch watch;
      bench::expect_ok(tarvu_gathernd_process(&parm));
    };
  };
  return what;
}

}  // namespace

void add_gathernd_cases(Cases &cases) {
  for (const Type &type : {kS8, kS16}) {
    for (const Type &index_type : {kS8, kS16}) {
      for (const uint32_t coordinates : {1u, 2u, 3u}) {
        for (const uint32_t width : {1u, 3u, 4u, 7u, 14u, 28u, 56u}) {
          if (coordinates == 1 && width > 14) continue;
          add(cases, tuples(type, index_type, coordinates, width, coordinates == 1 ? 49 : 224));
        }
        for (const uint32_t count : {1u, 7u, 1000u}) {
          if (coordinates != 1) add(cases, tuples(type, index_type, coordinates, 10, count));
        }
      }
    }
  }
  add_doublings(cases, [](const Shape &shape) { return tuples(kS8, kS8, 2, shape.width, shape.height); },
                {1, 1, 224, 28});
}

}  // namespace sweep
