// PReLU, Eltwise, LSTM, and the table of the family.
#include <algorithm>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_eltwise_reference.h"
#include "tests/reference/tarvu_lstm_c_reference.h"
#include "tests/reference/tarvu_prelu_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

int8_t some_shift(Source &source) {
  if (!one_in(source, 3)) return static_cast<int8_t>(pick(source, 0, 12));
  return one_of<int8_t>(source, {31, 32, 33, 64, 127, -1, -7, -8, -15, -16, -17, -31, -32, -33, -128});
}

std::string run_prelu_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_PRELU_PARM block{};
  block.width = some_extent(source, 300);
  block.height = some_extent(source, block.width > 33 ? 3 : 9);
  block.channels = some_extent(source, 12);
  block.num = one_of(source, {1u, 2u, 3u, 0u, 0xFFFFFFFFu});
  block.in_fmt = some_format(source);
  block.reserved_0 = unread(source);
  block.shift = some_shift(source);
  const int32_t width = width_of(block.in_fmt);
  const bool is_refused = block.width == 0 || block.height == 0 || block.channels == 0 || block.num == 0;
  const size_t element = (width != 8 && width != 16) || is_refused ? 0 : static_cast<size_t>(width) / 8;
  const size_t bytes = element * block.width * block.height * block.channels;
  const GuardedMemory &in = make_tensor(trial, "input", bytes);
  const GuardedMemory &out = one_in(source, 4) ? in : make_tensor(trial, "output", bytes, std::max<size_t>(element, 1));
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.weight_addr = make_tensor(trial, "slopes", element == 0 ? 0 : block.channels).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_prelu_process));
}

template <class T, class Product, class Twin>
std::string run_one_slope(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  const uint32_t count = some_size(source, 200);
  const int8_t shift = some_shift(source);
  const auto slope = static_cast<int8_t>(draw_bytes(source, 1));
  const GuardedMemory &in = make_tensor(trial, "input", count * sizeof(T), sizeof(T));
  const GuardedMemory &out = one_in(source, 4) ? in : make_tensor(trial, "output", count * sizeof(T), sizeof(T));
  const auto call = [&](auto kernel) {
    return [&, kernel] { return kernel(in.as<const T>(), out.as<T>(), slope, count, shift); };
  };
  return compare_calls(trial, name, call(product), call(twin));
}

/// How a slope's index follows from an element's: `((i / divisor_a) % modulus) / divisor_b`.
struct Lookup {
  uint32_t modulus;
  int32_t divisor_a;
  uint32_t divisor_b;

  uint32_t index(int32_t i) const {
    const auto quotient = static_cast<uint32_t>(divisor_a == 0 ? 0 : i / divisor_a);
    const uint32_t rest = modulus == 0 ? quotient : quotient % modulus;
    return divisor_b == 0 ? 0 : rest / divisor_b;
  }
};

template <class T, class Product, class Twin>
std::string run_many_slopes(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  const int32_t count = one_in(source, 12) ? pick(source, -3, 0) : static_cast<int32_t>(some_size(source, 200));
  const int8_t shift = some_shift(source);
  const uint32_t plane = 1 + below(source, 17);
  Lookup lookup{plane * (1 + below(source, 6)), 1, plane};
  if (one_in(source, 3)) {
    lookup = {one_of(source, {0u, 1u, 7u, 0xFFFFFFFFu}), one_of(source, {0, 1, 3, -1, -2147483647 - 1}),
              one_of(source, {0u, 1u, 5u, 0x10000000u})};
  }
  uint32_t last = 0;
  for (int32_t i = 0; i < count; ++i) last = std::max(last, lookup.index(i));
  if (last >= 4096) {
    lookup = {plane, 1, 1};
    last = plane - 1;
  }
  const size_t elements = count < 0 ? 0 : static_cast<size_t>(count);
  const GuardedMemory &in = make_tensor(trial, "input", elements * sizeof(T), sizeof(T));
  const GuardedMemory &out = one_in(source, 4) ? in : make_tensor(trial, "output", elements * sizeof(T), sizeof(T));
  const GuardedMemory &slopes = make_tensor(trial, "slopes", elements == 0 ? 0 : last + size_t{1});
  const auto call = [&](auto kernel) {
    return [&, kernel] {
      return kernel(in.as<const T>(), slopes.as<const int8_t>(), out.as<T>(), lookup.modulus, shift, count,
                    lookup.divisor_a, lookup.divisor_b);
    };
  };
  return compare_calls(trial, name, call(product), call(twin));
}

std::string run_prelu_kernels_case(Source &source) {
  switch (below(source, 4)) {
    case 0:
      return run_one_slope<int8_t>(source, TARVU_TWINS(tarvu_prelu_neon_func_int8));
    case 1:
      return run_one_slope<int16_t>(source, TARVU_TWINS(tarvu_prelu_neon_func_int16));
    case 2:
      return run_many_slopes<int8_t>(source, TARVU_TWINS(tarvu_prelu_c_func_int8));
    default:
      return run_many_slopes<int16_t>(source, TARVU_TWINS(tarvu_prelu_c_func_int16));
  }
}

