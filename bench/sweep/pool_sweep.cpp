#include <algorithm>

#include "bench/sweep/sweep.h"

namespace sweep {
namespace {

enum Mode : uint32_t { kMaximum, kAverage, kGlobalMaximum, kGlobalAverage };

struct Window {
  const char *name;
  Mode mode;
  uint32_t kernel = 0;
  uint32_t stride = 1;
  uint32_t pad = 0;
};

struct Types {
  Type in;
  Type out;
};

enum class Lines { kDense, kPadded };

bool is_global(const Window &window) { return window.mode == kGlobalMaximum || window.mode == kGlobalAverage; }

uint32_t outputs_along(const Window &window, uint32_t extent) {
  if (is_global(window)) return 1;
  return extent + 2 * window.pad < window.kernel ? 1 : (extent + 2 * window.pad - window.kernel) / window.stride + 1;
}

std::string kind_of(const Window &window, const Types &types) {
  return std::string(window.name) + " " + types.in.name + " to " + types.out.name;
}

std::string shape_of(const Shape &shape, Lines lines) {
  return name_of(shape) + (lines == Lines::kPadded ? " padded" : "");
}

/// Scales that change every value; padded lines are apart by the next multiple of 64 bytes, at least one byte more.
Case pool(const Window &window, const Types &types, const Shape &shape, Lines lines) {
  const uint32_t columns = outputs_along(window, shape.width);
  const uint32_t rows = outputs_along(window, shape.height);
  const size_t outputs = size_t{shape.batch} * shape.channels * columns * rows;
  Case what;
  what.kind = kind_of(window, types);
  what.shape = shape_of(shape, lines);
  what.extent = std::max(shape.width, shape.height);
  what.unit = is_global(window) ? "input" : "output";
  what.units = static_cast<double>(is_global(window) ? shape.elements() : outputs);
  what.make = [=](Arena &arena) {
    const size_t line = shape.width * types.in.bytes();
    const size_t out_line = columns * types.out.bytes();
    _NN_POOL_PARM parm{};
    parm.width = u16(shape.width);
    parm.height = u16(shape.height);
    parm.channel = u16(shape.channels);
    parm.batch = u16(shape.batch);
    parm.in_line_ofs = u32(lines == Lines::kPadded ? round_up(line + 1, 64) : line);
    parm.in_channel_ofs = shape.height * parm.in_line_ofs;
    parm.in_batch_ofs = shape.channels * parm.in_channel_ofs;
    parm.out_line_ofs = u32(lines == Lines::kPadded ? round_up(out_line + 1, 64) : out_line);
    parm.out_channel_ofs = rows * parm.out_line_ofs;
    parm.out_batch_ofs = shape.channels * parm.out_channel_ofs;
    parm.in_addr = address(random_bytes(arena, size_t{shape.batch} * parm.in_batch_ofs));
    parm.out_addr = address(zero_bytes(arena, size_t{shape.batch} * parm.out_batch_ofs));
    parm.in_fmt = format(types.in, 4);
    parm.out_fmt = format(types.out, 4);
    parm.in_scale = scale(93, 5);
    parm.out_scale = scale(45, 7);
    parm.mode = window.mode;
    parm.kernel_w = parm.kernel_h = u8(window.kernel);
    parm.stride_w = parm.stride_h = u8(window.stride);
    parm.pad_top = parm.pad_bottom = parm.pad_left = parm.pad_right = u8(window.pad);
    parm.floor_mode = 1;
    return call_of(tarvu_pool_process, parm);
  };
  // A table of the 256 values pays above some hundred outputs.
  if (window.mode == kMaximum && types.in.bits == 8 && outputs >= 1024) what.fixed = 1500;
  return what;
}

/// Planes of some 8,000 elements in all.
Shape planes(uint32_t height, uint32_t width, uint32_t batch = 1) {
  const size_t channels = std::clamp<size_t>(8192 / (size_t{height} * width * batch), 1, 512);
  return {batch, u32(channels), height, width};
}

constexpr Shape kWide = {1, 16, 112, 112};

/// A line of outputs takes whole vectors: of 16 bytes, or of eight 16-bit elements, sums or bytes where it is short.
double share_of_lanes(const Window &window, const Types &types, const Shape &shape) {
  const uint32_t columns = outputs_along(window, shape.width);
  const bool in_bytes = window.mode == kMaximum && types.in.bits == 8 && types.out.bits == 8;
  return static_cast<double>(round_up(columns, in_bytes && columns > 8 ? 16 : 8)) / columns;
}

void against_wide(Case &what, const Window &window, const Types &types, double lanes) {
  what.neighbour = kind_of(window, types) + ", " + shape_of(kWide, Lines::kDense);
  what.factor = lanes;
  if (lanes != 1) what.why = "lines take whole vectors";
}

/// What the global form is measured on.
constexpr Shape kSquares = {1, 1024, 7, 7};

constexpr Window kMax3s1 = {"maximum 3x3 stride 1 pad 1", kMaximum, 3, 1, 1};
constexpr Window kMax3s2 = {"maximum 3x3 stride 2 pad 1", kMaximum, 3, 2, 1};
constexpr Window kMax2s2 = {"maximum 2x2 stride 2", kMaximum, 2, 2, 0};
constexpr Window kAverage3s1 = {"average 3x3 stride 1 pad 1", kAverage, 3, 1, 1};
constexpr Window kAverage3s2 = {"average 3x3 stride 2 pad 1", kAverage, 3, 2, 1};
constexpr Window kAverage2s2 = {"average 2x2 stride 2", kAverage, 2, 2, 0};

/// The windows of networks over planes of every size: as dear as over wide planes.
void add_common_windows(Cases &cases) {
  const Types bytes = {kU8, kU8};
  for (const Window &window : {kMax3s1, kMax3s2, kMax2s2, kAverage3s1, kAverage3s2, kAverage2s2}) {
    const auto make = [&](const Shape &shape, Lines lines) {
      Case what = pool(window, bytes, shape, lines);
      if (what.shape != shape_of(kWide, Lines::kDense))
        against_wide(what, window, bytes, share_of_lanes(window, bytes, shape));
      return what;
    };
    add(cases, make(kWide, Lines::kDense));
    for (const uint32_t extent : kExtents) {
      if (extent == 1000 || extent < window.kernel - window.pad) continue;
      add(cases, make(planes(extent, extent), Lines::kDense));
      if (extent <= 112) add(cases, make(planes(extent, extent), Lines::kPadded));
    }
    add(cases, make({1, 1, 8, 1000}, Lines::kDense));
    for (const uint32_t extent : {7u, 14u, 28u}) {
      add(cases, make(planes(extent, extent, 2), Lines::kDense));
      add(cases, make(planes(extent, extent, 8), Lines::kDense));
    }
    if (window.stride == 1) {
      for (const uint32_t length : {14u, 56u, 224u}) {
        add(cases, make(planes(length, 1), Lines::kDense));
        add(cases, make(planes(1, length), Lines::kDense));
      }
    }
    add_doublings(cases, [&](const Shape &shape) { return make(shape, Lines::kDense); }, {2, 8, 14, 14});
    add_doublings(cases, [&](const Shape &shape) { return make(shape, Lines::kDense); }, {1, 4, 28, 28});
  }
}

/// Other pairs of types: as dear as the unsigned bytes, or as the signed 16 bits where one side has 16.
void add_types(Cases &cases) {
  const Types words = {kS16, kS16};
  for (const Window &window : {kMax3s1, kMax3s2, kMax2s2, kAverage3s1, kAverage3s2}) {
    add(cases, pool(window, words, kWide, Lines::kDense));
    for (const Types &types : {Types{kS8, kS8}, Types{kU8, kS8}, Types{kS8, kU8}, words, Types{kU16, kU16},
                               Types{kU8, kS16}, Types{kS16, kS8}}) {
      const bool has_words = types.in.bits == 16 || types.out.bits == 16;
      for (const uint32_t extent : {4u, 7u, 10u, 14u, 20u, 28u, 56u}) {
        Case what = pool(window, types, planes(extent, extent), Lines::kDense);
        against_wide(what, window, has_words && window.mode == kMaximum ? words : Types{kU8, kU8},
                     share_of_lanes(window, types, planes(extent, extent)));
        add(cases, std::move(what));
      }
    }
  }
}

/// Other windows. `as` is the window of at least as much work.
struct Other {
  Window window;
  Window as;
  double factor;
  const char *why;
};

constexpr Other kOthers[] = {
    {{"maximum 2x2 stride 1", kMaximum, 2, 1, 0}, kMax3s1, 1, ""},
    {{"maximum 5x5 stride 1 pad 1", kMaximum, 5, 1, 1}, kMax3s1, 1.67, "by the sides' sum, 10 to 6"},
    {{"maximum 7x7 stride 1 pad 1", kMaximum, 7, 1, 1}, kMax3s1, 2.33, "by the sides' sum, 14 to 6"},
    {{"maximum 1x1 stride 1", kMaximum, 1, 1, 0}, kMax3s1, 1, ""},
    {{"maximum 1x1 stride 2", kMaximum, 1, 2, 0}, kMax3s2, 1, ""},
    {{"maximum 3x3 stride 2", kMaximum, 3, 2, 0}, kMax3s2, 1, ""},
    {{"maximum 5x5 stride 2 pad 2", kMaximum, 5, 2, 2}, kMax3s2, 1.67, "by the sides' sum, 10 to 6"},
    {{"average 2x2 stride 1", kAverage, 2, 1, 0}, kAverage3s1, 1, ""},
    {{"average 5x5 stride 1 pad 1", kAverage, 5, 1, 1}, kAverage3s1, 1.67, "by the sides' sum, 10 to 6"},
    {{"average 1x1 stride 1", kAverage, 1, 1, 0}, kAverage3s1, 1, ""},
    {{"average 1x1 stride 2", kAverage, 1, 2, 0}, kAverage3s2, 1, ""},
    {{"average 3x3 stride 2", kAverage, 3, 2, 0}, kAverage3s2, 1, ""},
};

void add_other_windows(Cases &cases) {
  const Types bytes = {kU8, kU8};
  for (const Other &other : kOthers) {
    for (const uint32_t extent : {4u, 7u, 10u, 13u, 14u, 20u, 24u, 28u, 56u, 112u}) {
      if (extent + 2 * other.window.pad < other.window.kernel) continue;
      Case what = pool(other.window, bytes, planes(extent, extent), Lines::kDense);
      against_wide(what, other.as, bytes, share_of_lanes(other.window, bytes, planes(extent, extent)));
      what.factor *= other.factor;
      what.why = *other.why == '\0' ? what.why : other.why;
      add(cases, std::move(what));
    }
  }
  for (const Window &window :
       {Window{"maximum 3x3 stride 3", kMaximum, 3, 3, 0}, Window{"maximum 4x4 stride 4", kMaximum, 4, 4, 0},
        Window{"average 3x3 stride 3", kAverage, 3, 3, 0}, Window{"average 4x4 stride 4", kAverage, 4, 4, 0}}) {
    for (const uint32_t extent : {7u, 14u, 24u, 28u, 56u, 112u}) {
      Case what = pool(window, bytes, planes(extent, extent), Lines::kDense);
      what.figure = 20;
      what.why = "windows of stride 1, of which every third or fourth is kept";
      add(cases, std::move(what));
    }
  }
}

/// Windows that lie side by side: the inputs of one are a plane of their own to the global form.
void add_tiles(Cases &cases) {
  const Types bytes = {kU8, kU8};
  for (const auto &[window, global] :
       {std::pair{Window{"maximum 8x8 stride 8", kMaximum, 8, 8, 0}, Window{"global maximum", kGlobalMaximum}},
        std::pair{Window{"maximum 7x7 stride 7", kMaximum, 7, 7, 0}, Window{"global maximum", kGlobalMaximum}},
        std::pair{Window{"average 8x8 stride 8", kAverage, 8, 8, 0}, Window{"global average", kGlobalAverage}},
        std::pair{Window{"average 7x7 stride 7", kAverage, 7, 7, 0}, Window{"global average", kGlobalAverage}}}) {
    for (const uint32_t tiles : {1u, 2u, 4u, 8u, 14u}) {
      const uint32_t extent = tiles * window.kernel;
      Case what = pool(window, bytes, planes(extent, extent), Lines::kDense);
      what.unit = "input";
      what.units *= window.kernel * window.kernel;
      what.neighbour = kind_of(global, bytes) + ", " + name_of(kSquares);
      what.why = tiles == 1 ? "" : "global pooling of planes of the window's size";
      add(cases, std::move(what));
    }
  }
}

void add_global(Cases &cases) {
  for (const Window &window : {Window{"global maximum", kGlobalMaximum}, Window{"global average", kGlobalAverage}}) {
    for (const Types &types :
         {Types{kU8, kU8}, Types{kS8, kS8}, Types{kS16, kS16}, Types{kU8, kS8}, Types{kS16, kS8}}) {
      const std::string dense = kind_of(window, types) + ", " + name_of(kSquares);
      const std::string dense_planes = kind_of(window, types) + ", " + name_of(kSquares) + " by plane";
      Case by_plane = pool(window, types, kSquares, Lines::kDense);
      by_plane.shape += " by plane";
      by_plane.unit = "plane";
      by_plane.units /= 49;
      add(cases, by_plane);
      add(cases, pool(window, types, kSquares, Lines::kDense));
      for (const uint32_t extent : {7u, 1u, 2u, 3u, 4u, 10u, 13u, 14u, 20u, 28u, 56u}) {
        for (const Lines lines : {Lines::kDense, Lines::kPadded}) {
          Case what = pool(window, types, planes(extent, extent), lines);
          const bool is_padded = lines == Lines::kPadded;
          if (extent < 7) {
            what.unit = "plane";
            what.units /= extent * extent;
            what.neighbour = dense_planes;
          } else {
            what.neighbour = dense;
          }
          if (is_padded) {
            what.factor = extent <= 10 ? 2.6 : 1.35;
            what.why = "dense planes, and the copy that makes them dense";
          }
          add(cases, std::move(what));
        }
      }
    }
  }
}

}  // namespace

void add_pool_cases(Cases &cases) {
  add_common_windows(cases);
  add_types(cases);
  add_other_windows(cases);
  add_global(cases);
  add_tiles(cases);
}

}  // namespace sweep
