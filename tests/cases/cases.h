/// \file cases.h
/// Makers of calls, legal and spoilt, one file an operator. A maker draws what the fields hold and leaves the addresses at 0: the
/// contract library says how much memory stands behind each, and who runs the call lays it out.
#ifndef TARVU_TESTS_CASES_CASES_H
#define TARVU_TESTS_CASES_CASES_H

#include <cstdint>
#include <cstring>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "tarvu_contract.h"
#include "tests/fuzz/source.h"

namespace cases {

using fuzz::Source;

/// What a tensor of indices, grid positions or scores holds, from the address in `field` on. Whatever else is read there is filled
/// at random.
struct Contents {
  const char *field;
  std::vector<uint8_t> bytes;
};

/// A call with the records that its arguments point to: the block, formats, scales, shapes.
struct Case {
  tarvu_contract_call call = {};
  std::deque<std::vector<uint64_t>> records;  ///< of 8 bytes each, so that every record is aligned
  const char *in_place = nullptr;             ///< field whose memory lies where that of `in_place_of` lies
  const char *in_place_of = nullptr;
  std::deque<Contents> contents;
  std::vector<const char *> null_fields;  ///< addresses that stay null: outputs that are not wanted
};

/// The address of a copy of the record that lives as long as the case.
template <class Record>
uint64_t keep(Case &made, const Record &record) {
  std::vector<uint64_t> &words = made.records.emplace_back((sizeof record + 7) / 8);
  std::memcpy(words.data(), &record, sizeof record);
  return reinterpret_cast<uintptr_t>(words.data());
}

inline void choose_function(Case &made, const char *name) { made.call.function = tarvu_contract_function(name); }

template <class Block>
void set_block(Case &made, const char *function, const Block &block) {
  choose_function(made, function);
  made.call.argument[0] = keep(made, block);
}

/// Floats stand in arguments as their bits.
inline uint64_t argument_of(float value) { return std::bit_cast<uint32_t>(value); }

struct Maker {
  const char *name;
  void (*draw)(Source &source, Case &made);
};

/// Every maker.
std::span<const Maker> all_makers();

/// Bytes between lines, channels and items that are dense, padded by a little, or anything small, 0 included.
struct Steps {
  uint32_t line;
  uint32_t channel;
  uint32_t batch;
};
Steps some_steps(Source &source, uint32_t line_bytes, uint32_t lines, uint32_t channels);

/// Most often equal or of one width; sometimes any.
_NN_FMT some_format_beside(Source &source, const _NN_FMT &in);

// ---- Running a call

/// Memory of one field, relative to the field's address.
struct Piece {
  const char *field;
  int64_t low;   ///< bytes from the address to the first one touched
  int64_t high;  ///< and behind the last one
  uint32_t alignment;
};

/// The least memory that no test lays out.
inline constexpr int64_t kTooMuch = int64_t{1} << 22;

/// Sets the addresses of tensors with contents to copies that live as long as the case, so that ranges can be asked for with
/// contents read. False if there would be too much.
bool hold_contents(Case &made);

/// Copies the contents of a field to its piece, laid out at `data`.
void put_contents(const Case &made, const Piece &piece, uint8_t *data);

/// All ranges of a call.
std::vector<tarvu_contract_range> ranges_of(const tarvu_contract_call &call, uint32_t options);
std::vector<tarvu_contract_finding> findings_of(const tarvu_contract_call &call, uint32_t options);

/// Whether a range is of memory that is laid out: formats and the like have theirs already, and so has the block, to which a call may
/// write.
bool is_laid_out(const tarvu_contract_range &range);

/// One for each field that anything is touched from, of ranges that are laid out.
std::vector<Piece> pieces_of(const std::vector<tarvu_contract_range> &ranges);

/// Sets an address in the call's block, of an array `name[0]` and so on, or among its arguments.
void set_address(Case &made, const char *field, uint64_t address);

/// Sets all other addresses of tensors and scratch memory to one that nothing can be read from.
void set_unused_addresses(Case &made, const std::vector<Piece> &used, uint64_t address);

/// Calls the product; what a function without result returns is 0.
int64_t invoke(const tarvu_contract_call &call);

/// Calls f(address) for each element of a range, in order.
template <class F>
void for_each_element(const tarvu_contract_range &range, F f) {
  uint64_t at[TARVU_CONTRACT_EXTENTS] = {};
  uint64_t address = range.address + static_cast<uint64_t>(range.offset);
  for (;;) {
    f(address);
    uint32_t i = 0;
    for (; i < range.extent_count; ++i) {
      address += static_cast<uint64_t>(range.extents[i].step);
      if (++at[i] < range.extents[i].count) break;
      address -= range.extents[i].count * static_cast<uint64_t>(range.extents[i].step);
      at[i] = 0;
    }
    if (i == range.extent_count) return;
  }
}

/// Elements of a range, or more than `most`.
uint64_t element_count(const tarvu_contract_range &range, uint64_t most);

}  // namespace cases

#endif  // TARVU_TESTS_CASES_CASES_H
