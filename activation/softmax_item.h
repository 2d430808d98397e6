/// \file softmax_item.h
/// Softmax of a batch item from format to format, the same with and without zero points but for the conversions.
///
/// A `Form` is one of the two: the type of its block, the name of the function that reports a bad axis, and the
/// conversions, for each integer type T:
///   of(const Parm &parm, uint32_t count)
///     the form of items of `count` elements
///   to_floats(const T *in, float *out, uint32_t n)
///     n elements to floats
///   from_floats(const float *in, T *item, uint32_t first, uint32_t n)
///     n floats to the elements of an item from `first` on
///   kMultiplies
///     whether there are the next two
///   only_multiplies()
///     whether the conversion is a multiplication and no more, so that another one may go with it
///   from_multiplied_floats(const float *in, float factor, T *item, uint32_t first, uint32_t n)
///     from_floats() of the products with `factor`
#ifndef TARVU_ACTIVATION_SOFTMAX_ITEM_H
#define TARVU_ACTIVATION_SOFTMAX_ITEM_H

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "activation/softmax_groups.h"
#include "convert/format_entry.h"
#include "frame/memory.h"

namespace tarvu {

/// How an item's elements form groups: `planes` times `columns` neighbouring columns of `length` elements, `step`
/// elements apart; or, where `rows` is set, `planes` rows of `length` neighbours.
struct Groups {
  bool rows;
  uint32_t planes;
  uint32_t length;
  uint32_t columns;
  size_t step;
};

template <class Parm>
uint32_t elements_of_item(const Parm &parm) {
  return uint32_t{parm.width} * parm.height * parm.channel;
}

/// Extents are multiplied in 32 bits and compared as signed values.
inline bool above_one(uint32_t a, uint32_t b) { return static_cast<int32_t>(a * b) > 1; }

template <class Parm>
Groups whole_item(const Parm &parm) {
  return {true, 1, elements_of_item(parm), 1, 1};
}

template <class Parm>
Groups channel_columns(const Parm &parm) {
  const uint32_t columns = divide(elements_of_item(parm), uint32_t{parm.channel});
  return {false, 1, parm.channel, columns, size_t{parm.width} * parm.height};
}

template <class Parm>
Groups height_columns(const Parm &parm) {
  return {false, parm.channel, parm.height, parm.width, parm.width};
}

/// Lines along the width; with axis 2 lines along the height, where the width is 1.
template <class Parm>
Groups lines(const Parm &parm) {
  if (parm.axis == 2) return {true, uint32_t{parm.channel} * parm.width, parm.height, 1, 1};
  return {true, uint32_t{parm.channel} * parm.height, parm.width, 1, 1};
}

inline bool serves_axis(int axis) { return axis != 0 && axis <= 3; }

/// The groups along an axis that is served.
template <class Parm>
Groups groups_of(const Parm &parm) {
  switch (parm.axis) {
    case 1:
      return above_one(parm.height, parm.width) ? channel_columns(parm) : whole_item(parm);
    case 2:
      if (!above_one(parm.channel, parm.width)) return whole_item(parm);
      return parm.width == 1 ? lines(parm) : height_columns(parm);
    case 3:
      return above_one(parm.channel, parm.height) ? lines(parm) : whole_item(parm);
    default:
      return whole_item(parm);
  }
}

inline void softmax_of_groups(const Groups &groups, const float *in, float *out) {
  if (groups.rows) {
    softmax_of_rows(in, out, groups.planes, groups.length);
    return;
  }
  const size_t plane = groups.length * groups.step;
  for (uint32_t i = 0; i < groups.planes; ++i, in += plane, out += plane) {
    softmax_of_columns(in, groups.step, out, groups.step, groups.length, groups.columns);
  }
}

inline bool is_integer_width(const _NN_FMT &fmt) { return width_bits(fmt) == 8 || width_bits(fmt) == 16; }
/// Formats that hold floats: in the input a signed one of 32 bits, in the output any width that no integer type has.
inline bool takes_floats(const _NN_FMT &in_fmt) { return in_fmt.sign_bits == 1 && width_bits(in_fmt) == 32; }
inline bool gives_floats(const _NN_FMT &out_fmt) { return !is_integer_width(out_fmt); }
/// Whether a conversion serves an integer format.
inline bool is_converted(const _NN_FMT &fmt) {
  return is_integer_width(fmt) && (fmt.sign_bits == 0 || fmt.sign_bits == 1);
}

/// The elements of one item between its memory and floats.
template <class Form>
struct Item {
  Form form;
  _NN_FMT in_fmt;
  _NN_FMT out_fmt;
  const void *in;
  void *out;

