// Frame and number conversion.
#include <algorithm>
#include <array>
#include <cfenv>
#include <iterator>

#include "tests/convert/conversion_kernels.h"
#include "tests/fuzz/operators.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/tarvu_convert_fmt_reference.h"
#include "tests/reference/tarvu_format_nd_reference.h"
#include "tests/reference/tarvu_format_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace fuzz {
namespace {

using convert_tests::Kernel;
using convert_tests::Settings;
using support::GuardedMemory;

// ---- Frame

/// The version text as a number; the expected text stands in the header.
int64_t text_hash(const char *text) {
  uint64_t hash = 0;
  for (; *text != '\0'; ++text) hash = hash * 31 + static_cast<uint8_t>(*text);
  return static_cast<int64_t>(hash);
}

_NN_FMT any_format(Source &source) {
  if (!one_in(source, 3)) return some_format(source);
  return {static_cast<int8_t>(draw_bytes(source, 1)), static_cast<int8_t>(draw_bytes(source, 1)),
          static_cast<int8_t>(draw_bytes(source, 1)), static_cast<uint8_t>(draw_bytes(source, 1))};
}

std::string take_from_cursor(Trial &trial) {
  const GuardedMemory &cursor = make_tensor(trial, "cursor", sizeof(uint64_t), 1);
  const uint32_t size =
      one_of(trial.source, {below(trial.source, 40), 0u, 0xFFFFFFFFu, 0xFFFFFFFCu, word(trial.source)});
  const auto call = [&](auto take) {
    return [&, take] {
      uint64_t value = 0;
      std::memcpy(&value, cursor.data(), sizeof value);
      const auto taken = reinterpret_cast<uintptr_t>(take(&value, size));
      std::memcpy(cursor.data(), &value, sizeof value);
      return taken;
    };
  };
  return compare_calls(trial, "tarvu_getbuffrom", call(::tarvu_getbuffrom), call(reference::tarvu_getbuffrom));
}

std::string run_frame_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t function = below(source, 6);
  if (function == 0) return take_from_cursor(trial);
  const _NN_FMT fmt = any_format(source);
  const auto query = [&](const char *name, auto product, auto twin) {
    return compare_calls(
        trial, name, [&] { return product(&fmt); }, [&] { return twin(&fmt); });
  };
  switch (function) {
    case 1:
      return query(TARVU_TWINS(tarvu_get_fmt_type));
    case 2:
      return query(TARVU_TWINS(tarvu_get_gather_fmt_type));
    case 3:
      return query(TARVU_TWINS(tarvu_get_gatherelement_fmt_type));
    case 4:
      return compare_calls(trial, "nn_check_net_parm", ::nn_check_net_parm, [] { return 0; });
    default:
      return compare_calls(
          trial, "prebuilt_ai_get_lib_version", [] { return text_hash(::prebuilt_ai_get_lib_version()); },
          [] { return text_hash("02.19.2406110"); });
  }
}

// ---- Re-formatting

/// Bytes of an element in re-formatting, whose widths are sums modulo 256; 0 where nothing is read or written.
size_t moved_bytes(const _NN_FMT &fmt) {
  const int32_t width = narrow_width_of(fmt);
  return width == 8 ? 1 : width == 16 ? 2 : 0;
}

std::string run_convert_fmt_case(Source &source) {
  Trial trial{source, {}, {}};
  _NN_FMT in = any_format(source);
  _NN_FMT out = one_in(source, 4) ? in : any_format(source);
  if (one_in(source, 4)) out.sign_bits = one_of<int8_t>(source, {1, 0});
  const uint32_t count = some_size(source, 300);
  // A width that is not moved has no bytes, and nothing of either side is touched then.
  const bool moves = moved_bytes(in) != 0 && moved_bytes(out) != 0;
  const size_t in_bytes = moves ? count * moved_bytes(in) : 0;
  const size_t out_bytes = moves ? count * moved_bytes(out) : 0;
  const bool in_place = one_in(source, 4);
  const GuardedMemory &from = make_tensor(trial, "source", in_place ? std::max(in_bytes, out_bytes) : in_bytes);
  const GuardedMemory &to = in_place ? from : make_tensor(trial, "destination", out_bytes, moved_bytes(out));
  const auto *nowhere = reinterpret_cast<const _NN_SCALE *>(support::unreadable_address());
  const auto call = [&](auto convert) {
    return [&, convert] { convert(from.data(), to.data(), count, &in, &out, nowhere, nowhere); };
  };
  return compare_calls(trial, "tarvu_convert_fmt_c", call(::tarvu_convert_fmt_c), call(reference::tarvu_convert_fmt_c));
}

// ---- Kernels of flat runs

