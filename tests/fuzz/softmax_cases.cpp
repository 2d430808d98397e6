// The three softmaxes.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_softmax_asym_reference.h"
#include "tests/reference/tarvu_softmax_dli_reference.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/reference/tarvu_softmax_table_reference.h"

namespace fuzz {
namespace {

using support::GuardedMemory;

constexpr uint32_t kMostElements = 4000;

bool is_float_input(const _NN_FMT &fmt) { return width_of(fmt) == 32 && fmt.sign_bits == 1; }

/// Bytes of an input element; 0 for a format that is not read.
size_t in_bytes_of(const _NN_FMT &fmt) {
  if (is_float_input(fmt)) return 4;
  if (fmt.sign_bits != 0 && fmt.sign_bits != 1) return 0;
  return width_of(fmt) == 8 ? 1 : width_of(fmt) == 16 ? 2 : 0;
}

/// Bytes of an output element; 0 for a result that is dropped.
size_t out_bytes_of(const _NN_FMT &fmt) {
  const int32_t width = width_of(fmt);
  if (width != 8 && width != 16) return 4;
  if (fmt.sign_bits != 0 && fmt.sign_bits != 1) return 0;
  return static_cast<size_t>(width) / 8;
}

template <class Parm>
void draw_extents(Source &source, Parm &block) {
  block.width = some_extent(source, kMostElements);
  block.height = some_extent(source, kMostElements / std::max<uint32_t>(block.width, 1));
  block.channel = some_extent(source, kMostElements / std::max<uint32_t>(block.width * block.height, 1));
  block.batch = static_cast<uint16_t>(one_of(source, {1, 1, 2, 3, 0}));
}

template <class Parm>
uint32_t elements_of(const Parm &block) {
  return static_cast<uint32_t>(block.width) * block.height * block.channel;
}

template <class Parm>
Parm some_block(Source &source) {
  Parm block{};
  draw_extents(source, block);
  block.in_fmt = some_format(source);
  block.out_fmt = some_format(source);
  block.in_scale = some_scale(source);
  block.out_scale = some_scale(source);
  block.axis = one_of<int8_t>(source, {1, 2, 3, 1, 2, 3, -1, -128, 0, 4, 127});
  block.in_line_ofs = block.in_channel_ofs = unread(source);
  block.out_line_ofs = block.out_channel_ofs = unread(source);
  block.in_batch_ofs = static_cast<uint32_t>(elements_of(block) * in_bytes_of(block.in_fmt));
  block.out_batch_ofs = static_cast<uint32_t>(elements_of(block) * out_bytes_of(block.out_fmt));
  if (in_bytes_of(block.in_fmt) < 4) block.in_batch_ofs += one_of(source, {0u, 1u, 24u});
  block.out_batch_ofs += one_of(source, {0u, 32u, out_bytes_of(block.out_fmt) < 4 ? 5u : 4u});
  if constexpr (requires { block.in_zero_point; }) {
    block.reserved_0 = block.reserved_1 = unread(source);
    block.in_zero_point = one_in(source, 5) ? static_cast<int32_t>(word(source)) : pick(source, -130, 260);
    block.out_zero_point = one_in(source, 5) ? static_cast<int32_t>(word(source)) : pick(source, -130, 260);
  }
  return block;
}

/// Tensors and scratch memory of `items` batch items; the output may be the input, where the elements are as wide.
template <class Parm>
void make_tensors(Trial &trial, Parm &block, size_t items, size_t scratch_bytes) {
  const size_t count = elements_of(block);
  const size_t further = items == 0 ? 0 : items - 1;
  const size_t in_element = in_bytes_of(block.in_fmt);
  const size_t out_element = out_bytes_of(block.out_fmt);
  // Float input is that of the first item for every item.
  size_t in_bytes = count * in_element + (in_element == 4 ? 0 : further * block.in_batch_ofs);
  if (in_element == 0 || items == 0) in_bytes = 0;
  const bool in_place = in_element == out_element && in_element != 0 && one_in(trial.source, 4);
  if (in_place) block.out_batch_ofs = block.in_batch_ofs;
  const size_t out_bytes = items == 0 || out_element == 0 ? 0 : count * out_element + further * block.out_batch_ofs;
  const GuardedMemory &in = make_tensor(trial, "input", in_place ? std::max(in_bytes, out_bytes) : in_bytes,
                                        std::max<size_t>(in_element, 1), one_of(trial.source, {8.0f, 100.0f, 1000.0f}));
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr = make_tensor(trial, "output", out_bytes, std::max<size_t>(out_element, 1)).address();
  }
  block.work_buffer = make_scratch(trial, scratch_bytes).address();
}

/// The second scratch array is left alone where floats are written.
template <class Parm>
size_t scratch_of_an_item(const Parm &block) {
  return elements_of(block) * size_t{out_bytes_of(block.out_fmt) == 4 ? 4u : 8u};
}

template <class Parm, class Product, class Twin>
std::string run_process(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  auto block = some_block<Parm>(source);
  make_tensors(trial, block, block.batch, scratch_of_an_item(block));
  return compare_blocks(trial, block, name, product, twin);
}

template <class Parm, class Product, class Twin>
std::string run_one_batch(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  auto block = some_block<Parm>(source);
  make_tensors(trial, block, 1, scratch_of_an_item(block));
  const auto call = [](auto process) {
    return [process](const Parm *parm) {
      return process(parm, reinterpret_cast<const void *>(parm->in_addr), reinterpret_cast<void *>(parm->out_addr));
    };
  };
  return compare_blocks(trial, block, name, call(product), call(twin));
}

/// The whole tensor as one dense item. A batch of 0 computes an item that nobody sized.
std::string run_process_0(Source &source) {
  Trial trial{source, {}, {}};
  auto block = some_block<_NN_SOFTMAX_PARM>(source);
  block.batch = std::max<uint16_t>(block.batch, 1);
  const size_t in_element = in_bytes_of(block.in_fmt);
  const size_t out_element = out_bytes_of(block.out_fmt);
  const size_t total = size_t{elements_of(block)} * block.batch;
  const bool in_place = in_element == out_element && in_element != 0 && one_in(source, 4);
  const GuardedMemory &in = make_tensor(trial, "input", total * in_element, std::max<size_t>(in_element, 1), 20.0f);
  block.in_addr = block.out_addr = in.address();
  if (!in_place) {
    block.out_addr = make_tensor(trial, "output", total * out_element, std::max<size_t>(out_element, 1)).address();
  }
  block.work_buffer = make_scratch(trial, 8 * total).address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_softmax_process_0));
}