// ---- Eltwise

/// One of the three tensors, and the memory that its offsets reach.
struct EltwiseTensor {
  _NN_FMT fmt;
  size_t element;  ///< 4 for floats, 0 for a format that is not touched
  uint32_t line_ofs, channel_ofs, batch_ofs;
  size_t bytes;
};

EltwiseTensor some_eltwise_tensor(Source &source, const _NN_ELTWISE_PARM &block, bool may_repeat) {
  EltwiseTensor tensor{some_format(source), 0, 0, 0, 0, 0};
  const int32_t width = width_of(tensor.fmt);
  const bool converts = (width == 8 || width == 16) && (tensor.fmt.sign_bits == 0 || tensor.fmt.sign_bits == 1);
  tensor.element = width == 32 ? 4 : converts ? static_cast<size_t>(width) / 8 : 0;
  const uint32_t unit = tensor.element == 4 ? 4 : 1;
  const auto dense_line = static_cast<uint32_t>(block.width * tensor.element);
  tensor.line_ofs = tensor.element == 4 ? dense_line + 4 * below(source, 4) : unread(source);
  if (tensor.element == 4 && may_repeat && one_in(source, 6)) tensor.line_ofs = 0;
  const uint32_t further_lines = block.height == 0 ? 0u : block.height - 1u;
  const uint32_t plane = tensor.element == 4 ? further_lines * tensor.line_ofs + dense_line : block.height * dense_line;
  tensor.channel_ofs = may_repeat && one_in(source, 6) ? 0 : plane + unit * below(source, 6);
  tensor.batch_ofs = may_repeat && one_in(source, 6) ? 0 : block.channel * tensor.channel_ofs + unit * below(source, 6);
  if (block.width == 0 || block.height == 0 || block.channel == 0 || block.batch == 0 || tensor.element == 0) {
    return tensor;
  }
  tensor.bytes =
      size_t{tensor.batch_ofs} * (block.batch - 1u) + size_t{tensor.channel_ofs} * (block.channel - 1u) + plane;
  return tensor;
}

std::string run_eltwise_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_ELTWISE_PARM block{};
  block.width = some_extent(source, 300);
  block.height = some_extent(source, block.width > 33 ? 3 : 7);
  block.channel = some_extent(source, 3);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  block.op = one_in(source, 12) ? static_cast<int32_t>(word(source)) : pick(source, 0, 1);
  block.coeff0 = one_in(source, 3) ? some_float(source) : one_of(source, {1.0f, -1.0f, 0.3f});
  block.coeff1 = one_in(source, 3) ? some_float(source) : one_of(source, {1.0f, -1.0f, 0x1.000002p0f});
  const EltwiseTensor first = some_eltwise_tensor(source, block, true);
  const EltwiseTensor second = some_eltwise_tensor(source, block, true);
  EltwiseTensor out = some_eltwise_tensor(source, block, false);
  const bool repeats = first.channel_ofs == 0 || first.batch_ofs == 0 || (first.element == 4 && first.line_ofs == 0);
  const bool in_place = one_in(source, 4) && first.element != 0 && !repeats;
  if (in_place) {
    // Another sign and other fraction bits, but the same width.
    const _NN_FMT fmt = out.fmt;
    out = first;
    if (width_of(fmt) == width_of(first.fmt) && (fmt.sign_bits == 0 || fmt.sign_bits == 1)) out.fmt = fmt;
  }
  block.in0_fmt = first.fmt;
  block.in0_line_ofs = first.line_ofs;
  block.in0_channel_ofs = first.channel_ofs;
  block.in0_batch_ofs = first.batch_ofs;
  block.in1_fmt = second.fmt;
  block.in1_line_ofs = second.line_ofs;
  block.in1_channel_ofs = second.channel_ofs;
  block.in1_batch_ofs = second.batch_ofs;
  block.out_fmt = out.fmt;
  block.out_line_ofs = out.line_ofs;
  block.out_channel_ofs = out.channel_ofs;
  block.out_batch_ofs = out.batch_ofs;
  block.in0_scale = some_scale(source);
  block.in1_scale = some_scale(source);
  block.out_scale = some_scale(source);
  const auto tensor = [&](const char *name, const EltwiseTensor &t) -> const GuardedMemory & {
    return make_tensor(trial, name, t.bytes, std::max<size_t>(t.element, 1));
  };
  const GuardedMemory &first_memory = tensor("first input", first);
  block.in0_addr = block.out_addr = first_memory.address();
  block.in1_addr = tensor("second input", second).address();
  if (!in_place) block.out_addr = tensor("output", out).address();
  block.work_buffer = make_scratch(trial, 12 * size_t{block.width} * block.height).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_eltwise_process));
}

// ---- LSTM