int16_t some_frac_bits(Source &source) {
  if (!one_in(source, 4)) return static_cast<int16_t>(pick(source, -9, 17));
  return one_of<int16_t>(source, {-32768, -129, -65, -64, -63, -62, -33, -32, -31, -30, 30,   31,
                                  32,     33,   62,  63,  64,  65,  127, 128, 255, 256, -128, 32767});
}

Settings some_settings(Source &source, bool is_rounded) {
  Settings settings;
  settings.frac_bits = some_frac_bits(source);
  settings.scale = one_in(source, 3) ? some_float(source) : one_of(source, {1.0f, 0.75f, 0.3f, -0.5f, 3.0f});
  settings.zero_point = one_in(source, 5) ? static_cast<int32_t>(word(source)) : pick(source, -300, 300);
  if (!is_rounded) return settings;
  settings.rounding_code = one_in(source, 12) ? word(source) : below(source, 13);
  settings.rounding_mode = one_of(source, {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO});
  return settings;
}

std::string run_kernel_case(Source &source, const Kernel &kernel, bool is_rounded) {
  Trial trial{source, {}, {}};
  const Settings settings = some_settings(source, is_rounded);
  const uint32_t count = some_size(source, 300);
  const GuardedMemory &from = make_memory(trial, count * kernel.source_bytes);
  const GuardedMemory &to = make_memory(trial, count * kernel.destination_bytes);
  if (kernel.to_float) {
    fill_bytes(source, from.data(), from.size());
  } else {
    fill_floats(source, from.data(), count, one_of(source, {300.0f, 4.0f, 70000.0f, 5e9f}));
  }
  to.fill(0x5A);
  trial.run.track(from, "source");
  const auto element = kernel.destination_bytes == 4 && !kernel.to_float ? support::Element::k32Bit
                                                                         : element_of(kernel.destination_bytes);
  trial.run.track(to, "destination", element, {count, kernel.block});
  const auto call = [&](convert_tests::Call function) {
    return [&, function] {
      std::fesetround(settings.rounding_mode);
      function(from.data(), to.data(), count, settings);
      std::fesetround(FE_TONEAREST);
    };
  };
  return compare_calls(trial, kernel.name, call(kernel.product), call(kernel.reference));
}

std::string run_flat_case(Source &source) {
  if (one_in(source, 2)) return run_kernel_case(source, one_of(source, convert_tests::kFlatToFloat), false);
  return run_kernel_case(source, one_of(source, convert_tests::kFlatToInteger), false);
}

std::string run_rounded_case(Source &source) {
  return run_kernel_case(source, one_of(source, convert_tests::kRounded), true);
}

std::string run_zero_point_case(Source &source) {
  if (one_in(source, 2)) return run_kernel_case(source, one_of(source, convert_tests::kZeroPointToFloat), false);
  return run_kernel_case(source, one_of(source, convert_tests::kZeroPointToInteger), false);
}

std::string run_interleave_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t lanes = one_in(source, 3) ? some_size(source, 70) : below(source, 9);
  const uint32_t total = one_in(source, 3) ? below(source, 600) : lanes * some_size(source, 33) + below(source, 3);
  const size_t moved = lanes == 0 ? 0 : total / lanes * lanes;
  // Now and then they overlap.
  const bool overlaps = one_in(source, 8);
  const size_t distance = overlaps ? below(source, 40) : 0;
  const bool forwards = overlaps && one_in(source, 2);
  const GuardedMemory &from = make_tensor(trial, "source", moved + distance);
  const uint8_t *start = from.data() + (forwards ? distance : 0);
  uint8_t *to = overlaps ? from.data() + (forwards ? 0 : distance) : make_tensor(trial, "destination", moved).data();
  const auto call = [=](auto function) { return [=] { function(start, to, lanes, total); }; };
  const auto run = [&](const char *name, auto product, auto twin) {
    return compare_calls(trial, name, call(product), call(twin));
  };
  return one_in(source, 2) ? run(TARVU_TWINS(permute_data_in)) : run(TARVU_TWINS(permute_data_out));
}

// ---- Tensors of up to six dimensions

using Table = std::array<uint32_t, 6>;

struct NdTensor {
  Table shape, stride;
  size_t elements;  ///< from the first of the first line to the last that the blocks of the last line touch
};

