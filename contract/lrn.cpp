// LRN: the whole layer, and its kernels of floats.
#include <algorithm>
#include <iterator>

#include "contract/floats.h"

namespace contract {
namespace {

#include "contract/lrn_ids.inc"

bool is_converted(const _NN_FMT &fmt) { return width_of(fmt) == 8 || width_of(fmt) == 16; }

/// Any `sign_bits` but 0 are signed; other widths are floats.
Element element_of(const _NN_FMT &fmt) {
  if (!is_converted(fmt)) return kFloatElement;
  const uint32_t bytes = static_cast<uint32_t>(width_of(fmt)) / 8;
  return {bytes, integer_type_of(fmt, bytes)};
}

/// Floats of the four scratch arrays, as reckoned in 32 bits.
struct Arrays {
  uint32_t item;
  uint32_t tensor;
  uint32_t squares;
  uint64_t input_byte;   ///< where the array of the converted input starts
  uint64_t output_byte;  ///< and that of the output to be converted
};

Arrays arrays_of(const _NN_LRN_PARM &block) {
  const uint32_t plane = uint32_t{block.width} * block.height;
  Arrays arrays = {};
  arrays.item = block.channel * plane;
  arrays.tensor = block.batch * arrays.item;
  arrays.squares = (block.channel + block.local_size - 1) * plane;
  arrays.input_byte = uint64_t{4 * arrays.tensor} + 4 * arrays.squares;
  arrays.output_byte = arrays.input_byte + 4 * arrays.item;
  return arrays;
}

Wide true_plane_of(const _NN_LRN_PARM &block) { return Wide{block.width} * block.height; }

/// Kept: a tensor that is converted is converted whole from the start of each item on.
void add_tensor(RangeSink &sink, Range range, const _NN_LRN_PARM &block, const Arrays &arrays, bool is_whole,
                uint32_t batch_bytes, const char *batch_name) {
  extend(range, is_whole ? arrays.tensor : arrays.item, range.element_bytes);
  extend(range, block.batch, batch_bytes, TARVU_CONTRACT_AXIS_BATCH, batch_name);
  add(sink, range);
}

void lrn_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_LRN_PARM>(call);
  const Arrays arrays = arrays_of(block);
  const Element in = element_of(block.in_fmt);
  const Element out = element_of(block.out_fmt);
  add_tensor(sink, range_of("in_addr", block.in_addr, TARVU_CONTRACT_READS, in.type, in.bytes), block, arrays,
             is_converted(block.in_fmt), block.in_batch_ofs, "in_batch_ofs");
  add_tensor(sink, range_of("out_addr", block.out_addr, TARVU_CONTRACT_WRITES, out.type, out.bytes), block, arrays,
             is_converted(block.out_fmt), block.out_batch_ofs, "out_batch_ofs");
  add_scratch(sink, block.work_buffer, 0, arrays.tensor);
  add_scratch(sink, block.work_buffer, uint64_t{4 * arrays.tensor}, arrays.squares);
  if (is_converted(block.in_fmt)) add_scratch(sink, block.work_buffer, arrays.input_byte, arrays.tensor);
  if (is_converted(block.out_fmt)) add_scratch(sink, block.work_buffer, arrays.output_byte, arrays.tensor);
}

uint64_t lrn_scratch(const Call &call) {
  const auto block = block_of<_NN_LRN_PARM>(call);
  const Arrays arrays = arrays_of(block);
  return arrays.output_byte + 4 * uint64_t{is_converted(block.out_fmt) ? arrays.tensor : arrays.item};
}

int32_t bits_of(float value) {
  int32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

Refusal not_positive(const _NN_LRN_PARM &block, const char *field, int64_t value) {
  Line line = {
      "tarvu_lrn_checkparm",
      "shape should be positive, but input is %dx%dx%dx%d(num x channels x width x height),%dx%fx%f(size x beta "
      "x alpha)\r\n\033[0m",
      block.batch};
  const int32_t numbers[] = {block.channel,       block.width,
                             block.height,        static_cast<int32_t>(block.local_size),
                             bits_of(block.beta), bits_of(block.alpha)};
  std::copy(std::begin(numbers), std::end(numbers), line.more);
  return {&kNotPositive, field, value, line, QX_ERR_PARAM};
}

Refusal lrn_refusal(const Call &call) {
  const auto block = block_of<_NN_LRN_PARM>(call);
  if (block.local_size % 2 == 0) {
    return {&kEvenSize,
            "local_size",
            block.local_size,
            {"tarvu_lrn_process", "LRN only supports odd values for local_size!\r\n\033[0m", 0},
            QX_ERR_PARAM};
  }
  if (block.batch == 0) return not_positive(block, "batch", 0);
  if (block.channel == 0) return not_positive(block, "channel", 0);
  if (block.width == 0) return not_positive(block, "width", 0);
  if (block.height == 0) return not_positive(block, "height", 0);
  if (block.beta <= 0.0f) return not_positive(block, "beta", static_cast<uint32_t>(bits_of(block.beta)));
  if (block.alpha <= 0.0f) return not_positive(block, "alpha", static_cast<uint32_t>(bits_of(block.alpha)));
  return {};
}

void lrn_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_LRN_PARM>(call);
  const Wide plane = true_plane_of(block);
  check_float_bytes(sink, "batch", plane * block.channel * block.batch);
  check_float_bytes(sink, "local_size", plane * (Wide{block.channel} + block.local_size - 1));
  const auto elements = static_cast<int64_t>(plane * block.channel * block.batch);
  if (block.batch > 1 && (is_converted(block.in_fmt) || is_converted(block.out_fmt))) {
    add(sink, kWholeTensor, "batch", block.batch, {elements, 0, 0});
  }
  const auto check_tensor = [&](const char *fmt_name, const _NN_FMT &fmt, const char *line_name, uint32_t offset) {
    const int32_t width = width_of(fmt);
    if (!is_converted(fmt) && width != 32) add(sink, kTakenForFloats, fmt_name, width);
    check_dense_lines(sink, kLinesAreDense, line_name, offset, block.height,
                      uint64_t{block.width} * element_of(fmt).bytes);
  };
  check_tensor("in_fmt", block.in_fmt, "in_line_ofs", block.in_line_ofs);
  check_tensor("out_fmt", block.out_fmt, "out_line_ofs", block.out_line_ofs);
  if (block.local_size > 2 * uint32_t{block.channel} - 1) {
    add(sink, kWideWindow, "local_size", block.local_size, {block.channel, 0, 0});
  }
}

/// In place, for one item: the conversions of several would run over items that are still to come.
bool lrn_may_overlap(const Call &call, const Range &other, const Range &written) {
  return std::strcmp(other.field, "in_addr") == 0 && written.role == TARVU_CONTRACT_WRITES &&
         other.address == written.address && other.element_bytes == written.element_bytes &&
         block_of<_NN_LRN_PARM>(call).batch == 1;
}

void lrn_words(const Call &call, Text &text) {
  put(text, "  = windows of ");
  put_unsigned(text, block_of<_NN_LRN_PARM>(call).local_size);
  put(text, " channels\n");
}

// ---- The kernels of floats

/// Their arguments.
struct Kernel {
  uint32_t items;
  uint32_t local_size;
  uint32_t channels;
  uint32_t width;
  uint32_t height;
  uint32_t half;