  uint32_t in_bytes() const { return takes_floats(in_fmt) ? 4 : static_cast<uint32_t>(width_bits(in_fmt)) / 8; }
  uint32_t out_bytes() const { return gives_floats(out_fmt) ? 4 : static_cast<uint32_t>(width_bits(out_fmt)) / 8; }

  /// `n` elements from `first` on as floats. Kept: a format that no conversion serves leaves what `to` holds.
  void read(uint32_t first, uint32_t n, float *to) const {
    if (takes_floats(in_fmt)) {
      std::memmove(to, static_cast<const float *>(in) + first, size_t{4} * n);
      return;
    }
    with_element_type(in_fmt,
                      [&](auto element) { form.to_floats(static_cast<const decltype(element) *>(in) + first, to, n); });
  }

  /// To the integers from `first` on. Kept: a format that no conversion serves drops the result.
  void write(const float *from, uint32_t first, uint32_t n) const {
    with_element_type(out_fmt,
                      [&](auto element) { form.from_floats(from, static_cast<decltype(element) *>(out), first, n); });
  }

  /// Their products with one factor.
  void write_multiplied(const float *from, float factor, uint32_t first, uint32_t n) const {
    with_element_type(out_fmt, [&](auto element) {
      form.from_multiplied_floats(from, factor, static_cast<decltype(element) *>(out), first, n);
    });
  }
};

/// Floats that are converted, computed on and converted back at one go: they stay in the first-level cache.
constexpr uint32_t kTileFloats = 4096;

/// From this length on a row is converted by itself, multiplied on the way.
constexpr uint32_t kLongRow = 64;

/// Rows by tiles: an element is read before it is written, and nothing is read after it was.
template <class Form>
void softmax_of_rows_by_tiles(const Item<Form> &item, const Groups &groups, float *tile) {
  const uint32_t length = groups.length;
  if (length == 0) return;
  const uint32_t together = std::max(kTileFloats / length, 1u);
  for (uint32_t done = 0; done < groups.planes; done += together) {
    const uint32_t rows = std::min(together, groups.planes - done);
    const uint32_t first = done * length;
    item.read(first, rows * length, tile);
    if constexpr (Form::kMultiplies) {
      if (length >= kLongRow && !gives_floats(item.out_fmt) && item.form.only_multiplies()) {
        exponentials_of_all_rows(tile, tile, rows, length, [&](uint32_t row, const auto &reciprocal) {
          for (const float factor : reciprocal) {
            item.write_multiplied(tile + size_t{length} * row, factor, first + length * row, length);
            ++row;
          }
        });
        continue;
      }
    }
    if (gives_floats(item.out_fmt)) {
      softmax_of_rows(tile, static_cast<float *>(item.out) + first, rows, length);
    } else {
      softmax_of_rows(tile, tile, rows, length);
      item.write(tile, first, rows * length);
    }
  }
}

/// Columns by tiles of neighbouring ones.
template <class Form>
void softmax_of_columns_by_tiles(const Item<Form> &item, const Groups &groups, float *tile) {
  constexpr uint32_t kLeastColumns = 16;
  const uint32_t most =
      std::max(kTileFloats / std::max(groups.length, 1u) / kLeastColumns * kLeastColumns, kLeastColumns);
  const auto step = static_cast<uint32_t>(groups.step);
  for (uint32_t plane = 0; plane < groups.planes; ++plane) {
    for (uint32_t done = 0; done < groups.columns; done += most) {
      const uint32_t columns = std::min(most, groups.columns - done);
      const uint32_t first = plane * groups.length * step + done;
      for (uint32_t i = 0; i < groups.length; ++i) item.read(first + i * step, columns, tile + size_t{columns} * i);
      if (gives_floats(item.out_fmt)) {
        softmax_of_columns(tile, columns, static_cast<float *>(item.out) + first, step, groups.length, columns);
        continue;
      }
      softmax_of_columns(tile, columns, tile, columns, groups.length, columns);
      for (uint32_t i = 0; i < groups.length; ++i) item.write(tile + size_t{columns} * i, first + i * step, columns);
    }
  }
}

/// From here on the bytes of a scratch array wrap in 32 bits.
constexpr uint64_t kMostTiledElements = (uint64_t{1} << 30) - 1;

/// Whether tiles give what whole passes over the item would: both formats are converted or floats, scratch memory lies
/// apart, and no tile's output is a later one's input.
template <class Form>
bool goes_by_tiles(const Item<Form> &item, uint64_t count, uint64_t scratch) {
  if (count > kMostTiledElements) return false;
  const bool reads = takes_floats(item.in_fmt) || is_converted(item.in_fmt);
  const bool writes = gives_floats(item.out_fmt) || is_converted(item.out_fmt);
  if (!reads || !writes) return false;
  const Memory in = memory_of(item.in, count * item.in_bytes());
  const Memory out = memory_of(item.out, count * item.out_bytes());
  const Memory floats{scratch, count * 4 * (gives_floats(item.out_fmt) ? 1 : 2)};
  return (are_same(in, out) || lie_apart(in, out)) && lie_apart(in, floats) && lie_apart(out, floats);
}

/// What all entry points take: scratch memory for the input as floats, then for the result.
struct Scratch {
  float *input;
  float *result;
};
inline Scratch take_scratch(uint64_t cursor, uint32_t count) {
  auto *input = static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count));
  return {input, static_cast<float *>(tarvu_getbuffrom(&cursor, 4 * count))};
}