/// Lines that are dense, padded or overlapping; extents with bits that do not count.
NdTensor some_nd_tensor(Source &source, uint32_t block) {
  NdTensor tensor{{some_size(source, 70), 1, 1, 1, 1, 1}, {unread(source), 0, 0, 0, 0, 0}, 0};
  uint32_t distance = tensor.shape[0];
  size_t last = 0;
  bool is_empty = tensor.shape[0] == 0;
  for (size_t k = 1; k < 6; ++k) {
    tensor.shape[k] = one_in(source, 3) ? 1 + below(source, 3) : 1;
    if (one_in(source, 30)) tensor.shape[k] = 0;
    tensor.stride[k] = one_in(source, 3) ? below(source, 2 * block) : distance + one_of(source, {0u, 1u, 4u, 0u});
    distance = tensor.stride[k] * std::max(tensor.shape[k], 1u);
    if (tensor.shape[k] == 0) {
      is_empty = true;
    } else {
      last += size_t{tensor.shape[k] - 1} * tensor.stride[k];
    }
  }
  const uint32_t line = tensor.shape[0];
  tensor.elements = is_empty ? 0 : last + std::max(line, block);
  for (uint32_t &extent : tensor.shape) extent |= one_in(source, 6) ? 0x30000u : 0u;
  return tensor;
}

template <class From, class To>
using NdFunction = void (*)(const From *, To *, const uint32_t *, const uint32_t *, int16_t, int32_t, float);

template <class From, class To>
std::string run_nd_kernel(Source &source, const char *name, NdFunction<From, To> product, NdFunction<From, To> twin) {
  Trial trial{source, {}, {}};
  constexpr uint32_t block = sizeof(From) == 1 || sizeof(To) == 1 ? 8 : 16;
  const Settings settings = some_settings(source, false);
  const NdTensor tensor = some_nd_tensor(source, block);
  const GuardedMemory &from = make_tensor(trial, "source", tensor.elements * sizeof(From), sizeof(From), 300.0f);
  const GuardedMemory &to = make_tensor(trial, "destination", tensor.elements * sizeof(To), sizeof(To));
  const auto call = [&](NdFunction<From, To> function) {
    return [&, function] {
      function(from.as<From>(), to.as<To>(), tensor.shape.data(), tensor.stride.data(), settings.frac_bits,
               settings.zero_point, settings.scale);
    };
  };
  return compare_calls(trial, name, call(product), call(twin));
}

std::string run_nd_case(Source &source) {
  switch (below(source, 8)) {
    case 0:
      return run_nd_kernel<uint8_t, float>(source, TARVU_TWINS(uint8tofloat_nd_neon));
    case 1:
      return run_nd_kernel<int8_t, float>(source, TARVU_TWINS(int8tofloat_nd_neon));
    case 2:
      return run_nd_kernel<uint16_t, float>(source, TARVU_TWINS(uint16tofloat_nd_neon));
    case 3:
      return run_nd_kernel<int16_t, float>(source, TARVU_TWINS(int16tofloat_nd_neon));
    case 4:
      return run_nd_kernel<float, uint8_t>(source, TARVU_TWINS(floattouint8_nd_neon));
    case 5:
      return run_nd_kernel<float, int8_t>(source, TARVU_TWINS(floattoint8_nd_neon));
    case 6:
      return run_nd_kernel<float, uint16_t>(source, TARVU_TWINS(floattouint16_nd_neon));
    default:
      return run_nd_kernel<float, int16_t>(source, TARVU_TWINS(floattoint16_nd_neon));
  }
}

// ---- Entry points by format

/// Bytes of an element that the entry points convert; 0 for a format that they pass over.
size_t converted_bytes(const _NN_FMT &fmt) {
  if (fmt.sign_bits != 0 && fmt.sign_bits != 1) return 0;
  return width_of(fmt) == 8 ? 1 : width_of(fmt) == 16 ? 2 : 0;
}

struct Entry {
  Trial &trial;
  _NN_FMT fmt;
  _NN_SCALE scale;
  int32_t zero_point;
  size_t integer_bytes;

  const GuardedMemory &integers(size_t count) {
    return make_tensor(trial, "integers", count * integer_bytes, std::max<size_t>(integer_bytes, 1));
  }
  const GuardedMemory &floats(size_t count) {
    const GuardedMemory &memory = make_memory(trial, integer_bytes == 0 ? 0 : 4 * count);
    fill_floats(trial.source, memory.data(), memory.size() / 4, 300.0f);
    trial.run.track(memory, "floats", support::Element::kFloat);
    return memory;
  }
};

