// Division by an L2 norm, of a whole batch item or of each position across the channels, and a learned scale.
#include <cmath>

#include "activation/norm_positions.h"
#include "activation/square_sum.h"
#include "convert/format_entry.h"
#include "frame/memory.h"
#include "tarvu.h"

namespace tarvu {
namespace {

/// out[i] = in[i] * factor; `out` may be `in`.
void multiply_run(const float *in, float *out, size_t count, float factor) {
  TARVU_INDEPENDENT_ITERATIONS
  for (size_t i = 0; i < count; ++i) store(out + i, load<float>(in + i) * factor);
}

void norm_whole(const float *in, float *out, uint32_t count, const NormItem &item) {
  const float sum = sum_of_squares(in, count, [](auto x) { return x; });
  const double radicand = static_cast<double>(sum) + static_cast<double>(item.eps);
  const auto inverse = static_cast<float>(1.0 / std::sqrt(radicand));
  if (item.shared_scale) {
    multiply_run(in, out, count, inverse * load<float>(item.scales));
    return;
  }
  for (uint32_t c = 0; c < item.channels; ++c) {
    const size_t start = c * item.plane;
    multiply_run(in + start, out + start, item.plane, inverse * load<float>(item.scales + c));
  }
}

/// Positions from which integers are converted column by column on the way; the exact roots of a small plane are quicker on
/// floats converted in one run.
constexpr size_t kLeastPlaneToFuse = 64;

/// Computes an item by position without a pass over floats in between, and returns true: if both formats are integers and no
/// array lies over another. `tile` holds one float for each element.
bool norm_integers_by_position(const _NN_NORM_PARM &parm, uint64_t in, uint64_t out, const Memory &scratch,
                               NormItem item) {
  // Half a unit is added ahead of the scale for negative fraction bits; that is left to the conversion.
  if (item.plane < kLeastPlaneToFuse || parm.out_fmt.frac_bits < 0) return false;
  const uint64_t count = item.plane * item.channels;
  if (scratch.bytes != 8 * count) return false;  // the element count has wrapped
  const Memory scales{parm.scale_addr, (item.shared_scale ? 1 : item.channels) * sizeof(float)};
  bool done = false;
  with_element_type(parm.in_fmt, [&](auto in_element) {
    with_element_type(parm.out_fmt, [&](auto out_element) {
      using In = decltype(in_element);
      using Out = decltype(out_element);
      const Memory source{in, count * sizeof(In)};
      const Memory destination{out, count * sizeof(Out)};
      done = lie_apart(scratch, source) && lie_apart(scratch, destination) && lie_apart(scratch, scales) &&
             lie_apart(destination, scales) && (lie_apart(destination, source) || are_same(destination, source));
      if (!done) return;
      item.in_multiplier = multiplier_to_float(parm.in_fmt.frac_bits, scale_of(parm.in_scale));
      item.out_multiplier = multiplier_from_float(parm.out_fmt.frac_bits, scale_of(parm.out_scale));
      norm_by_position(pointer<const In>(in), pointer<Out>(out), pointer<float>(scratch.address), item);
    });
  });
  return done;
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_norm_process(const _NN_NORM_PARM *parm) {
  const bool float_in = tarvu_get_fmt_type(&parm->in_fmt) == NN_AI_IO_TYPE_32BIT;
  const bool float_out = tarvu_get_fmt_type(&parm->out_fmt) == NN_AI_IO_TYPE_32BIT;
  const uint32_t plane = uint32_t{parm->width} * parm->height;
  const uint32_t count = plane * parm->channel;
  uint64_t cursor = parm->work_buffer;
  auto *const in_scratch = static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count));
  auto *const out_scratch = static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count));
  const tarvu::NormItem item{
      plane, parm->channel, tarvu::pointer<const float>(parm->scale_addr), parm->shared_scale != 0, parm->eps,
      1.0f,  1.0f};
  const tarvu::Memory scratch{parm->work_buffer, 8 * uint64_t{count}};
  for (uint32_t b = 0; b < parm->batch; ++b) {
    const uint64_t in = parm->in_addr + uint64_t{b} * parm->in_batch_ofs;
    const uint64_t out = parm->out_addr + uint64_t{b} * parm->out_batch_ofs;
    if (parm->norm_whole_item == 0 && tarvu::norm_integers_by_position(*parm, in, out, scratch, item)) continue;
    tarvu_fixtofloat_neon(tarvu::pointer<const void>(in), in_scratch, count, &parm->in_fmt, &parm->in_scale);
    const float *const in_floats = float_in ? tarvu::pointer<const float>(in) : in_scratch;
    float *const out_floats = float_out ? tarvu::pointer<float>(out) : out_scratch;
    if (parm->norm_whole_item != 0) {
      tarvu::norm_whole(in_floats, out_floats, count, item);
    } else {
      tarvu::norm_by_position(in_floats, out_floats, static_cast<float *>(nullptr), item);
    }
    tarvu_floattofix_neon(out_floats, tarvu::pointer<void>(out), count, &parm->out_fmt, &parm->out_scale);
  }
  return QX_OK;
}
