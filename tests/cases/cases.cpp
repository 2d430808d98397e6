#include "tests/cases/cases.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tarvu.h"

namespace cases {

#define MAKER(name) void draw_##name(Source &source, Case &made);
#include "tests/cases/makers.inc"
#undef MAKER

std::span<const Maker> all_makers() {
#define MAKER(name) {#name, draw_##name},
  static const Maker makers[] = {
#include "tests/cases/makers.inc"
  };
#undef MAKER
  return makers;
}

Steps some_steps(Source &source, uint32_t line_bytes, uint32_t lines, uint32_t channels) {
  const auto padding = [&] { return fuzz::one_in(source, 3) ? fuzz::below(source, 20) : 0; };
  if (fuzz::one_in(source, 10)) {
    return {fuzz::below(source, 140), fuzz::below(source, 300), fuzz::below(source, 300)};
  }
  const uint32_t line = line_bytes + padding();
  const uint32_t channel = lines * line + padding();
  return {line, channel, channels * channel + padding()};
}

_NN_FMT some_format_beside(Source &source, const _NN_FMT &in) {
  _NN_FMT out = in;
  switch (fuzz::below(source, 6)) {
    case 0:
      return out;
    case 1:
      out.fmt_reserved = static_cast<uint8_t>(out.fmt_reserved + 1);
      return out;
    case 2:
      out.frac_bits = static_cast<int8_t>(out.frac_bits + 3);
      out.int_bits = static_cast<int8_t>(out.int_bits - 3);
      return out;
    case 3:
      return fuzz::some_format(source);
    default:
      return fuzz::some_integer_format(source);
  }
}

std::vector<tarvu_contract_range> ranges_of(const tarvu_contract_call &call, uint32_t options) {
  std::vector<tarvu_contract_range> ranges(tarvu_contract_ranges(&call, options, 0, nullptr, 0));
  tarvu_contract_ranges(&call, options, 0, ranges.data(), ranges.size());
  return ranges;
}

std::vector<tarvu_contract_finding> findings_of(const tarvu_contract_call &call, uint32_t options) {
  std::vector<tarvu_contract_finding> findings(tarvu_contract_findings(&call, options, nullptr, 0));
  tarvu_contract_findings(&call, options, findings.data(), findings.size());
  return findings;
}

bool is_laid_out(const tarvu_contract_range &range) {
  return range.role != TARVU_CONTRACT_PARAMETER && std::strcmp(range.field, "parm") != 0;
}

std::vector<Piece> pieces_of(const std::vector<tarvu_contract_range> &ranges) {
  std::vector<Piece> pieces;
  for (const tarvu_contract_range &range : ranges) {
    if (!is_laid_out(range)) continue;
    const auto is_it = [&](const Piece &piece) { return std::strcmp(piece.field, range.field) == 0; };
    auto piece = std::find_if(pieces.begin(), pieces.end(), is_it);
    const int64_t high = range.offset + static_cast<int64_t>(tarvu_contract_range_bytes(&range));
    if (piece == pieces.end()) {
      pieces.push_back({range.field, range.offset, high, range.alignment});
    } else {
      piece->low = std::min(piece->low, range.offset);
      piece->high = std::max(piece->high, high);
      piece->alignment = std::max(piece->alignment, range.alignment);
    }
  }
  return pieces;
}

bool hold_contents(Case &made) {
  const std::vector<Piece> pieces = pieces_of(ranges_of(made.call, 0));
  for (const Piece &piece : pieces) {
    for (Contents &contents : made.contents) {
      if (std::strcmp(piece.field, contents.field) != 0) continue;
      if (piece.low < 0 || piece.high > kTooMuch) return false;
      if (contents.bytes.size() < static_cast<size_t>(piece.high))
        contents.bytes.resize(static_cast<size_t>(piece.high));
    }
  }
  for (Contents &contents : made.contents) {
    contents.bytes.resize(contents.bytes.size() + 64);  // never empty, and more than one record
    set_address(made, contents.field, reinterpret_cast<uintptr_t>(contents.bytes.data()));
  }
  return true;
}

void put_contents(const Case &made, const Piece &piece, uint8_t *data) {
  for (const Contents &contents : made.contents) {
    if (std::strcmp(piece.field, contents.field) != 0) continue;
    const int64_t low = std::max<int64_t>(piece.low, 0);
    const int64_t high = std::min(piece.high, static_cast<int64_t>(contents.bytes.size()));
    if (low < high) std::memcpy(data + (low - piece.low), contents.bytes.data() + low, static_cast<size_t>(high - low));
  }
}

namespace {

/// An address of an array has its place behind the field's name.
std::string name_of(const tarvu_contract_field &field, uint32_t place) {
  return field.count == 1 ? field.name : std::string(field.name) + "[" + std::to_string(place) + "]";
}

/// Calls f(name, place) for each address of the block.
template <class F>
void for_each_address(const Case &made, const tarvu_contract_function_info &info, F f) {
  for (uint32_t i = 0; i < info.field_count; ++i) {
    const tarvu_contract_field &field = info.fields[i];
    if (field.type != TARVU_CONTRACT_ADDRESS) continue;
    for (uint32_t k = 0; k < field.count; ++k) {
      f(name_of(field, k), reinterpret_cast<uint8_t *>(made.call.argument[0]) + field.offset + 8 * k);
    }
  }
}

}  // namespace

void set_address(Case &made, const char *field, uint64_t address) {
  // The second argument of the prior box forms is a pair of addresses.
  if (std::strncmp(field, "regions[", 8) == 0) {
    std::memcpy(reinterpret_cast<uint8_t *>(made.call.argument[1]) + 8 * (field[8] - '0'), &address, 8);
    return;
  }
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(made.call.function);
  bool is_found = false;
  for_each_address(made, *info, [&](const std::string &name, uint8_t *place) {
    if (name != field) return;
    std::memcpy(place, &address, sizeof address);
    is_found = true;
  });
  if (is_found) return;
  for (uint32_t i = 0; i < info->argument_count; ++i) {
    if (std::strcmp(info->arguments[i].name, field) != 0) continue;
    made.call.argument[i] = address;
    return;
  }
  std::fprintf(stderr, "%s has no field or argument %s\n", info->name, field);
  std::abort();
}

void set_unused_addresses(Case &made, const std::vector<Piece> &used, uint64_t address) {
  const tarvu_contract_function_info *info = tarvu_contract_function_info_of(made.call.function);
  const auto is_used = [&](const char *name) {
    const auto is_it = [=](const char *field) { return std::strcmp(field, name) == 0; };
    return std::any_of(used.begin(), used.end(), [=](const Piece &piece) { return is_it(piece.field); }) ||
           std::any_of(made.null_fields.begin(), made.null_fields.end(), is_it);
  };
  for_each_address(made, *info, [&](const std::string &name, uint8_t *place) {
    if (!is_used(name.c_str())) std::memcpy(place, &address, sizeof address);
  });
  for (uint32_t i = info->block == nullptr ? 0 : 1; i < info->argument_count; ++i) {
    const int32_t target = info->arguments[i].target;
    const bool is_tensor = info->arguments[i].type == TARVU_CONTRACT_ADDRESS && target != TARVU_CONTRACT_FMT &&
                           target != TARVU_CONTRACT_SCALE && target != TARVU_CONTRACT_RECORD;
    if (is_tensor && made.call.argument[i] == 0) set_address(made, info->arguments[i].name, address);
  }
}

namespace {

template <class T>
T argument_as(uint64_t word) {
  if constexpr (std::is_same_v<T, float>) {
    return std::bit_cast<float>(static_cast<uint32_t>(word));
  } else if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(word);
  } else {
    return static_cast<T>(word);
  }
}

template <class Result, class... Arguments, size_t... index>
int64_t call(Result (*function)(Arguments...), const uint64_t *words, std::index_sequence<index...>) {
  if constexpr (std::is_void_v<Result>) {
    function(argument_as<Arguments>(words[index])...);
    return 0;
  } else if constexpr (std::is_pointer_v<Result>) {
    return static_cast<int64_t>(reinterpret_cast<uintptr_t>(function(argument_as<Arguments>(words[index])...)));
  } else {
    return static_cast<int64_t>(function(argument_as<Arguments>(words[index])...));
  }
}

template <class Result, class... Arguments>
int64_t call(Result (*function)(Arguments...), const uint64_t *words) {
  return call(function, words, std::index_sequence_for<Arguments...>{});
}

using Caller = int64_t (*)(const uint64_t *words);

#define FUNCTION(name, ...) [](const uint64_t *words) { return call(&::name, words); },
constexpr Caller kCallers[] = {
#include "contract/functions.inc"
};
#undef FUNCTION

}  // namespace

int64_t invoke(const tarvu_contract_call &asked) { return kCallers[asked.function](asked.argument); }

uint64_t element_count(const tarvu_contract_range &range, uint64_t most) {
  uint64_t elements = 1;
  for (uint32_t i = 0; i < range.extent_count; ++i) {
    if (range.extents[i].count > most) return most + 1;
    elements *= range.extents[i].count;
    if (elements > most) return most + 1;
  }
  return elements;
}

}  // namespace cases
