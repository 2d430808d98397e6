// Prior boxes: the operator on its block, and its two forms on a working record.
#include <algorithm>
#include <iterator>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/priorbox_ids.inc"

constexpr uint32_t kMostSizes = 4;
constexpr uint32_t kMostRatios = 10;
constexpr uint32_t kBoxBytes = 16;

bool has_block(const Call &call) { return call.info.argument_count == 1; }

bool is_same_ratio(double difference) { return difference > -1e-6 && difference < 1e-6; }

/// The aspect ratios as they are listed.
struct Ratios {
  float list[1 + 2 * kMostSizes];
  uint32_t count;
};

bool is_listed(const Ratios &ratios, float ratio) {
  return std::any_of(ratios.list, ratios.list + ratios.count,
                     [=](float listed) { return is_same_ratio(static_cast<double>(ratio - listed)); });
}

Ratios ratios_of(const _NN_PRIORBOX_PARM &block) {
  Ratios ratios = {{1.0f}, 1};
  for (uint32_t i = 0; i < std::min(block.aspect_ratios_num, kMostSizes); ++i) {
    const float ratio = block.aspect_ratios[i];
    if (ratio == 0.0f || is_listed(ratios, ratio)) continue;
    ratios.list[ratios.count++] = ratio;
    if (block.flip != 0) ratios.list[ratios.count++] = 1.0f / ratio;
  }
  return ratios;
}

/// The call in numbers.
struct Walk {
  uint32_t width;
  uint32_t height;
  uint32_t sizes;   ///< boxes of a cell
  int32_t counted;  ///< boxes of a cell that clamp and variances count
  bool clips;
  uint64_t boxes_addr;
  uint64_t variances_addr;
  const char *boxes_field;
  const char *variances_field;
  int64_t variances_offset;
};

/// Ratios near 1.0 make no box of their own.
uint32_t sizes_of(uint32_t min_size_num, uint32_t max_size_num, const float *ratios, uint32_t ratio_count) {
  uint32_t of_each = max_size_num != 0 ? 2 : 1;
  for (uint32_t i = 0; i < ratio_count; ++i) {
    if (!is_same_ratio(static_cast<double>(ratios[i]) - 1.0)) ++of_each;
  }
  return std::min(min_size_num, kMostSizes) * of_each;
}

Walk walk_of_block(const _NN_PRIORBOX_PARM &block) {
  const Ratios ratios = ratios_of(block);
  uint32_t counted = ratios.count;
  for (uint32_t i = 0; i < std::min(block.max_size_num, kMostSizes); ++i) {
    if (block.min_sizes[i] < block.max_sizes[i]) ++counted;
  }
  return {block.in_width,
          block.in_height,
          sizes_of(block.min_size_num, block.max_size_num, ratios.list, ratios.count),
          static_cast<int32_t>(counted),
          block.clip != 0,
          block.out_addr,
          block.out_addr,
          "out_addr",
          "out_addr",
          block.variance_ofs};
}

Walk walk_of(const Call &call) {
  if (has_block(call)) return walk_of_block(block_of<_NN_PRIORBOX_PARM>(call));
  const auto work = block_of<_NN_PRIORBOX_WORK>(call);
  struct Regions {
    uint64_t boxes;
    uint64_t variances;
  };
  const auto regions = record_at<Regions>(call, 1);
  return {work.in_width,
          work.in_height,
          sizes_of(work.min_size_num, work.max_size_num, work.ratio_list, std::min(work.ratio_count, kMostRatios)),
          work.num_priors,
          work.clip != 0,
          regions.boxes,
          regions.variances,
          "regions[0]",
          "regions[1]",
          0};
}

/// Floats that clamp and variances cover, as reckoned in 32 bits; none if that is negative.
int32_t covered_floats(const Walk &walk) {
  return static_cast<int32_t>(walk.height * walk.width * static_cast<uint32_t>(walk.counted) * 4);
}

Wide true_covered_floats(const Walk &walk) { return Wide{walk.height} * walk.width * walk.counted * 4; }

Wide box_bytes(const Walk &walk) { return Wide{walk.height} * walk.width * walk.sizes * kBoxBytes; }

void add_floats(RangeSink &sink, const char *field, uint64_t address, int64_t offset, int32_t count) {
  if (count <= 0) return;
  Range range = range_of(field, address, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_F32, 4);
  range.offset = offset;
  range.alignment = 4;
  extend(range, static_cast<uint64_t>(count), 4);
  add(sink, range);
}