std::string run_lstm_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t function = below(source, 5);
  if (function == 4) {
    const float x = some_float(source, 20.0f);
    return compare_calls(
        trial, "sigmoid", [x] { return result_bits(::sigmoid(x)); },
        [x] { return result_bits(reference::sigmoid(x)); });
  }
  _NN_LSTM_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.hidden_size = some_size(source, 72);
  block.width = some_extent(source, block.hidden_size > 33 ? 4 : 20);
  block.height = some_extent(source, 2);
  block.channel = some_extent(source, 3);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 4, 0}));
  block.use_static = static_cast<int32_t>(one_of(source, {0u, 1u, 0x80000000u}));
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  const size_t inputs = size_t{block.width} * block.height;
  const size_t units = block.hidden_size;
  const size_t cells = block.channel * units;
  const size_t all_cells = block.batch * cells;
  const size_t static_inputs = block.channel * inputs;
  const size_t all_inputs = block.batch * static_inputs;
  const bool converts = function != 3;  // the recurrence alone touches no tensor
  const auto tensor = [&](const char *name, size_t count, const _NN_FMT &fmt) {
    // Widths are sums modulo 256.
    const int32_t width = narrow_width_of(fmt);
    const bool known = (width == 8 || width == 16) && (fmt.sign_bits == 0 || fmt.sign_bits == 1);
    const size_t element = known && converts ? static_cast<size_t>(width) / 8 : 0;
    return make_tensor(trial, name, count * element, std::max<size_t>(element, 1)).address();
  };
  block.in_addr = tensor("input", all_inputs, block.in_fmt);
  block.static_addr = tensor("static input", block.use_static != 0 ? static_inputs : 0, block.in_fmt);
  block.out_addr = tensor("output", all_cells, block.out_fmt);
  const float reach = one_of(source, {0.4f, 0.05f, 2.0f, 300.0f});
  for (int gate = 0; gate < 4; ++gate) {
    block.input_weights[gate] = make_floats(trial, "input weights", units * inputs, reach).address();
    block.static_weights[gate] = support::unreadable_address();
    if (block.use_static != 0) {
      block.static_weights[gate] = make_floats(trial, "static weights", units * inputs, reach).address();
    }
    block.recurrent_weights[gate] = make_floats(trial, "recurrent weights", units * units, reach).address();
    block.biases[gate] = make_floats(trial, "biases", units, reach).address();
  }
  // The work area is compared as well: callers of float data read their hidden states there.
  const size_t work = all_inputs + static_inputs + cells + all_cells;
  block.work_buffer = make_floats(trial, "work area", work, 8.0f).address();
  const GuardedMemory &flags = make_memory(trial, size_t{block.batch} * block.channel);
  fill_bytes(source, flags.data(), flags.size());
  for (size_t i = 0; i < flags.size(); ++i) flags.data()[i] = flags.data()[i] % 3 == 0 ? 0 : flags.data()[i];
  trial.run.track(flags, "flags");
  block.cont_addr = flags.address();
  if (converts) return compare_blocks(trial, block, TARVU_TWINS(tarvu_lstm_process));
  const auto call = [](auto recurrence) {
    return [recurrence](const _NN_LSTM_PARM *parm) {
      recurrence(parm);
      return 0;
    };
  };
  return compare_blocks(trial, block, "lstm_process_c", call(::lstm_process_c), call(reference::lstm_process_c));
}

}  // namespace

std::span<const Operator> activation_operators() {
  static const Operator operators[] = {
      {"prelu", run_prelu_case, {"tarvu_prelu_process"}},
      {"prelu_kernels",
       run_prelu_kernels_case,
       {"tarvu_prelu_neon_func_int8", "tarvu_prelu_neon_func_int16", "tarvu_prelu_c_func_int8",
        "tarvu_prelu_c_func_int16"}},
      {"softmax",
       run_softmax_case,
       {"tarvu_softmax_process", "tarvu_softmax_process_0", "tarvu_softmax_process_one_batch"}},
      {"softmax_kernels",
       run_softmax_kernels_case,
       {"tarvu_softmax_axis2_4vec", "tarvu_softmax_axis3_4vec", "tarvu_softmax_axisn_1dim_vec", "fast_exp",
        "dataTransform_u16tofloat", "write_file"}},
      {"softmax_asym",
       run_softmax_asym_case,
       {"tarvu_softmax_asym_process", "tarvu_dli_softmax_process", "tarvu_softmax_asym_process_one_batch",
        "tarvu_softmax_asym_axis2_4vec", "tarvu_softmax_asym_axis3_4vec", "tarvu_softmax_asym_axisn_1dim_vec"}},
      {"softmax_table",
       run_softmax_table_case,
       {"vendor_softmax_process", "vendor_submax_s16", "vendor_ais_checkparm"}},
      {"lrn", run_lrn_case, {"tarvu_lrn_process"}},
      {"lrn_kernels", run_lrn_kernels_case, {"tarvu_lrn_neon_func", "tarvu_lrn_c_func", "fast_Pow"}},
      {"norm", run_norm_case, {"tarvu_norm_process"}},
      {"layernorm", run_layernorm_case, {"tarvu_layernorm_process", "tarvu_layernorm_process_neon"}},
      {"eltwise", run_eltwise_case, {"tarvu_eltwise_process"}},
      {"lstm", run_lstm_case, {"tarvu_lstm_process", "lstm_process_c", "sigmoid"}},
  };
  return operators;
}

}  // namespace fuzz