template <class Parm, class Product, class Twin>
std::string run_axis_kernel(Source &source, const char *name, Product product, Twin twin) {
  Trial trial{source, {}, {}};
  Parm block{};
  draw_extents(source, block);
  block.axis = one_of<int8_t>(source, {3, 2, 1, 0, -1});
  const GuardedMemory &in = make_floats(trial, "input", elements_of(block), one_of(source, {8.0f, 100.0f, 1000.0f}));
  const GuardedMemory &out = make_floats(trial, "output", elements_of(block), 8.0f);
  const auto call = [&](auto kernel) {
    return [&, kernel](const Parm *parm) {
      kernel(in.as<const float>(), out.as<float>(), parm);
      return 0;
    };
  };
  return compare_blocks(trial, block, name, call(product), call(twin));
}

std::string run_fast_exp(Source &source) {
  Trial trial{source, {}, {}};
  const float x = some_float(source, 200.0f);
  return compare_calls(
      trial, "fast_exp", [x] { return result_bits(::fast_exp(x)); },
      [x] { return result_bits(reference::fast_exp(x)); });
}

std::string run_data_transform(Source &source) {
  Trial trial{source, {}, {}};
  const int32_t count = one_in(source, 8) ? pick(source, -3, 0) : static_cast<int32_t>(some_size(source, 200));
  const auto shift = static_cast<int8_t>(one_in(source, 2) ? pick(source, -128, 127) : pick(source, -3, 9));
  const size_t elements = count < 0 ? 0 : static_cast<size_t>(count);
  const GuardedMemory &in = make_tensor(trial, "input", 2 * elements, 2);
  const GuardedMemory &out = make_floats(trial, "output", elements, 8.0f);
  const auto call = [&](auto transform) {
    return [&, transform] { return transform(in.as<const int16_t>(), out.as<float>(), shift, count); };
  };
  // The input may lie at an odd address, so it is handed over as bytes.
  return compare_calls(trial, "dataTransform_u16tofloat", call(::dataTransform_u16tofloat),
                       call(reference::dataTransform_u16tofloat));
}

/// Prints what the file holds afterwards, so that the texts of both calls are compared.
std::string run_write_file(Source &source) {
  Trial trial{source, {}, {}};
  const int32_t count = pick(source, -1, 9);
  const GuardedMemory &values = make_floats(trial, "values", count < 0 ? 0 : static_cast<size_t>(count), 60.0f);
  static const int file = memfd_create("written_file", 0);
  const std::string path = one_in(source, 8) ? "/nonexistent/file" : "/proc/self/fd/" + std::to_string(file);
  const auto call = [&](auto write) {
    return [&, write] {
      const int32_t result = write(path.c_str(), values.as<const float>(), count);
      char text[4096];
      const ssize_t length = pread(file, text, sizeof text, 0);
      if (result == 0 && length > 0) std::fwrite(text, 1, static_cast<size_t>(length), stdout);
      return result;
    };
  };
  return compare_calls(trial, "write_file", call(::write_file), call(reference::write_file));
}

}  // namespace

