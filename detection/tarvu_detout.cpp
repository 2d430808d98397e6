// Detection output: decoded boxes, the candidates of each class, suppression, packed records.
#include <bit>
#include <cstring>

#include "convert/format_entry.h"
#include "detection/detout_decode.h"
#include "detection/detout_suppression.h"
#include "simd/runs.h"

namespace tarvu {
namespace {

constexpr int32_t kLeastRecords = 5;  // of a class; missing ones are filled with -1.0
constexpr int kRecordFloats = 5;      // xmin, ymin, xmax, ymax, score
constexpr uint32_t kWordBits = 32;

/// The scratch areas that are used. No copies are made of the input, of the candidates and of the sorted boxes, so
/// theirs are only passed over.
struct Scratch {
  float *decoded;
  uint32_t *candidates;  // one bit for each class and prior, each class from a word of its own
  SortRecord *records;
  float *state;
  float *locations;
};

int32_t location_sets(const _NN_DETOUT_PARM &parm) { return parm.share_location == 1 ? 1 : parm.num_classes; }

Scratch take_scratch(const _NN_DETOUT_PARM &parm) {
  uint64_t cursor = parm.work_buffer;
  const auto take = [&](uint32_t bytes) { return tarvu_getbuffrom(&cursor, bytes); };
  const auto priors = static_cast<uint32_t>(parm.num_priors);
  const auto sets = static_cast<uint32_t>(location_sets(parm));
  const uint32_t whole_groups = (priors + 3) & ~3u;
  Scratch scratch;
  take(20 * sets * priors);  // location records
  take(20 * priors);         // prior boxes
  scratch.decoded = static_cast<float *>(take(20 * sets * priors));
  take(20 * priors);  // candidates
  scratch.candidates = static_cast<uint32_t *>(take(4 * priors * static_cast<uint32_t>(parm.num_classes)));
  take(16 * priors);  // variances
  scratch.records = static_cast<SortRecord *>(take(16 * priors));
  take(16 * whole_groups);  // boxes in sorted order
  scratch.state = static_cast<float *>(take(8 * whole_groups));
  scratch.locations = static_cast<float *>(take(16 * priors));
  return scratch;
}

/// The tensors of one batch item.
struct Item {
  const void *locations;
  const float *confidences;
  const float *priors;
  float *output;
};

Item batch_item(const _NN_DETOUT_PARM &parm, uint32_t i) {
  return {pointer<const void>(parm.loc_addr + i * parm.loc_batch_ofs),
          pointer<const float>(parm.conf_addr + i * parm.conf_batch_ofs),
          pointer<const float>(parm.prior_addr + i * parm.prior_batch_ofs),
          pointer<float>(parm.out_addr + i * parm.out_batch_ofs)};
}

/// Decodes all boxes, also those that no class takes: with an unknown code type a later call uses them as they stand.
void decode_item(const _NN_DETOUT_PARM &parm, const Item &item, const Scratch &scratch) {
  const auto *locations = static_cast<const float *>(item.locations);
  // Kept: the width alone decides, modulo 256, so unsigned 8-bit locations are read as signed and 16-bit ones as
  // floats.
  if (static_cast<uint8_t>(width_bits(parm.loc_fmt)) == 8) {
    int8tofloat_neon(static_cast<const int8_t *>(item.locations), scratch.locations, parm.loc_fmt.frac_bits,
                     4 * static_cast<uint32_t>(parm.num_priors), scale_of(parm.loc_scale));
    locations = scratch.locations;
  }
  const int32_t sets = location_sets(parm);
  const ptrdiff_t priors = parm.num_priors;
  for (int32_t l = 0; l < sets; ++l) {
    LocationSet set;
    // Kept: the boxes of the priors step like the locations, past their real spacing where there are more sets than
    // one.
    set.priors = item.priors;
    set.prior_step = 4 * ptrdiff_t{sets};
    set.variances = item.priors + 4 * priors;
    set.locations = locations + 4 * ptrdiff_t{l};
    set.location_step = 4 * ptrdiff_t{sets};
    set.decoded = scratch.decoded + kRecordFloats * (l * priors);
    set.count = parm.num_priors;
    decode_locations(set, parm.code_type, false);
  }
}

uint32_t words_per_class(const _NN_DETOUT_PARM &parm) {
  return (static_cast<uint32_t>(parm.num_priors) + kWordBits - 1) / kWordBits;
}

/// Sets the bit of every score that reaches the threshold, for all classes in one pass over the confidences.
void mark_candidates(const _NN_DETOUT_PARM &parm, const float *confidences, uint32_t *candidates) {
  const auto classes = static_cast<uint32_t>(parm.num_classes);
  const auto background = static_cast<uint32_t>(parm.background_label_id);
  const uint32_t words = words_per_class(parm);
  std::memset(candidates, 0, size_t{words} * classes * sizeof(uint32_t));
  const size_t count = static_cast<size_t>(parm.num_priors) * classes;
  for_each_at_least(confidences, count, parm.confidence_threshold, [=](size_t at) {
    const auto p = static_cast<uint32_t>(at / classes);
    const uint32_t c = static_cast<uint32_t>(at) - p * classes;
    if (c == background) return;
    candidates[size_t{c} * words + p / kWordBits] |= 1u << p % kWordBits;
  });
}

/// Makes the sort records of one class, in the order of the priors.
int32_t gather_candidates(const _NN_DETOUT_PARM &parm, const float *confidences, const Scratch &scratch, int32_t c) {
  const uint32_t words = words_per_class(parm);
  const uint32_t *candidates = scratch.candidates + static_cast<size_t>(c) * words;
  SortRecord *record = scratch.records;
  for (uint32_t word = 0; word < words; ++word) {
    for (uint32_t left = candidates[word]; left != 0; left &= left - 1) {
      const size_t p = word * kWordBits + static_cast<uint32_t>(std::countr_zero(left));
      const float score = confidences[p * static_cast<uint32_t>(parm.num_classes) + static_cast<uint32_t>(c)];
      // Kept: the boxes of location set 0 serve every class.
      *record++ = {score, 0, reinterpret_cast<uintptr_t>(scratch.decoded + kDecodedStep * p)};
    }
  }
  return static_cast<int32_t>(record - scratch.records);
}

bool touches_image(const float *box) { return !(box[0] >= 1.0f || box[1] >= 1.0f || box[2] <= 0.0f || box[3] <= 0.0f); }

/// Writes the survivors of one class and what fills them up; returns the place behind them.
float *write_class(const SortRecord *survivors, int32_t count, float *output) {
  int32_t written = 0;
  for (int32_t i = 0; i < count; ++i) {
    const auto *box = pointer<const float>(survivors[i].box_addr);
    if (!touches_image(box)) continue;
    std::memcpy(output, box, 4 * sizeof(float));
    output[4] = survivors[i].score;
    output += kRecordFloats;
    ++written;
  }
  for (; written < kLeastRecords; ++written) {
    for (int k = 0; k < kRecordFloats; ++k) *output++ = -1.0f;
  }
  return output;
}

void detect_item(const _NN_DETOUT_PARM &parm, const Item &item, const Scratch &scratch) {
  const bool has_priors = parm.num_priors > 0;
  if (has_priors) decode_item(parm, item, scratch);
  // Kept: every item clears from the start of the block's output, and with it what earlier items wrote there.
  const int32_t cleared_bytes = multiply(multiply(parm.keep_top_k, parm.num_classes), kRecordFloats * sizeof(float));
  if (cleared_bytes > 0) std::memset(pointer(parm.out_addr), 0, static_cast<size_t>(cleared_bytes));
  if (has_priors && parm.num_classes > 0) mark_candidates(parm, item.confidences, scratch.candidates);
  float *output = item.output;
  for (int32_t c = 0; c < parm.num_classes; ++c) {
    if (c == parm.background_label_id) continue;
    const int32_t count = has_priors ? gather_candidates(parm, item.confidences, scratch, c) : 0;
    const int32_t survivors = find_survivors(scratch.records, scratch.state, count, parm.nms_threshold);
    output = write_class(scratch.records, std::min(parm.keep_top_k, survivors), output);
  }
}

}  // namespace
}  // namespace tarvu

_QX_RESULT tarvu_detout_process(const _NN_DETOUT_PARM *parm) {
  const tarvu::Scratch scratch = tarvu::take_scratch(*parm);
  for (uint32_t i = 0; i < parm->batch; ++i) tarvu::detect_item(*parm, tarvu::batch_item(*parm, i), scratch);
  return QX_OK;
}
