// Prior boxes of one feature map: a centre for each cell, and the same list of sizes around each centre.
#include <cmath>
#include <cstdio>

#include "simd/doubles.h"
#include "tarvu.h"

namespace tarvu {
namespace {

constexpr int kMostSizes = 48;  // 4 box sizes, each square, second square, and 10 aspect ratios
constexpr uint32_t kGroup = 4;  // sizes
constexpr int32_t kBlock = 16;  // floats

/// Whether two aspect ratios count as one.
bool is_same_ratio(double difference) { return difference > -1e-6 && difference < 1e-6; }

// ---- From the block to the working record

_QX_RESULT check_block(const _NN_PRIORBOX_PARM &parm) {
  if (parm.in_width != 0 && parm.in_height != 0 && parm.img_width != 0 && parm.img_height != 0 &&
      parm.min_size_num != 0 && parm.aspect_ratios_num != 0 && parm.variance_num != 0) {
    return QX_OK;
  }
  std::printf(
      "\033[1;31mERR:%s() shape should be positive, but input is %dx%dx%dx%d(img_width x img_height x in_width x "
      "in_height),%dx%dx%dx%d(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m",
      "tarvu_priorbox_checkparm", static_cast<int>(parm.img_width), static_cast<int>(parm.img_height),
      static_cast<int>(parm.in_width), static_cast<int>(parm.in_height), static_cast<int>(parm.max_size_num),
      static_cast<int>(parm.min_size_num), static_cast<int>(parm.variance_num),
      static_cast<int>(parm.aspect_ratios_num));
  return QX_ERR_PARAM;
}

bool is_listed(const _NN_PRIORBOX_WORK &work, float ratio) {
  for (uint32_t k = 0; k < work.ratio_count; ++k) {
    if (is_same_ratio(static_cast<double>(ratio - work.ratio_list[k]))) return true;
  }
  return false;
}

void list_ratios(const _NN_PRIORBOX_PARM &parm, _NN_PRIORBOX_WORK &work) {
  work.ratio_list[work.ratio_count++] = 1.0f;
  for (uint32_t i = 0; i < parm.aspect_ratios_num; ++i) {
    const float ratio = parm.aspect_ratios[i];
    if (ratio == 0.0f || is_listed(work, ratio)) continue;
    work.ratio_list[work.ratio_count++] = ratio;
    // Kept: a reciprocal goes in unchecked, and one that is in the list already makes its boxes twice.
    if (parm.flip != 0) work.ratio_list[work.ratio_count++] = 1.0f / ratio;
  }
}

/// Kept: two or three variances count as none.
void copy_variances(const _NN_PRIORBOX_PARM &parm, _NN_PRIORBOX_WORK &work) {
  const int used = parm.variance_num == 1 ? 1 : parm.variance_num >= 4 ? 4 : 0;
  for (int k = 0; k < used; ++k) work.variances[k] = positive_number(parm.variances[k]);
}

_NN_PRIORBOX_WORK working_record(const _NN_PRIORBOX_PARM &parm) {
  _NN_PRIORBOX_WORK work{};
  work.in_width = parm.in_width;
  work.in_height = parm.in_height;
  work.img_width = parm.img_width;
  work.img_height = parm.img_height;
  work.min_size_num = parm.min_size_num;
  work.max_size_num = parm.max_size_num;
  work.flip = parm.flip;
  work.clip = parm.clip;
  work.variance_num = parm.variance_num;
  work.offset = parm.offset;
  for (uint32_t i = 0; i < parm.min_size_num; ++i) work.min_sizes[i] = parm.min_sizes[i];
  list_ratios(parm, work);
  // Kept: this counts the boxes of one box size, and a second size only where it is the greater one, while the kernels
  // make a box for each. Clamp and variances go by this count.
  uint32_t counted = work.ratio_count;
  for (uint32_t i = 0; i < parm.max_size_num; ++i) {
    work.max_sizes[i] = parm.max_sizes[i];
    if (parm.min_sizes[i] < parm.max_sizes[i]) ++counted;
  }
  work.num_priors = static_cast<int16_t>(counted);
  copy_variances(parm, work);
  return work;
}

// ---- Sizes around a centre

struct Size {
  float width;
  float height;
};

/// Writes the sizes of one cell and returns how many there are.
uint32_t list_sizes(const _NN_PRIORBOX_WORK &work, Size *sizes) {
  uint32_t count = 0;
  for (uint32_t i = 0; i < work.min_size_num; ++i) {
    const float side = work.min_sizes[i];
    sizes[count++] = {side, side};
    if (work.max_size_num > 0) {
      const float area = side * work.max_sizes[i];
      const auto second = static_cast<float>(std::sqrt(static_cast<double>(area)));
      sizes[count++] = {second, second};
    }
    for (uint32_t k = 0; k < work.ratio_count; ++k) {
      const auto ratio = static_cast<double>(work.ratio_list[k]);
      if (is_same_ratio(ratio - 1.0)) continue;
      const auto root = static_cast<float>(std::sqrt(ratio));
      sizes[count++] = {side * root, side / root};
    }
  }
  return count;
}

/// Corners of a box in image units, before they are scaled to 0..1: xmin, ymin, xmax, ymax.
/// Halves are rounded to float in a group and exact in the rest: a width of 2^-149 around a centre of 2^-149 has its
/// left edge at 2^-149 in a group (half of it rounds to 0) and at 0.0 in the rest (half of 2^-149 rounds to even).
inline f32x4 corners_in_group(f32x4 centre, f32x4 signed_halves) { return centre + signed_halves; }
inline f32x4 corners_in_rest(f32x4 centre, Size size) {
  const f64x2 exact_centre = widen_low(centre);
  const f64x2 half = f64x2{static_cast<double>(size.width), static_cast<double>(size.height)} * 0.5;
  return narrow(exact_centre - half, exact_centre + half);
}

/// The sizes around one centre: the first `grouped` of `count` as a group, then the rest.
struct Cell {
  const Size *sizes;
  uint32_t grouped;
  uint32_t count;
};

f32x4 signed_halves(Size size) {
  const float half_width = size.width * 0.5f;
  const float half_height = size.height * 0.5f;
  return f32x4{-half_width, -half_height, half_width, half_height};
}

/// Whether half the size is a float: only the halves of odd subnormals and of their like are not.
bool has_exact_half(Size size) {
  return (size.width * 0.5f) * 2.0f == size.width && (size.height * 0.5f) * 2.0f == size.height;
}

/// Where the halves are floats, both forms of the corners agree (a sum in double that is then rounded to float is the
/// sum in float), and the rest of the sizes goes with the group.
Cell with_widest_group(Cell cell) {
  while (cell.grouped < cell.count && has_exact_half(cell.sizes[cell.grouped])) ++cell.grouped;
  return cell;
}

/// Calls make_cell(centre) for every cell in order, with the centre as x, y, x, y.
template <class MakeCell>
void for_each_centre(const _NN_PRIORBOX_WORK &work, MakeCell make_cell) {
  const float step_w = static_cast<float>(work.img_width) / static_cast<float>(work.in_width);
  const float step_h = static_cast<float>(work.img_height) / static_cast<float>(work.in_height);
  const uint32_t rows = work.in_height;
  const uint32_t columns = work.in_width;
  const float offset = work.offset;
  for (uint32_t y = 0; y < rows; ++y) {
    const auto centre_y = fill<f32x4>((static_cast<float>(y) + offset) * step_h);
    for (uint32_t x = 0; x < columns; ++x) {
      const auto centre_x = fill<f32x4>((static_cast<float>(x) + offset) * step_w);
      make_cell(zip_low(centre_x, centre_y));
    }
  }
}

/// All sizes in the group. With `clamped` the coordinates are held to 0..1, and NaN stays.
template <bool clamped>
void make_grouped_boxes(const _NN_PRIORBOX_WORK &work, Cell cell, f32x4 scale, float *to) {
  f32x4 halves[kMostSizes];
  for (uint32_t k = 0; k < cell.count; ++k) halves[k] = signed_halves(cell.sizes[k]);
  const uint32_t in_pairs = cell.count / 2 * 2;
  const auto box = [=](f32x4 centre, f32x4 signed_half) {
    const f32x4 scaled = corners_in_group(centre, signed_half) * scale;
    return clamped ? clamp_to_unit(scaled) : scaled;
  };
  for_each_centre(work, [&](f32x4 centre) {
    for (uint32_t k = 0; k < in_pairs; k += 2, to += 8) {
      const f32x4 first = box(centre, halves[k]);
      const f32x4 second = box(centre, halves[k + 1]);
      store(to, first);
      store(to + 4, second);
    }
    if (in_pairs != cell.count) {
      store(to, box(centre, halves[in_pairs]));
      to += 4;
    }
  });
}

void make_mixed_boxes(const _NN_PRIORBOX_WORK &work, Cell cell, f32x4 scale, bool clamped, float *to) {
  for_each_centre(work, [&](f32x4 centre) {
    for (uint32_t k = 0; k < cell.count; ++k, to += 4) {
      const Size size = cell.sizes[k];
      const f32x4 corners =
          k < cell.grouped ? corners_in_group(centre, signed_halves(size)) : corners_in_rest(centre, size);
      const f32x4 scaled = corners * scale;
      store(to, clamped ? clamp_to_unit(scaled) : scaled);
    }
  });
}

/// Makes all boxes; with `clamped` they come out as clamp_in_block() would leave them.
void make_boxes(const _NN_PRIORBOX_WORK &work, Cell cell, bool clamped, float *to) {
  const auto inv_w = static_cast<float>(1.0 / static_cast<double>(work.img_width));
  const auto inv_h = static_cast<float>(1.0 / static_cast<double>(work.img_height));
  const f32x4 scale = {inv_w, inv_h, inv_w, inv_h};
  cell = with_widest_group(cell);
  if (cell.grouped != cell.count) return make_mixed_boxes(work, cell, scale, clamped, to);
  if (clamped) return make_grouped_boxes<true>(work, cell, scale, to);
  make_grouped_boxes<false>(work, cell, scale, to);
}

// ---- Clamp and variances

/// In a block of 16 floats a NaN stays; in the tail it becomes 0.0. -0.0 becomes 0.0 in both.
inline void clamp_in_block(float *boxes) {
  f32xn floats[kBlock / kLanes<f32xn>];
  for (int k = 0; k < kBlock / kLanes<f32xn>; ++k) floats[k] = clamp_to_unit(load<f32xn>(boxes + k * kLanes<f32xn>));
  for (int k = 0; k < kBlock / kLanes<f32xn>; ++k) store(boxes + k * kLanes<f32xn>, floats[k]);
}
inline float clamp_in_tail(float x) { return number_in_unit(x); }

/// The floats from `first` to `in_blocks` in blocks, then those up to `count` as the tail.
void clamp(float *boxes, int32_t first, int32_t in_blocks, int32_t count) {
  for (int32_t i = first; i < in_blocks; i += kBlock) clamp_in_block(boxes + i);
  for (int32_t i = in_blocks; i < count; ++i) boxes[i] = clamp_in_tail(boxes[i]);
}

/// `count` is a multiple of 4.
void fill_variances(const _NN_PRIORBOX_WORK &work, float *to, int32_t count) {
  const auto pattern = load<f32x4>(work.variances);
  int32_t i = 0;
  for (; i + kBlock <= count; i += kBlock, to += kBlock) {
    for (int k = 0; k < kBlock; k += 4) store(to + k, pattern);
  }
  for (; i < count; i += 4, to += 4) store(to, pattern);
}

/// Floats that the clamp and the variances cover.
int32_t covered_floats(const _NN_PRIORBOX_WORK &work) {
  return static_cast<int32_t>(work.in_height * work.in_width * static_cast<uint32_t>(work.num_priors) * 4);
}

/// Both kernels. Without `in_groups` no size belongs to a group and no float to a block.
void make_regions(const _NN_PRIORBOX_WORK &work, float *boxes, float *variances, bool in_groups) {
  Size sizes[kMostSizes];
  const uint32_t count = list_sizes(work, sizes);
  const uint64_t made = uint64_t{work.in_height} * work.in_width * count * 4;
  const int32_t covered = covered_floats(work);
  const int32_t in_blocks = in_groups ? covered / kBlock * kBlock : 0;
  const bool clips = work.clip != 0;
  const bool clamped_at_once = clips && in_blocks > 0 && made <= static_cast<uint64_t>(covered);
  make_boxes(work, {sizes, in_groups ? count / kGroup * kGroup : 0, count}, clamped_at_once, boxes);
  if (clips) clamp(boxes, clamped_at_once ? static_cast<int32_t>(made / kBlock * kBlock) : 0, in_blocks, covered);
  fill_variances(work, variances, covered);
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_priorbox_neon_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]) {
  tarvu::make_regions(*work, regions[0], regions[1], true);
  return QX_OK;
}

_QX_RESULT tarvu_priorbox_c_func(const _NN_PRIORBOX_WORK *work, float *const regions[2]) {
  tarvu::make_regions(*work, regions[0], regions[1], false);
  return QX_OK;
}

_QX_RESULT tarvu_priorbox_process(const _NN_PRIORBOX_PARM *parm) {
  const _QX_RESULT checked = tarvu::check_block(*parm);
  if (checked != QX_OK) return checked;
  const _NN_PRIORBOX_WORK work = tarvu::working_record(*parm);
  auto *boxes = tarvu::pointer<float>(parm->out_addr);
  float *const regions[2] = {boxes, tarvu::pointer<float>(parm->out_addr + parm->variance_ofs)};
  return tarvu_priorbox_neon_func(&work, regions);
}
