// Detection output: decoded boxes, suppression by class, packed records.
#include <algorithm>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/detout_ids.inc"

constexpr int32_t kLeastRecords = 5;  // of a class
constexpr int32_t kMostRecords = 20;  // of a class
constexpr uint32_t kRecordBytes = 20;

/// The call in numbers. Numbers that are not above 0 count as 0.
struct Walk {
  uint32_t items;
  uint32_t priors;
  uint32_t classes;
  uint32_t sets;          ///< of locations
  uint32_t background;    ///< or the number of classes
  uint32_t with_records;  ///< classes
  int32_t most;           ///< records of a class that boxes can make
  bool is_8_bit;
  int32_t cleared_bytes;  ///< as reckoned, in 32 bits
};

uint32_t positive(int32_t number) { return number > 0 ? static_cast<uint32_t>(number) : 0; }

Walk walk_of(const _NN_DETOUT_PARM &block) {
  Walk walk = {block.batch, positive(block.num_priors), positive(block.num_classes), 1, 0, 0, 0, false, 0};
  if (block.share_location != 1) walk.sets = walk.classes;
  const bool has_background = block.background_label_id >= 0 && block.background_label_id < block.num_classes;
  walk.background = has_background ? static_cast<uint32_t>(block.background_label_id) : walk.classes;
  walk.with_records = walk.classes - (has_background ? 1 : 0);
  walk.most = std::clamp(block.keep_top_k, 0, kMostRecords);
  walk.is_8_bit = narrow_width_of(block.loc_fmt) == 8;
  walk.cleared_bytes = static_cast<int32_t>(static_cast<uint32_t>(block.keep_top_k) *
                                            static_cast<uint32_t>(block.num_classes) * kRecordBytes);
  return walk;
}

Wide true_cleared_bytes(const _NN_DETOUT_PARM &block) {
  return Wide{block.keep_top_k} * block.num_classes * kRecordBytes;
}

/// Bytes of all scratch areas; more sets than one are read behind the last area, that of converted locations.
Wide true_work_bytes(const Walk &walk) {
  const Wide priors = walk.priors;
  const Wide whole_groups = (walk.priors + Wide{3}) / 4 * 4;
  const Wide areas = (Wide{40} * walk.sets + Wide{4} * walk.classes + 88) * priors + 24 * whole_groups;
  const Wide behind = walk.is_8_bit && walk.sets > 1 ? Wide{16} * (walk.sets - 1) * priors : 0;
  return areas + behind;
}

bool decodes(const Walk &walk) { return walk.items != 0 && walk.priors != 0; }

uint64_t work_bytes(const Walk &walk) {
  const Wide bytes = true_work_bytes(walk);
  if (!decodes(walk)) return 0;
  return bytes > Wide{INT64_MAX} ? INT64_MAX : static_cast<uint64_t>(bytes);
}

/// `count` times `step` bytes for every item, starting `offset` bytes behind the item.
struct Part {
  int64_t offset;
  uint64_t count;
  int64_t step;
  uint64_t run;  ///< elements
};

void add_part(RangeSink &sink, Range range, const Walk &walk, const Part &part, uint32_t batch_ofs, const char *name) {
  range.offset += part.offset;
  extend(range, part.run, range.element_bytes);
  extend(range, part.count, part.step);
  extend(range, walk.items, batch_ofs, TARVU_CONTRACT_AXIS_BATCH, name);
  add(sink, range);
}

Range floats_at(const char *field, uint64_t address, int32_t role) {
  Range range = range_of(field, address, role, TARVU_CONTRACT_F32, 4);
  range.alignment = 4;
  return range;
}

