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

__extension__ typedef unsigned __int128 Digits;  ///< holds every float that is a whole number

/// A number of up to 39 digits.
void put_long(Text &text, Digits number) {
  char digits[40];
  size_t count = 0;
  do {
    digits[count++] = static_cast<char>('0' + static_cast<int>(number % 10));
    number /= 10;
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

float float_of(int32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
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
    const char kind = at[0] == '%' ? at[1] : 0;
    if (kind == 'd' || kind == 'f') {
      if (kind == 'd') put(text, number);
      if (kind == 'f') put_float(text, float_of(number));
      if (next != std::end(line.more)) number = *next++;
      ++at;
    } else if (kind == 'n') {
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

void put_float(Text &text, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  if (bits >> 31 != 0) put_character(text, '-');
  const int32_t exponent = static_cast<int32_t>(bits >> 23 & 0xFF);
  const uint32_t fraction = bits & 0x7FFFFF;
  if (exponent == 0xFF) return put(text, fraction != 0 ? "nan" : "inf");
  // The number is significand * 2^power.
  const Digits significand = exponent == 0 ? fraction : fraction | 0x800000;
  const int32_t power = (exponent == 0 ? 1 : exponent) - 150;
  if (power >= 0) {
    put_long(text, significand << power);
    return put(text, ".000000");
  }
  // In millionths, of which below 2^44 are left over: behind 2^-64 all that is less than half of one.
  constexpr uint32_t kMillion = 1000000;
  const Digits product = significand * kMillion;
  const int32_t down = power > -64 ? -power : 64;
  Digits millionths = product >> down;
  const Digits rest = product - (millionths << down);
  const Digits half = static_cast<Digits>(1) << (down - 1);
  if (rest > half || (rest == half && millionths % 2 != 0)) ++millionths;
  put_long(text, millionths / kMillion);
  put_character(text, '.');
  for (uint32_t unit = kMillion / 10; unit != 0; unit /= 10)
    put_unsigned(text, static_cast<uint64_t>(millionths / unit % 10));
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
  add(sink, id, field, value, line, result, {line.number, line.more[0], line.more[1]});
}

void add(FindingSink &sink, const Id &id, const char *field, int64_t value, const Line &line, int32_t result,
         const Numbers &numbers) {
  Finding *finding = next_of(sink);
  if (finding == nullptr) return;
  fill(*finding, id, field, value, numbers);
  finding->result = result;
  finding->line_times = line.times;
  Text printed = text_in(finding->line);
  put_line(printed, line);
}

}  // namespace contract
