// LRN, Norm and both layer normalisations.
#include <algorithm>

#include "tests/activation/lrn_cases.h"
#include "tests/fuzz/makers.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_layernorm_c_reference.h"
#include "tests/reference/tarvu_layernorm_reference.h"
#include "tests/reference/tarvu_lrn_reference.h"
#include "tests/reference/tarvu_norm_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

/// Bytes of an element that passes the conversions by format: 4 for floats, 0 for a format that is not touched.
size_t converted_bytes(const _NN_FMT &fmt) {
  const int32_t width = width_of(fmt);
  if (width == 32) return 4;
  if ((width != 8 && width != 16) || (fmt.sign_bits != 0 && fmt.sign_bits != 1)) return 0;
  return static_cast<size_t>(width) / 8;
}

/// LRN takes any width but 8 and 16 for floats, and any sign.
size_t lrn_bytes(const _NN_FMT &fmt) { return width_of(fmt) == 8 ? 1 : width_of(fmt) == 16 ? 2 : 4; }

lrn_cases::Shape some_lrn_shape(Source &source) {
  lrn_cases::Shape shape{};
  shape.width = std::max<uint32_t>(some_size(source, 70), 1);
  shape.height = 1 + below(source, shape.width > 20 ? 2 : 6);
  shape.channels = 1 + below(source, 14);
  shape.num = one_of(source, {1u, 1u, 2u, 3u});
  return shape;
}

float some_positive(Source &source, std::initializer_list<float> plain) {
  const float value = one_in(source, 8) ? some_float(source) : one_of(source, plain);
  return value > 0.0f || one_in(source, 3) ? value : -value;
}

}  // namespace

std::string run_lrn_case(Source &source) {
  Trial trial{source, {}, {}};
  lrn_cases::Shape shape = some_lrn_shape(source);
  const uint32_t local_size = one_of(source, {5u, 3u, 1u, 7u, 15u, 33u});
  _NN_LRN_PARM block = lrn_cases::float_block(shape, local_size);
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.reserved_0 = block.in_line_ofs = block.out_channel_ofs = unread(source);
  block.lrn_k = one_of(source, {1, 2, 0, -3, 70000, -2147483647 - 1});
  block.alpha = some_positive(source, {1e-4f, 0.002f, 1.0f, 5.0f, 1e-30f});
  block.beta = some_positive(source, {0.75f, 0.5f, 1.0f, 2.5f});
  const size_t in_element = lrn_bytes(block.in_fmt);
  const size_t out_element = lrn_bytes(block.out_fmt);
  block.in_batch_ofs =
      static_cast<uint32_t>(shape.item() * in_element) + one_of(source, {0u, 16u, in_element == 4 ? 4u : 3u});
  block.out_batch_ofs =
      static_cast<uint32_t>(shape.item() * out_element) + one_of(source, {0u, 16u, out_element == 4 ? 4u : 3u});
  // Each item is followed by as many elements as the conversions run over.
  size_t total = size_t{shape.num} * shape.item();
  size_t further = shape.num - 1;
  size_t scratch = lrn_cases::scratch_bytes(shape, local_size);
  if (one_in(source, 8)) {
    switch (below(source, 6)) {
      case 0:
        block.width = 0;
        break;
      case 1:
        block.height = 0;
        break;
      case 2:
        block.channel = 0;
        break;
      case 3:
        block.batch = 0;
        break;
      case 4:
        block.local_size = one_of(source, {0u, 2u, 4u, 0xFFFFFFFEu});
        break;
      default:
        block.beta = one_of(source, {0.0f, -0.0f, -0.75f});
    }
    total = further = scratch = 0;  // refused, so nothing is touched
  }
  if (block.alpha <= 0.0f || block.beta <= 0.0f) total = further = scratch = 0;
  const bool in_place = in_element == out_element && shape.num == 1 && one_in(source, 4);
  const GuardedMemory &in =
      make_tensor(trial, "input", further * block.in_batch_ofs + total * in_element, in_element, 50.0f);
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr =
        make_tensor(trial, "output", further * block.out_batch_ofs + total * out_element, out_element).address();
  }
  block.work_buffer = make_scratch(trial, scratch).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_lrn_process));
}

std::string run_lrn_kernels_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t function = below(source, 5);
  if (function == 4) {
    const float x = some_float(source, 100.0f);
    const float p = some_float(source, 4.0f);
    return compare_calls(
        trial, "fast_Pow", [=] { return result_bits(::fast_Pow(x, p)); },
        [=] { return result_bits(reference::fast_Pow(x, p)); });
  }
  lrn_cases::Shape shape = some_lrn_shape(source);
  if (one_in(source, 20)) shape.num = 0;
  const uint32_t local_size = one_of(source, {5u, 3u, 1u, 2u, 4u, 7u, 17u});
  const uint32_t half = one_in(source, 3) ? below(source, local_size) : (local_size - 1) / 2;
  const auto lrn_k = static_cast<int32_t>(one_of(source, {1u, 2u, 0u, 0xFFFFFFFDu, word(source)}));
  const float alpha_n = one_in(source, 4) ? some_float(source) : one_of(source, {0.0004f, 1.0f, 0.2f});
  const float beta = one_in(source, 4) ? some_float(source) : one_of(source, {0.75f, 1.0f});
  const size_t count = size_t{shape.num} * shape.item();
  const GuardedMemory &in = make_floats(trial, "input", count, 50.0f);
  const GuardedMemory &out = one_in(source, 4) ? in : make_floats(trial, "output", count, 50.0f);
  const GuardedMemory &sums = make_scratch(trial, 4 * count);
  const GuardedMemory &squares =
      make_scratch(trial, shape.num == 0 ? 0 : 4 * (size_t{shape.channels} + local_size - 1) * shape.plane());
  const auto call = [&](auto kernel) {
    return [&, kernel] {
      return kernel(in.as<const float>(), out.as<float>(), sums.as<float>(), squares.as<float>(), lrn_k, shape.num,
                    local_size, shape.channels, alpha_n, beta, shape.width, shape.height, half);
    };
  };
  if (function < 2) {
    return compare_calls(trial, "tarvu_lrn_neon_func", call(::tarvu_lrn_neon_func),
                         call(reference::tarvu_lrn_neon_func));
  }
  return compare_calls(trial, "tarvu_lrn_c_func", call(::tarvu_lrn_c_func), call(reference::tarvu_lrn_c_func));
}

