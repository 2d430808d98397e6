// LSTM: the layer, and its recurrence on the work area alone.
#include "contract/contents.h"
#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/lstm_ids.inc"

/// Elements of the arrays, as reckoned in 32 bits.
struct Sizes {
  uint32_t steps;
  uint32_t sequences;
  uint32_t inputs;
  uint32_t units;

  uint32_t input() const { return steps * sequences * inputs; }
  uint32_t static_input() const { return sequences * inputs; }
  uint32_t cells() const { return sequences * units; }
  uint32_t hidden() const { return steps * sequences * units; }
  uint32_t input_matrix() const { return units * inputs; }
  uint32_t recurrent_matrix() const { return units * units; }
  bool computes() const { return steps != 0 && sequences != 0 && units != 0; }
};

Sizes sizes_of(const _NN_LSTM_PARM &block) {
  return {block.batch, block.channel, uint32_t{block.width} * block.height, block.hidden_size};
}

/// Widths count modulo 256.
Element lstm_element(const _NN_FMT &fmt) {
  const int32_t width = narrow_width_of(fmt);
  const bool is_known = (fmt.sign_bits == 0 || fmt.sign_bits == 1) && (width == 8 || width == 16);
  const uint32_t bytes = is_known ? static_cast<uint32_t>(width) / 8 : 0;
  return {bytes, integer_type_of(fmt, bytes)};
}

bool is_recurrence(const Call &call) { return std::strcmp(call.info.name, "lstm_process_c") == 0; }

void add_tensor(RangeSink &sink, const char *field, uint64_t address, int32_t role, const Element &element,
                uint32_t count, bool is_exact) {
  Range range = range_of(field, address, role, element.type, element.bytes);
  range.exact = is_exact ? 1 : 0;
  extend(range, count, element.bytes);
  add(sink, range);
}

/// Four matrices or vectors, one of each gate.
void add_gates(RangeSink &sink, const char *const (&names)[4], const uint64_t (&addresses)[4], uint32_t count,
               bool is_exact) {
  for (int gate = 0; gate < 4; ++gate) {
    add_floats(sink, names[gate], addresses[gate], TARVU_CONTRACT_READS, count, is_exact);
  }
}

/// What is known of the flags that continue a sequence.
enum class Continues { kNever, kSometimes, kPossibly };

Continues continues(const Call &call, const _NN_LSTM_PARM &block) {
  if (!call.reads_contents() || block.cont_addr == 0) return Continues::kPossibly;
  const uint64_t flags = uint64_t{block.batch} * block.channel;
  for (uint64_t i = 0; i < flags; ++i) {
    if (value_at<uint8_t>(block.cont_addr + i) != 0) return Continues::kSometimes;
  }
  return Continues::kNever;
}

void add_weights(RangeSink &sink, const Call &call, const _NN_LSTM_PARM &block, const Sizes &sizes) {
  add_gates(sink, {"input_weights[0]", "input_weights[1]", "input_weights[2]", "input_weights[3]"}, block.input_weights,
            sizes.input_matrix(), true);
  if (block.use_static != 0) {
    add_gates(sink, {"static_weights[0]", "static_weights[1]", "static_weights[2]", "static_weights[3]"},
              block.static_weights, sizes.input_matrix(), true);
  }
  const Continues known = continues(call, block);
  if (known != Continues::kNever) {
    add_gates(sink, {"recurrent_weights[0]", "recurrent_weights[1]", "recurrent_weights[2]", "recurrent_weights[3]"},
              block.recurrent_weights, sizes.recurrent_matrix(), known == Continues::kSometimes);
  }
  add_gates(sink, {"biases[0]", "biases[1]", "biases[2]", "biases[3]"}, block.biases, sizes.units, true);
}

void add_work(RangeSink &sink, uint64_t address, int32_t role, uint64_t first_float, uint32_t floats, bool is_exact) {
  Range range = range_of("work_buffer", address, role, TARVU_CONTRACT_F32, 4);
  range.exact = is_exact ? 1 : 0;
  range.alignment = 4;
  range.offset = static_cast<int64_t>(4 * first_float);
  extend(range, floats, 4);
  add(sink, range);
}