void add_inputs(RangeSink &sink, const _NN_DETOUT_PARM &block, const Walk &walk) {
  const uint64_t priors = walk.priors;
  Range locations = walk.is_8_bit ? range_of("loc_addr", block.loc_addr, TARVU_CONTRACT_READS, TARVU_CONTRACT_S8, 1)
                                  : floats_at("loc_addr", block.loc_addr, TARVU_CONTRACT_READS);
  locations.exact = 0;
  const uint64_t sets = walk.is_8_bit ? 1 : walk.sets;
  add_part(sink, locations, walk, {0, priors, static_cast<int64_t>(4 * sets * locations.element_bytes), 4 * sets},
           block.loc_batch_ofs, "loc_batch_ofs");
  // The boxes step like the locations, past their own spacing; the variances do not.
  Range boxes = floats_at("prior_addr", block.prior_addr, TARVU_CONTRACT_READS);
  boxes.exact = 0;
  add_part(sink, boxes, walk, {0, priors, 16 * int64_t{walk.sets}, 4}, block.prior_batch_ofs, "prior_batch_ofs");
  add_part(sink, boxes, walk, {static_cast<int64_t>(16 * priors), priors, 16, 4}, block.prior_batch_ofs,
           "prior_batch_ofs");
  Range scores = floats_at("conf_addr", block.conf_addr, TARVU_CONTRACT_READS);
  scores.exact = walk.most != 0 ? 1 : 0;
  const int64_t row = 4 * int64_t{walk.classes};
  add_part(sink, scores, walk, {0, priors, row, walk.background}, block.conf_batch_ofs, "conf_batch_ofs");
  if (walk.background == walk.classes) return;
  add_part(sink, scores, walk, {4 * (int64_t{walk.background} + 1), priors, row, walk.classes - walk.background - 1},
           block.conf_batch_ofs, "conf_batch_ofs");
  scores.exact = 0;
  add_part(sink, scores, walk, {4 * int64_t{walk.background}, priors, row, 1}, block.conf_batch_ofs, "conf_batch_ofs");
}

/// Records of one item that more than five candidates of a class can make.
uint64_t most_records(const _NN_DETOUT_PARM &block, const Walk &walk, uint64_t scores) {
  uint64_t records = 0;
  for (uint32_t c = 0; c < walk.classes; ++c) {
    if (c == walk.background) continue;
    int32_t candidates = 0;
    for (uint32_t p = 0; p < walk.priors && candidates < walk.most; ++p) {
      const auto score = value_at<float>(scores + 4 * (uint64_t{p} * walk.classes + c));
      if (score >= block.confidence_threshold) ++candidates;
    }
    records += static_cast<uint64_t>(std::max(candidates, kLeastRecords));
  }
  return records;
}

void add_records(RangeSink &sink, const Call &call, const _NN_DETOUT_PARM &block, const Walk &walk) {
  Range out = floats_at("out_addr", block.out_addr, TARVU_CONTRACT_WRITES);
  const uint64_t least = uint64_t{walk.with_records} * kLeastRecords;
  add_part(sink, out, walk, {0, 1, kRecordBytes, 5 * least}, block.out_batch_ofs, "out_batch_ofs");
  if (walk.cleared_bytes > 0) {
    Range cleared = out;
    extend(cleared, static_cast<uint32_t>(walk.cleared_bytes) / 4, 4);
    add(sink, cleared);
  }
  const int32_t most = std::min<int64_t>(walk.most, walk.priors) > kLeastRecords
                           ? static_cast<int32_t>(std::min<int64_t>(walk.most, walk.priors))
                           : kLeastRecords;
  if (most == kLeastRecords) return;
  // Which candidates survive the boxes decide.
  out.exact = 0;
  if (!call.reads_contents() || block.conf_addr == 0) {
    const uint64_t further = uint64_t{walk.with_records} * static_cast<uint64_t>(most - kLeastRecords);
    add_part(sink, out, walk, {static_cast<int64_t>(kRecordBytes * least), 1, kRecordBytes, 5 * further},
             block.out_batch_ofs, "out_batch_ofs");
    return;
  }
  for (uint32_t i = 0; i < walk.items; ++i) {
    Range further = out;
    further.offset = int64_t{i * block.out_batch_ofs} + static_cast<int64_t>(kRecordBytes * least);
    extend(further, 5 * (most_records(block, walk, block.conf_addr + i * block.conf_batch_ofs) - least), 4);
    add(sink, further);
  }
}