  Wide elements() const { return Wide{items} * channels * width * height; }
  Wide squares() const { return (Wide{channels} + local_size - 1) * width * height; }
};

Kernel kernel_of(const Call &call) {
  const auto argument = [&](int index) { return static_cast<uint32_t>(call.argument[index]); };
  return {argument(5), argument(6), argument(7), argument(10), argument(11), argument(12)};
}

void add_kernel_scratch(RangeSink &sink, const char *field, uint64_t address, uint32_t floats) {
  Range range = range_of(field, address, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_F32, 4);
  range.exact = 0;
  extend(range, floats, 4);
  add(sink, range);
}

void kernel_ranges(const Call &call, RangeSink &sink) {
  const Kernel kernel = kernel_of(call);
  if (kernel.elements() == 0) return;
  const auto elements = static_cast<uint32_t>(kernel.elements());
  add_floats(sink, "in", call.argument[0], TARVU_CONTRACT_READS, elements);
  add_floats(sink, "out", call.argument[1], TARVU_CONTRACT_WRITES, elements);
  add_kernel_scratch(sink, "sums", call.argument[2], elements);
  add_kernel_scratch(sink, "squares", call.argument[3], static_cast<uint32_t>(kernel.squares()));
}

void kernel_findings(const Call &call, FindingSink &sink) {
  const Kernel kernel = kernel_of(call);
  check_extent(sink, "num", kernel.items);
  check_extent(sink, "channels", kernel.channels);
  check_extent(sink, "width", kernel.width);
  check_extent(sink, "height", kernel.height);
  if (kernel.elements() == 0) return;
  check_wrap(sink, "num", static_cast<uint32_t>(kernel.elements()), kernel.elements());
  check_wrap(sink, "local_size", static_cast<uint32_t>(kernel.squares()), kernel.squares());
  if (kernel.half >= kernel.local_size) add(sink, kOutsideSquares, "half", kernel.half, {kernel.local_size, 0, 0});
}

/// In place.
bool kernel_may_overlap(const Call &, const Range &other, const Range &written) {
  return std::strcmp(other.field, "in") == 0 && std::strcmp(written.field, "out") == 0 &&
         other.address == written.address;
}

}  // namespace

const Description kLrn = {lrn_refusal, lrn_ranges, lrn_findings, lrn_scratch, lrn_words, lrn_may_overlap};
const Description kLrnKernel = {nullptr, kernel_ranges, kernel_findings, nullptr, nullptr, kernel_may_overlap};

}  // namespace contract
