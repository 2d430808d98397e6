// Ranges, findings and texts as a family puts them together.
#include <iterator>

#include "contract/call.h"

namespace contract {
namespace {

/// Appends to an array of `room` characters that ends with a zero.
template <size_t room>
Text text_in(char (&to)[room]) {
  to[0] = 0;
  return {to, room, 0};
}

void put_character(Text &text, char character) {
  if (text.length + 1 < text.room) {
    text.to[text.length] = character;
    text.to[text.length + 1] = 0;
  }
  ++text.length;
}

void put_digits(Text &text, uint64_t number, uint32_t base) {
  char digits[20];
  size_t count = 0;
  do {
    digits[count++] = "0123456789abcdef"[number % base];
    number /= base;
  } while (number != 0);
  while (count != 0) put_character(text, digits[--count]);
}

void put_sentence(Text &text, const Id &id, const char *field, int64_t value, const Numbers &numbers) {
  for (const char *at = id.sentence; *at != 0; ++at) {
    if (*at != '%') {
      put_character(text, *at);
      continue;
    }
    switch (*++at) {
      case 'f':
        put(text, field);
        break;
      case 'v':
        put(text, value);
        break;
      case 'a':
        put(text, numbers.a);
        break;
      case 'b':
        put(text, numbers.b);
        break;
      default:
        put(text, numbers.c);
    }
  }
}

void put_line(Text &text, const Line &line) {
  if (line.function != nullptr) {
    put(text, "\033[1;31mERR:");
    put(text, line.function);
    put(text, "() ");
  }
  const int32_t *next = line.more;
  int32_t number = line.number;
  for (const char *at = line.format; *at != 0; ++at) {
    if (at[0] == '%' && at[1] == 'd') {
      put(text, number);
      if (next != std::end(line.more)) number = *next++;
      ++at;
    } else if (at[0] == '%' && at[1] == 'n') {
      put(text, "%d");
      ++at;
    } else {
      put_character(text, *at);
    }
  }
}

/// The next free place, or null where there is no room.
Finding *next_of(FindingSink &sink) {
  const size_t at = sink.count++;
  return at < sink.room ? sink.to + at : nullptr;
}

void fill(Finding &finding, const Id &id, const char *field, int64_t value, const Numbers &numbers) {
  finding.id = id.text;
  finding.kind = id.kind;
  finding.result = 0;
  finding.field = field;
  finding.value = value;
  finding.line[0] = 0;
  finding.line_times = 0;
  finding.reserved = 0;
  Text sentence = text_in(finding.sentence);
  put_sentence(sentence, id, field, value, numbers);
}

}  // namespace

void put(Text &text, const char *words) {
  for (; *words != 0; ++words) put_character(text, *words);
}

void put(Text &text, int64_t number) {
  if (number < 0) put_character(text, '-');
  put_unsigned(text, number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number));
}

void put_unsigned(Text &text, uint64_t number) { put_digits(text, number, 10); }

void put_hexadecimal(Text &text, uint64_t number) {
  put(text, "0x");
  put_digits(text, number, 16);
}

Range range_of(const char *field, uint64_t address, int32_t role, int32_t type, uint32_t element_bytes) {
  Range range;
  range.field = field;
  range.address = address;
  range.offset = 0;
  range.role = role;
  range.exact = 1;
  range.type = type;
  range.element_bytes = element_bytes;
  range.alignment = 1;
  range.extent_count = 0;
  return range;
}

void extend(Range &range, uint64_t count, int64_t step, int32_t axis, const char *step_name) {
  range.extents[range.extent_count++] = {count, step, step_name, axis, 0};
}

void add(RangeSink &sink, const Range &range) {
  bool is_empty = range.element_bytes == 0;
  for (uint32_t i = 0; i < range.extent_count; ++i) is_empty |= range.extents[i].count == 0;
  if (is_empty) return;
  const size_t at = sink.count++;
  if (at < sink.first || at - sink.first >= sink.room) return;
  Range &to = sink.to[at - sink.first];
  to = range;
  std::memset(to.extents + range.extent_count, 0, (TARVU_CONTRACT_EXTENTS - range.extent_count) * sizeof *to.extents);
}

void add(FindingSink &sink, const Id &id, const char *field, int64_t value, Numbers numbers) {
  if (Finding *finding = next_of(sink)) fill(*finding, id, field, value, numbers);
}

void add(FindingSink &sink, const Id &id, const char *field, int64_t value, const Line &line, int32_t result) {
  Finding *finding = next_of(sink);
  if (finding == nullptr) return;
  fill(*finding, id, field, value, {line.number, line.more[0], line.more[1]});
  finding->result = result;
  finding->line_times = line.times;
  Text printed = text_in(finding->line);
  put_line(printed, line);
}

}  // namespace contract
