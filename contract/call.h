/// \file call.h
/// What every family of the contract library has in common: the call, the places where its answers go, and the record by which
/// a family says what its functions do.
#ifndef TARVU_CONTRACT_CALL_H
#define TARVU_CONTRACT_CALL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "tarvu.h"
#include "tarvu_contract.h"

namespace contract {

using Range = tarvu_contract_range;
using Finding = tarvu_contract_finding;

__extension__ typedef __int128 Wide;  ///< sums and products of fields, which never overflow it

/// A call with its function's record.
struct Call {
  const uint64_t *argument;
  const tarvu_contract_function_info &info;
  uint32_t options;

  bool reads_contents() const { return (options & TARVU_CONTRACT_READ_CONTENTS) != 0; }
};

/// A copy of the parameter block, which may stand at any address.
template <class Block>
Block block_of(const Call &call) {
  Block block;
  std::memcpy(&block, reinterpret_cast<const void *>(call.argument[0]), sizeof block);
  return block;
}

/// A copy of the record that argument `index` points to; zeros for a null address.
template <class Record>
Record record_at(const Call &call, int index) {
  Record record = {};
  if (call.argument[index] != 0) {
    std::memcpy(&record, reinterpret_cast<const void *>(call.argument[index]), sizeof record);
  }
  return record;
}

/// Takes ranges: those from number `first` on go to the caller's array.
struct RangeSink {
  Range *to;
  size_t first;
  size_t room;
  size_t count;
};

/// Adds a range, unless it has a count of 0.
void add(RangeSink &sink, const Range &range);

/// A range without extents, of exact elements.
Range range_of(const char *field, uint64_t address, int32_t role, int32_t type, uint32_t element_bytes);

/// Adds the next outer extent.
void extend(Range &range, uint64_t count, int64_t step, int32_t axis = TARVU_CONTRACT_AXIS_OTHER,
            const char *step_name = nullptr);

/// Names a kind of finding. `sentence` may hold %f (name of the field), %v (its value), %a, %b and %c (further numbers).
struct Id {
  const char *text;
  int32_t kind;
  const char *sentence;
};

/// The lines of a family's table of ids, included where the family stands: ID(name, text, kind, sentence).
#define TARVU_CONTRACT_ID(name, text, kind, sentence) \
  [[maybe_unused]] constexpr Id name = {text, TARVU_CONTRACT_##kind, sentence};

/// Takes findings.
struct FindingSink {
  Finding *to;
  size_t room;
  size_t count;
};

/// Further numbers of a sentence.
struct Numbers {
  int64_t a = 0;
  int64_t b = 0;
  int64_t c = 0;
};

void add(FindingSink &sink, const Id &id, const char *field, int64_t value, Numbers numbers = {});

/// A line that the function prints: `format` holds a %d for each number, a %f where the number is the bits of a float, and %n for
/// one that is not known. `function` is the name in front; null for a plain line, else the line is red.
struct Line {
  const char *function;
  const char *format;
  int32_t number;
  int32_t more[11] = {};  ///< numbers behind the first one
  uint32_t times = 1;     ///< how often it is printed
};

/// Adds a finding with a printed line: a refusal with its result code, or a line that the function prints and goes on.
void add(FindingSink &sink, const Id &id, const char *field, int64_t value, const Line &line, int32_t result);

/// Likewise, with numbers of the sentence that are not the line's first one.
void add(FindingSink &sink, const Id &id, const char *field, int64_t value, const Line &line, int32_t result,
         const Numbers &numbers);

/// Whether a call is refused, and how. `id` is null if it is not.
struct Refusal {
  const Id *id = nullptr;
  const char *field = nullptr;
  int64_t value = 0;
  Line line = {};
  int32_t result = 0;
};

inline void add(FindingSink &sink, const Refusal &refusal) {
  add(sink, *refusal.id, refusal.field, refusal.value, refusal.line, refusal.result);
}

/// Says what is wrong with the address of a range: null, not aligned, or too near the end of memory.
void check_address(FindingSink &sink, const Range &range);

/// A growing text; what has no room is counted all the same.
struct Text {
  char *to;
  size_t room;
  size_t length;
};

void put(Text &text, const char *words);
void put(Text &text, int64_t number);
void put_unsigned(Text &text, uint64_t number);
void put_hexadecimal(Text &text, uint64_t number);
void put_float(Text &text, float value);  ///< as printf writes it with %f

/// What the library knows of a function. Functions of one family may share it and look at `call.info`.
struct Description {
  Refusal (*refusal)(const Call &call);                   ///< null: never refused
  void (*ranges)(const Call &call, RangeSink &sink);      ///< of a call that is not refused; null: touches nothing
  void (*findings)(const Call &call, FindingSink &sink);  ///< of a call that is not refused, those of its own
  uint64_t (*scratch_bytes)(const Call &call);            ///< of a call that is not refused; null: takes none
  void (*words)(const Call &call, Text &text);            ///< lines behind those of the fields, or null
  /// Whether two ranges of different fields may overlap, the second one written; null: never.
  bool (*may_overlap)(const Call &call, const Range &other, const Range &written);
  /// What a call that is refused touches before; null: nothing. Its scratch bytes are then asked for, too.
  void (*ranges_before_refusal)(const Call &call, RangeSink &sink) = nullptr;
};

/// Every description that functions.inc names.
#define FUNCTION(name, description, ...) extern const Description description;
#include "contract/functions.inc"
#undef FUNCTION

}  // namespace contract

#endif  // TARVU_CONTRACT_CALL_H