std::string run_format_case(Source &source) {
  Trial trial{source, {}, {}};
  Entry entry{trial, any_format(source), some_scale(source), pick(source, -300, 300), 0};
  entry.integer_bytes = converted_bytes(entry.fmt);
  const uint32_t count = some_size(source, 300);
  const uint32_t code = below(source, 13);
  const uint32_t function = below(source, 7);
  if (function >= 5) {
    const NdTensor tensor = some_nd_tensor(source, entry.integer_bytes == 2 ? 16 : 8);
    const GuardedMemory &integers = entry.integers(tensor.elements);
    const GuardedMemory &floats =
        make_tensor(trial, "floats", entry.integer_bytes == 0 ? 0 : 4 * tensor.elements, 4, 300.0f);
    const auto in = [&](auto convert) {
      return [&, convert] {
        convert(integers.data(), floats.as<float>(), tensor.shape.data(), tensor.stride.data(), &entry.fmt,
                &entry.scale, entry.zero_point);
      };
    };
    const auto out = [&](auto convert) {
      return [&, convert] {
        convert(floats.as<float>(), integers.data(), tensor.shape.data(), tensor.stride.data(), &entry.fmt,
                &entry.scale, entry.zero_point);
      };
    };
    if (function == 5) {
      return compare_calls(trial, "tarvu_fixtofloat_nd_neon", in(::tarvu_fixtofloat_nd_neon),
                           in(reference::tarvu_fixtofloat_nd_neon));
    }
    return compare_calls(trial, "tarvu_floattofix_nd_neon", out(::tarvu_floattofix_nd_neon),
                         out(reference::tarvu_floattofix_nd_neon));
  }
  const GuardedMemory &integers = entry.integers(count);
  const GuardedMemory &floats = entry.floats(count);
  const auto in = [&](auto convert, auto... more) {
    return [&, convert, more...] {
      convert(integers.data(), floats.as<float>(), count, &entry.fmt, &entry.scale, more...);
    };
  };
  const auto out = [&](auto convert, auto... more) {
    return [&, convert, more...] {
      convert(floats.as<float>(), integers.data(), count, &entry.fmt, &entry.scale, more...);
    };
  };
  switch (function) {
    case 0:
      return compare_calls(trial, "tarvu_fixtofloat_neon", in(::tarvu_fixtofloat_neon),
                           in(reference::tarvu_fixtofloat_neon));
    case 1:
      return compare_calls(trial, "tarvu_floattofix_neon", out(::tarvu_floattofix_neon),
                           out(reference::tarvu_floattofix_neon));
    case 2:
      return compare_calls(trial, "tarvu_floattofix_rnd_neon", out(::tarvu_floattofix_rnd_neon, code),
                           out(reference::tarvu_floattofix_rnd_neon, code));
    case 3:
      return compare_calls(trial, "tarvu_fixtofloat_1d_neon", in(::tarvu_fixtofloat_1d_neon, entry.zero_point),
                           in(reference::tarvu_fixtofloat_1d_neon, entry.zero_point));
    default:
      return compare_calls(trial, "tarvu_floattofix_1d_neon", out(::tarvu_floattofix_1d_neon, entry.zero_point),
                           out(reference::tarvu_floattofix_1d_neon, entry.zero_point));
  }
}

template <class... Tables>
std::vector<std::string_view> names_of(const Tables &...tables) {
  std::vector<std::string_view> names;
  const auto append = [&](const auto &table) {
    for (const Kernel &kernel : table) names.emplace_back(kernel.name);
  };
  (append(tables), ...);
  return names;
}

}  // namespace

std::span<const Operator> convert_operators() {
  using namespace convert_tests;
  static const Operator operators[] = {
      {"frame",
       run_frame_case,
       {"tarvu_getbuffrom", "tarvu_get_fmt_type", "tarvu_get_gather_fmt_type", "tarvu_get_gatherelement_fmt_type",
        "nn_check_net_parm", "prebuilt_ai_get_lib_version"}},
      {"convert_fmt", run_convert_fmt_case, {"tarvu_convert_fmt_c"}},
      {"flat_conversion", run_flat_case, names_of(kFlatToInteger, kFlatToFloat)},
      {"rounded_conversion", run_rounded_case, names_of(kRounded)},
      {"zero_point", run_zero_point_case, names_of(kZeroPointToInteger, kZeroPointToFloat)},
      {"nd_conversion",
       run_nd_case,
       {"uint8tofloat_nd_neon", "int8tofloat_nd_neon", "uint16tofloat_nd_neon", "int16tofloat_nd_neon",
        "floattouint8_nd_neon", "floattoint8_nd_neon", "floattouint16_nd_neon", "floattoint16_nd_neon"}},
      {"format_conversion",
       run_format_case,
       {"tarvu_fixtofloat_neon", "tarvu_floattofix_neon", "tarvu_floattofix_rnd_neon", "tarvu_fixtofloat_1d_neon",
        "tarvu_floattofix_1d_neon", "tarvu_fixtofloat_nd_neon", "tarvu_floattofix_nd_neon"}},
      {"interleave", run_interleave_case, {"permute_data_in", "permute_data_out"}},
  };
  return operators;
}

}  // namespace fuzz