void lstm_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_LSTM_PARM>(call);
  const Sizes sizes = sizes_of(block);
  const bool is_whole = !is_recurrence(call);
  const Element in = lstm_element(block.in_fmt);
  const Element out = lstm_element(block.out_fmt);
  const bool converts = is_whole && in.bytes != 0;
  const bool has_static = block.use_static != 0;
  if (converts) {
    add_tensor(sink, "in_addr", block.in_addr, TARVU_CONTRACT_READS, in, sizes.input(), sizes.computes());
    if (has_static) {
      add_tensor(sink, "static_addr", block.static_addr, TARVU_CONTRACT_READS, in, sizes.static_input(),
                 sizes.computes());
    }
  }
  add_tensor(sink, "cont_addr", block.cont_addr, TARVU_CONTRACT_READS, {1, TARVU_CONTRACT_U8},
             sizes.steps * sizes.sequences, sizes.computes());
  if (sizes.computes()) add_weights(sink, call, block, sizes);
  if (is_whole) {
    add_tensor(sink, "out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out, sizes.hidden(), true);
  }
  const int32_t input_role = converts ? TARVU_CONTRACT_SCRATCH : TARVU_CONTRACT_READS;
  const bool needs_input = !converts && sizes.computes();
  const uint64_t cells_at = uint64_t{sizes.input()} + sizes.static_input();
  add_work(sink, block.work_buffer, input_role, 0, sizes.input(), needs_input);
  if (has_static) {
    add_work(sink, block.work_buffer, input_role, sizes.input(), sizes.static_input(), needs_input);
  }
  add_work(sink, block.work_buffer, TARVU_CONTRACT_SCRATCH_RESULT, cells_at, sizes.cells(), true);
  add_work(sink, block.work_buffer, TARVU_CONTRACT_SCRATCH_RESULT, cells_at + sizes.cells(), sizes.hidden(), true);
}

uint64_t lstm_scratch(const Call &call) {
  const Sizes sizes = sizes_of(block_of<_NN_LSTM_PARM>(call));
  return 4 * (uint64_t{sizes.input()} + sizes.static_input() + sizes.cells() + sizes.hidden());
}

void check_first_step(FindingSink &sink, const _NN_LSTM_PARM &block) {
  for (uint32_t sequence = 0; sequence < block.channel; ++sequence) {
    const auto flag = value_at<uint8_t>(block.cont_addr + sequence);
    if (flag != 0) return add(sink, kFirstContinues, "cont_addr", flag, {sequence, 0, 0});
  }
}

void lstm_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_LSTM_PARM>(call);
  const Sizes sizes = sizes_of(block);
  check_extent(sink, "batch", block.batch);
  check_extent(sink, "channel", block.channel);
  check_extent(sink, "hidden_size", block.hidden_size);
  const Wide sequences = block.channel;
  const Wide steps = block.batch;
  check_wrap(sink, "batch", sizes.input(), steps * sequences * sizes.inputs);
  check_wrap(sink, "channel", sizes.static_input(), sequences * sizes.inputs);
  check_wrap(sink, "hidden_size", sizes.cells(), sequences * sizes.units);
  check_wrap(sink, "hidden_size", sizes.hidden(), steps * sequences * sizes.units);
  check_wrap(sink, "hidden_size", sizes.input_matrix(), Wide{sizes.units} * sizes.inputs);
  check_wrap(sink, "hidden_size", sizes.recurrent_matrix(), Wide{sizes.units} * sizes.units);
  if (!sizes.computes()) return;
  if (sizes.inputs == 0) add(sink, kNoInputs, block.width == 0 ? "width" : "height", 0);
  if (call.reads_contents() && block.cont_addr != 0) check_first_step(sink, block);
  if (block.use_static == 0 && block.static_addr != 0) {
    add(sink, kStaticUnused, "static_addr", static_cast<int64_t>(block.static_addr));
  }
  if (is_recurrence(call)) return;
  if (lstm_element(block.in_fmt).bytes == 0) add(sink, kInputInWorkArea, "in_fmt", width_of(block.in_fmt));
  if (lstm_element(block.out_fmt).bytes == 0) add(sink, kOutputInWorkArea, "out_fmt", width_of(block.out_fmt));
}

void lstm_words(const Call &call, Text &text) {
  const Sizes sizes = sizes_of(block_of<_NN_LSTM_PARM>(call));
  put(text, "  = ");
  put_unsigned(text, sizes.steps);
  put(text, " steps of ");
  put_unsigned(text, sizes.sequences);
  put(text, " sequences, ");
  put_unsigned(text, sizes.inputs);
  put(text, " inputs and ");
  put_unsigned(text, sizes.units);
  put(text, " hidden units\n");
}

}  // namespace

const Description kLstm = {nullptr, lstm_ranges, lstm_findings, lstm_scratch, lstm_words, nullptr};

}  // namespace contract
