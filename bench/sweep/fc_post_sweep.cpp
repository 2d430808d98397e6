#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

/// `wide_products`: multipliers whose products with a total do not fit 64 bits less some.
Case fc_post(const Type &in, const Type &out, uint32_t parts, uint32_t width, uint32_t batch, bool wide_products) {
  Case what;
  what.kind = std::to_string(parts) + (parts == 1 ? " part " : " parts ") + in.name + " to " + out.name +
              (wide_products ? ", wide products" : "");
  what.shape = std::to_string(batch) + " items of " + std::to_string(width);
  what.extent = width;
  what.unit = "output";
  what.units = static_cast<double>(width) * batch;
  what.figure = parts == 1 ? 6.5 : 10 + 1.5 * (parts - 2);
  if (parts == 1 || parts == 2 || parts == 4) what.limit = in.bits == 32 && out.bits == 8 ? 1 : 1.5;
  what.why = "4 lanes of totals, then the workload's arithmetic";
  what.make = [=](Arena &arena) {
    _NN_FC_POST_PARM parm{};
    parm.in_line_ofs = width * in.bytes();
    parm.in_batch_ofs = static_cast<int32_t>(parts * parm.in_line_ofs);
    parm.out_batch_ofs = static_cast<int32_t>(width * out.bytes());
    parm.in_addr = address(random_bytes(arena, size_t{batch} * parts * parm.in_line_ofs));
    parm.bias_addr = address(random_bytes(arena, size_t{4} * width));
    parm.out_addr = address(zero_bytes(arena, size_t{batch} * width * out.bytes()));
    parm.width = u16(width);
    parm.height = u16(parts);
    parm.batch = u16(batch);
    parm.in_fmt = format(in, in.bits == 32 ? 12 : 4);
    parm.out_fmt = format(out, 4);
    parm.mul_a = wide_products ? scale(1 << 20, 28) : scale(19661, 24);
    parm.mul_b = wide_products ? scale(5000, 24) : scale(23, 19);
    parm.neg_mul = scale(205, 11);
    return call_of(tarvu_fc_post_process, parm);
  };
  return what;
}

}  // namespace

void add_fc_post_cases(Cases &cases) {
  for (const Type &in : {kS32, kS16, kS8}) {
    for (const Type &out : {kS8, kS16}) {
      for (const uint32_t parts : {1u, 2u, 3u, 4u, 8u}) {
        for (const uint32_t width : {1000u, 100u, 21u, 10u}) {
          if (out.bits == 16 && parts > 2) continue;
          add(cases, fc_post(in, out, parts, width, width < 100 ? 16 : 1, false));
        }
      }
      add(cases, fc_post(in, out, 1, 1000, 1, true));
      add_doublings(cases, [&](const Shape &shape) { return fc_post(in, out, 2, shape.width, shape.batch, false); },
                    {4, 1, 1, 100});
    }
  }
}

}  // namespace sweep