std::string run_norm_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_NORM_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.width = some_extent(source, 300);
  block.height = some_extent(source, block.width > 17 ? 3 : 9);
  block.channel = some_extent(source, 40);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.norm_whole_item = one_of<uint8_t>(source, {0, 1, 255});
  block.shared_scale = one_of<uint8_t>(source, {0, 1, 255});
  block.eps = one_in(source, 4) ? some_float(source) : one_of(source, {1e-10f, 0.0f, 1e-3f, 1.0f, 300.0f});
  const uint32_t plane = static_cast<uint32_t>(block.width) * block.height;
  const size_t n = size_t{plane} * block.channel;
  const size_t in_element = converted_bytes(block.in_fmt);
  const size_t out_element = converted_bytes(block.out_fmt);
  block.in_batch_ofs = static_cast<uint32_t>(n * in_element) + (in_element == 4 ? 4 : 1) * below(source, 7);
  block.out_batch_ofs = static_cast<uint32_t>(n * out_element) + (out_element == 4 ? 4 : 1) * below(source, 7);
  if (one_in(source, 8)) block.in_batch_ofs = 0;
  const bool in_place = in_element == out_element && in_element != 0 && block.in_batch_ofs != 0 && one_in(source, 4);
  if (in_place) block.out_batch_ofs = block.in_batch_ofs;
  const size_t further = block.batch < 2 ? 0u : block.batch - 1u;
  const bool is_empty = n == 0 || block.batch == 0;
  const auto bytes = [&](size_t element, uint32_t step) {
    return is_empty || element == 0 ? 0 : further * step + n * element;
  };
  const GuardedMemory &in =
      make_tensor(trial, "input", bytes(in_element, block.in_batch_ofs), std::max<size_t>(in_element, 1), 20.0f);
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr =
        make_tensor(trial, "output", bytes(out_element, block.out_batch_ofs), std::max<size_t>(out_element, 1))
            .address();
  }
  block.scale_addr = make_floats(trial, "learned scales", block.shared_scale != 0 ? 1 : block.channel, 4.0f).address();
  block.work_buffer = make_scratch(trial, 8 * n).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_norm_process));
}

std::string run_layernorm_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_LAYERNORM_PARM block{};
  fill_bytes(source, &block, sizeof block);
  const bool is_neon = one_in(source, 2);
  block.width = some_extent(source, 300);
  block.height = some_extent(source, block.width > 17 ? 3 : 9);
  block.channel = some_extent(source, 6);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.axis = one_of(source, {3, 2, 1, -1, -2, -3, 0, 4, 127, -4});
  // One run of the whole tensor leaves it from the second batch item on.
  if (block.axis == -4) block.batch = std::min<uint16_t>(block.batch, 1);
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.eps = one_in(source, 5) ? some_float(source) : one_of(source, {1e-5f, 0.0f, 1e-12f, 1.0f, 300.0f});
  const size_t count = size_t{block.width} * block.height * block.channel * block.batch;
  const uint32_t extents[4] = {block.batch, block.channel, block.height, block.width};
  uint32_t length = 1;
  for (int32_t i = block.axis <= 0 ? block.axis + 4 : block.axis; i < 4; ++i) length *= extents[i];
  const size_t in_element = converted_bytes(block.in_fmt);
  const size_t out_element = converted_bytes(block.out_fmt);
  const bool in_place = in_element == out_element && in_element != 0 && one_in(source, 4);
  const GuardedMemory &in = make_tensor(trial, "input", count * in_element, std::max<size_t>(in_element, 1),
                                        one_of(source, {60.0f, 190.0f, 1000.0f}));
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr = make_tensor(trial, "output", count * out_element, std::max<size_t>(out_element, 1)).address();
  }
  block.gamma_addr = block.beta_addr = TARVU_LAYERNORM_ABSENT;
  const size_t values = count == 0 ? 0 : length;
  if (one_in(source, 2)) block.gamma_addr = make_floats(trial, "gamma", values, 4.0f).address();
  if (one_in(source, 2)) block.beta_addr = make_floats(trial, "beta", values, 90.0f).address();
  block.work_buffer = make_scratch(trial, 8 * count).address();
  if (is_neon) return compare_blocks(trial, block, TARVU_TWINS(tarvu_layernorm_process_neon));
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_layernorm_process));
}

}  // namespace fuzz