inline _QX_RESULT unsupported_axis(const char *function) {
  std::printf(
      "\033[1;31mERR:%s() Softmax cpu Layer is not support axis = 0 or axis > 3, please convert dimensions.\r\n\033[0m",
      function);
  return QX_ERR_UNSUPPORTED;
}

/// An item with its block. `in` is not read for floats: these are those of the first item for every item.
template <class Form>
_QX_RESULT softmax_of_item(const typename Form::Parm &parm, const void *in, void *out) {
  const uint32_t count = elements_of_item(parm);
  // Kept: floats come from the block's address, so that every item is computed from the first one's.
  const void *source = takes_floats(parm.in_fmt) ? pointer<const void>(parm.in_addr) : in;
  const Item<Form> item{Form::of(parm, count), parm.in_fmt, parm.out_fmt, source, out};
  const Scratch scratch = take_scratch(parm.work_buffer, count);
  if (serves_axis(parm.axis) &&
      goes_by_tiles(item, uint64_t{parm.width} * parm.height * parm.channel, parm.work_buffer)) {
    const Groups groups = groups_of(parm);
    groups.rows ? softmax_of_rows_by_tiles(item, groups, scratch.input)
                : softmax_of_columns_by_tiles(item, groups, scratch.input);
    return QX_OK;
  }
  item.read(0, count, scratch.input);
  if (!serves_axis(parm.axis)) return unsupported_axis(Form::kItemFunction);
  softmax_of_groups(groups_of(parm), scratch.input,
                    gives_floats(parm.out_fmt) ? static_cast<float *>(out) : scratch.result);
  item.write(scratch.result, 0, count);
  return QX_OK;
}

/// All batch items. Kept: an item that fails does not stop the next, and the last one's result is the result.
template <class Parm, class OneItem>
_QX_RESULT softmax_of_batch(const Parm &parm, OneItem one_item) {
  _QX_RESULT result = QX_OK;
  for (uint32_t i = 0; i < parm.batch; ++i) {
    // The offsets wrap in 32 bits.
    const uint64_t in = parm.in_addr + i * parm.in_batch_ofs;
    const uint64_t out = parm.out_addr + i * parm.out_batch_ofs;
    result = one_item(&parm, pointer<const void>(in), pointer<void>(out));
  }
  return result;
}

}  // namespace tarvu

#endif  // TARVU_ACTIVATION_SOFTMAX_ITEM_H