std::string run_softmax_case(Source &source) {
  switch (below(source, 4)) {
    case 0:
    case 1:
      return run_process<_NN_SOFTMAX_PARM>(source, TARVU_TWINS(tarvu_softmax_process));
    case 2:
      return run_process_0(source);
    default:
      return run_one_batch<_NN_SOFTMAX_PARM>(source, TARVU_TWINS(tarvu_softmax_process_one_batch));
  }
}

std::string run_softmax_kernels_case(Source &source) {
  switch (below(source, 8)) {
    case 0:
    case 1:
      return run_axis_kernel<_NN_SOFTMAX_PARM>(source, TARVU_TWINS(tarvu_softmax_axis2_4vec));
    case 2:
    case 3:
      return run_axis_kernel<_NN_SOFTMAX_PARM>(source, TARVU_TWINS(tarvu_softmax_axis3_4vec));
    case 4:
      return run_axis_kernel<_NN_SOFTMAX_PARM>(source, TARVU_TWINS(tarvu_softmax_axisn_1dim_vec));
    case 5:
      return run_fast_exp(source);
    case 6:
      return run_data_transform(source);
    default:
      return run_write_file(source);
  }
}

std::string run_softmax_asym_case(Source &source) {
  switch (below(source, 8)) {
    case 4:
      return run_axis_kernel<_NN_SOFTMAX_ASYM_PARM>(source, TARVU_TWINS(tarvu_softmax_asym_axis2_4vec));
    case 5:
      return run_axis_kernel<_NN_SOFTMAX_ASYM_PARM>(source, TARVU_TWINS(tarvu_softmax_asym_axis3_4vec));
    case 6:
      if (one_in(source, 8)) {
        Trial trial{source, {}, {}};
        return compare_calls(trial, TARVU_TWINS(tarvu_dli_softmax_process));
      }
      return run_axis_kernel<_NN_SOFTMAX_ASYM_PARM>(source, TARVU_TWINS(tarvu_softmax_asym_axisn_1dim_vec));
    case 7:
      return run_one_batch<_NN_SOFTMAX_ASYM_PARM>(source, TARVU_TWINS(tarvu_softmax_asym_process_one_batch));
    default:
      return run_process<_NN_SOFTMAX_ASYM_PARM>(source, TARVU_TWINS(tarvu_softmax_asym_process));
  }
}

std::string run_softmax_table_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t function = below(source, 5);
  const auto frac_bits = static_cast<uint8_t>(one_in(source, 4) ? below(source, 256) : below(source, 18));
  _NN_SOFTMAX_PARM block{};
  fill_bytes(source, &block, sizeof block);
  block.in_fmt.frac_bits = static_cast<int8_t>(frac_bits);
  block.channel = some_extent(source, 700);
  block.batch = static_cast<uint16_t>(one_of(source, {1, 2, 3, 0}));
  const size_t items = function == 4 ? 1 : block.batch;
  // Small differences come from small numbers, which keep the run below the limit of the table.
  const GuardedMemory &in = make_memory(trial, 2 * block.channel * items);
  fill_bytes(source, in.data(), in.size());
  if (one_in(source, 2)) {
    for (size_t i = 1; i < in.size(); i += 2) in.data()[i] = static_cast<uint8_t>(in.data()[i] % 8);
  }
  trial.run.track(in, "input", support::Element::k16Bit);
  const GuardedMemory &out = one_in(source, 4) ? in : make_tensor(trial, "output", in.size(), 2);
  block.in_addr = in.address();
  block.out_addr = out.address();
  block.work_buffer = support::unreadable_address();
  if (function == 3) return compare_blocks(trial, block, TARVU_TWINS(vendor_ais_checkparm));
  if (function != 4) return compare_blocks(trial, block, TARVU_TWINS(vendor_softmax_process));
  const auto call = [&](auto submax) {
    return [&, submax] { return submax(in.as<const int16_t>(), out.as<int16_t>(), block.channel, frac_bits); };
  };
  return compare_calls(trial, "vendor_submax_s16", call(::vendor_submax_s16), call(reference::vendor_submax_s16));
}

}  // namespace fuzz