void priorbox_ranges(const Call &call, RangeSink &sink) {
  const Walk walk = walk_of(call);
  if (!has_block(call)) {
    Range regions = range_of("regions", call.argument[1], TARVU_CONTRACT_PARAMETER, TARVU_CONTRACT_ADDRESS, 8);
    extend(regions, 2, 8);
    add(sink, regions);
  }
  Range boxes = range_of(walk.boxes_field, walk.boxes_addr, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_F32, 4);
  boxes.alignment = 4;
  const int64_t cell = int64_t{walk.sizes} * kBoxBytes;
  extend(boxes, 4, 4);
  extend(boxes, walk.sizes, kBoxBytes);
  extend(boxes, walk.width, cell, TARVU_CONTRACT_AXIS_WIDTH);
  extend(boxes, walk.height, cell * walk.width, TARVU_CONTRACT_AXIS_HEIGHT);
  add(sink, boxes);
  const int32_t covered = covered_floats(walk);
  if (walk.clips) add_floats(sink, walk.boxes_field, walk.boxes_addr, 0, covered);
  add_floats(sink, walk.variances_field, walk.variances_addr, walk.variances_offset, covered);
}

/// A field that must not be 0.
struct RequiredField {
  const char *name;
  uint32_t value;
};

Refusal priorbox_refusal(const Call &call) {
  if (!has_block(call)) return {};
  const auto block = block_of<_NN_PRIORBOX_PARM>(call);
  const RequiredField fields[] = {{"in_width", block.in_width},         {"in_height", block.in_height},
                                  {"img_width", block.img_width},       {"img_height", block.img_height},
                                  {"min_size_num", block.min_size_num}, {"aspect_ratios_num", block.aspect_ratios_num},
                                  {"variance_num", block.variance_num}};
  const auto *zero = std::find_if(std::begin(fields), std::end(fields), [](const auto &f) { return f.value == 0; });
  if (zero == std::end(fields)) return {};
  const uint32_t printed[] = {block.img_width,    block.img_height,   block.in_width,     block.in_height,
                              block.max_size_num, block.min_size_num, block.variance_num, block.aspect_ratios_num};
  Line line = {"tarvu_priorbox_checkparm",
               "shape should be positive, but input is %dx%dx%dx%d(img_width x img_height x in_width x "
               "in_height),%dx%dx%dx%d(max_size_num x min_size_num x variance_num x aspect_ratios_num)\r\n\033[0m",
               static_cast<int32_t>(printed[0])};
  for (int i = 1; i < 8; ++i) line.more[i - 1] = static_cast<int32_t>(printed[i]);
  return {&kZeroField, zero->name, 0, line, QX_ERR_PARAM};
}

void check_count(FindingSink &sink, const char *field, uint32_t value, uint32_t most) {
  if (value > most) add(sink, kTooMany, field, value, {most, 0, 0});
}

void check_block(FindingSink &sink, const _NN_PRIORBOX_PARM &block, const Walk &walk) {
  check_count(sink, "max_size_num", block.max_size_num, kMostSizes);
  check_count(sink, "aspect_ratios_num", block.aspect_ratios_num, kMostSizes);
  if (block.variance_ofs < box_bytes(walk)) {
    const Wide bytes = std::min(box_bytes(walk), Wide{INT64_MAX});
    add(sink, kNarrowRegion, "variance_ofs", block.variance_ofs, {static_cast<int64_t>(bytes), 0, 0});
  }
  if (block.variance_num == 1) add(sink, kOneVariance, "variance_num", 1);
  if (block.variance_num == 2 || block.variance_num == 3) {
    add(sink, kNoVariances, "variance_num", block.variance_num);
  }
}

void priorbox_findings(const Call &call, FindingSink &sink) {
  const Walk walk = walk_of(call);
  if (has_block(call)) {
    const auto block = block_of<_NN_PRIORBOX_PARM>(call);
    check_count(sink, "min_size_num", block.min_size_num, kMostSizes);
    check_block(sink, block, walk);
  } else {
    const auto work = block_of<_NN_PRIORBOX_WORK>(call);
    check_count(sink, "min_size_num", work.min_size_num, kMostSizes);
    check_count(sink, "ratio_count", work.ratio_count, kMostRatios);
    check_extent(sink, "in_width", work.in_width);
    check_extent(sink, "in_height", work.in_height);
  }
  check_wrap(sink, "in_width", covered_floats(walk), true_covered_floats(walk));
  if (walk.counted != static_cast<int64_t>(walk.sizes)) {
    add(sink, kOtherCount, "min_size_num", walk.counted, {walk.counted, walk.sizes, 0});
  }
}

void priorbox_words(const Call &call, Text &text) {
  const Walk walk = walk_of(call);
  put(text, "  = ");
  put_unsigned(text, walk.sizes);
  put(text, " boxes for each of ");
  put_unsigned(text, uint64_t{walk.width} * walk.height);
  put(text, " cells\n");
}

}  // namespace

const Description kPriorBox = {priorbox_refusal, priorbox_ranges, priorbox_findings, nullptr, priorbox_words, nullptr};

}  // namespace contract