void detout_ranges(const Call &call, RangeSink &sink) {
  const auto block = block_of<_NN_DETOUT_PARM>(call);
  const Walk walk = walk_of(block);
  if (decodes(walk)) add_inputs(sink, block, walk);
  if (walk.items != 0) add_records(sink, call, block, walk);
  Range work = range_of("work_buffer", block.work_buffer, TARVU_CONTRACT_SCRATCH, TARVU_CONTRACT_BYTES, 1);
  work.exact = 0;
  work.alignment = 4;
  extend(work, work_bytes(walk), 1);
  add(sink, work);
}

uint64_t detout_scratch(const Call &call) { return work_bytes(walk_of(block_of<_NN_DETOUT_PARM>(call))); }

void check_formats(FindingSink &sink, const _NN_DETOUT_PARM &block, const Walk &walk) {
  if (walk.is_8_bit && block.loc_fmt.sign_bits == 0) add(sink, kReadAsSigned, "loc_fmt", 0);
  if (walk.is_8_bit && walk.sets > 1) add(sink, kStaleLocations, "loc_fmt", 8, {walk.sets, 0, 0});
  if (!walk.is_8_bit && width_of(block.loc_fmt) != 32) add(sink, kReadAsFloats, "loc_fmt", width_of(block.loc_fmt));
  if (walk.sets > 1) add(sink, kManySets, "share_location", block.share_location, {16 * int64_t{walk.sets}, 0, 0});
  if (block.code_type < 0 || block.code_type > 2) {
    if (walk.sets != 0) {
      add(sink, kUnknownCode, "code_type", block.code_type, {nullptr, "Unknown code type.", 0}, 0);
    }
  }
}

/// The distance of the last item is a product of 32 bits.
void check_batch(FindingSink &sink, const char *name, const Walk &walk, uint32_t step) {
  const uint32_t last = walk.items - 1;
  check_wrap(sink, name, last * step, Wide{last} * step);
}

void detout_findings(const Call &call, FindingSink &sink) {
  const auto block = block_of<_NN_DETOUT_PARM>(call);
  const Walk walk = walk_of(block);
  check_extent(sink, "batch", block.batch);
  if (walk.items == 0) return;
  if (walk.priors == 0) add(sink, kNoPriors, "num_priors", block.num_priors);
  if (walk.classes == 0) add(sink, kNoClasses, "num_classes", block.num_classes);
  if (decodes(walk)) {
    if (block.num_classes < 0) add(sink, kNegativeClasses, "num_classes", block.num_classes);
    check_formats(sink, block, walk);
    check_batch(sink, "loc_batch_ofs", walk, block.loc_batch_ofs);
    check_batch(sink, "conf_batch_ofs", walk, block.conf_batch_ofs);
    check_batch(sink, "prior_batch_ofs", walk, block.prior_batch_ofs);
    const Wide bytes = true_work_bytes(walk);
    check_wrap(sink, "num_priors", static_cast<uint32_t>(bytes), bytes);
  }
  if (walk.classes == 0) return;
  check_batch(sink, "out_batch_ofs", walk, block.out_batch_ofs);
  check_wrap(sink, "keep_top_k", walk.cleared_bytes, true_cleared_bytes(block));
  if (walk.background == walk.classes) {
    add(sink, kNoBackground, "background_label_id", block.background_label_id, {walk.classes, 0, 0});
  }
  if (walk.items > 1 && walk.cleared_bytes > 0) {
    add(sink, kFirstItemCleared, "keep_top_k", block.keep_top_k, {walk.cleared_bytes, 0, 0});
  }
  if (block.keep_top_k > kMostRecords) add(sink, kTwentyAtMost, "keep_top_k", block.keep_top_k);
  if (block.keep_top_k <= 0) add(sink, kKeepsNone, "keep_top_k", block.keep_top_k);
}

void detout_words(const Call &call, Text &text) {
  const Walk walk = walk_of(block_of<_NN_DETOUT_PARM>(call));
  put(text, "  = ");
  put_unsigned(text, walk.priors);
  put(text, " boxes for each of ");
  put_unsigned(text, walk.with_records);
  put(text, " classes, 5 to ");
  put_unsigned(text, static_cast<uint64_t>(std::max(walk.most, kLeastRecords)));
  put(text, " records a class\n");
}

}  // namespace

const Description kDetectionOutput = {nullptr, detout_ranges, detout_findings, detout_scratch, detout_words, nullptr};

}  // namespace contract
