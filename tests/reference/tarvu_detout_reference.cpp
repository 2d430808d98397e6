#include "tests/reference/tarvu_detout_reference.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tests/reference/bit_depth_trans_reference.h"
#include "tests/reference/processor_rules.h"
#include "tests/reference/tarvu_softmax_reference.h"
#include "tests/reference/tarvu_util_reference.h"

namespace reference {
namespace {

using Record = _NN_DETOUT_RECORD;

constexpr int32_t kSurvivorLimit = 20;
constexpr int32_t kLeastRecords = 5;

Record record_at(const void *records, int32_t i) {
  return load<Record>(static_cast<const char *>(records) + sizeof(Record) * static_cast<size_t>(i));
}

void set_record(void *records, int32_t i, const Record &record) {
  store(static_cast<char *>(records) + sizeof(Record) * static_cast<size_t>(i), record);
}

/// Replaces score and address, and leaves the bytes between them as they are.
void set_score_and_box(void *records, int32_t i, float score, uint64_t box_addr) {
  Record record = record_at(records, i);
  record.score = score;
  record.box_addr = box_addr;
  set_record(records, i, record);
}

float float_at(const float *base, int64_t i) { return load<float>(base + i); }
void set_float(float *base, int64_t i, float value) { store(base + i, value); }

float area_of(const float *state, int32_t i) { return float_at(state, 2 * int64_t{i}); }
float score_of(const float *state, int32_t i) { return float_at(state, 2 * int64_t{i} + 1); }
void set_score(float *state, int32_t i, float score) { set_float(state, 2 * int64_t{i} + 1, score); }

float greater(float a, float b) {
  if (a != a) return a;
  if (b != b) return b;
  return a > b ? a : b;
}

float lesser(float a, float b) {
  if (a != a) return a;
  if (b != b) return b;
  return a < b ? a : b;
}

void decode_centre_and_size(const float *b, const float *v, const float *d, bool factors, float *result) {
  const float w = b[2] - b[0];
  const float h = b[3] - b[1];
  const float pcx = (b[0] + b[2]) * 0.5f;
  const float pcy = (b[1] + b[3]) * 0.5f;
  float scaled[4];
  for (int32_t i = 0; i < 4; ++i) scaled[i] = factors ? d[i] * v[i] : d[i];
  const float move_x = scaled[0] * w;
  const float move_y = scaled[1] * h;
  const float cx = move_x + pcx;
  const float cy = move_y + pcy;
  const float ew = reference::fast_exp(scaled[2]);
  const float eh = reference::fast_exp(scaled[3]);
  const float width = w * ew;
  const float height = h * eh;
  const double hw = static_cast<double>(width) * 0.5;
  const double hh = static_cast<double>(height) * 0.5;
  result[0] = static_cast<float>(static_cast<double>(cx) - hw);
  result[1] = static_cast<float>(static_cast<double>(cy) - hh);
  result[2] = static_cast<float>(static_cast<double>(cx) + hw);
  result[3] = static_cast<float>(static_cast<double>(cy) + hh);
}

void decode_corners(const float *b, const float *v, const float *d, bool factors, float *result) {
  for (int32_t i = 0; i < 4; ++i) {
    const float scaled = factors ? d[i] * v[i] : d[i];
    result[i] = scaled + b[i];
  }
}

void decode_relative_corners(const float *b, const float *v, const float *d, bool factors, float *result) {
  const float extent[2] = {b[2] - b[0], b[3] - b[1]};
  for (int32_t i = 0; i < 4; ++i) {
    const float scaled = factors ? d[i] * v[i] : d[i];
    const float move = scaled * extent[i % 2];
    result[i] = move + b[i];
  }
}

float scale_of(const _NN_SCALE &scale) {
  const float value = static_cast<float>(scale.scale_value);
  if (scale.scale_shift < 0) return static_cast<float>(shift_left_32(1, -scale.scale_shift)) * value;
  return value / static_cast<float>(shift_left_32(1, scale.scale_shift));
}

/// The scratch areas of one call, in the order in which they are taken.
struct Scratch {
  float *locations;
  float *priors;
  float *decoded;
  float *candidates;
  void *unused;
  float *variances;
  void *records;
  float *boxes;
  float *state;
  float *converted;
};

Scratch take_scratch(uint64_t cursor, uint32_t sets, uint32_t priors, uint32_t classes) {
  Scratch scratch{};
  const uint32_t padded = (priors + 3u) & ~3u;
  scratch.locations = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 20u * sets * priors));
  scratch.priors = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 20u * priors));
  scratch.decoded = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 20u * sets * priors));
  scratch.candidates = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 20u * priors));
  scratch.unused = reference::tarvu_getbuffrom(&cursor, 4u * priors * classes);
  scratch.variances = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 16u * priors));
  scratch.records = reference::tarvu_getbuffrom(&cursor, 16u * priors);
  scratch.boxes = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 16u * padded));
  scratch.state = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 8u * padded));
  scratch.converted = static_cast<float *>(reference::tarvu_getbuffrom(&cursor, 16u * priors));
  return scratch;
}

uint64_t item_address(uint64_t address, uint32_t item, uint32_t batch_ofs) {
  const uint32_t offset = item * batch_ofs;
  return address + offset;
}

/// One cursor serves locations and prior boxes, so with more than one set the boxes are read at the wide step too.
void gather_inputs(const Scratch &scratch, const float *location, const float *prior, int32_t sets, int32_t priors) {
  for (int32_t p = 0; p < priors; ++p) {
    const int64_t cursor = int64_t{4} * sets * p;
    for (int32_t l = 0; l < sets; ++l) {
      for (int32_t i = 0; i < 4; ++i) {
        set_float(scratch.locations, 5 * (int64_t{l} * priors + p) + i, float_at(location, cursor + 4 * l + i));
      }
    }
    for (int32_t i = 0; i < 4; ++i) {
      set_float(scratch.priors, int64_t{5} * p + i, float_at(prior, cursor + i));
      set_float(scratch.variances, int64_t{4} * p + i, float_at(prior, int64_t{4} * priors + int64_t{4} * p + i));
    }
    set_float(scratch.priors, int64_t{5} * p + 4, 0.0f);
  }
}

int32_t collect_candidates(const Scratch &scratch, const _NN_DETOUT_PARM *parm, const float *confidence, int32_t c) {
  int32_t count = 0;
  for (int32_t p = 0; p < parm->num_priors; ++p) {
    const float s = float_at(confidence, int64_t{p} * parm->num_classes + c);
    if (!(s >= parm->confidence_threshold)) continue;
    float *candidate = scratch.candidates + int64_t{5} * count;
    for (int32_t i = 0; i < 4; ++i) set_float(candidate, i, float_at(scratch.decoded, int64_t{5} * p + i));
    set_float(candidate, 4, s);
    set_score_and_box(scratch.records, count, s, reinterpret_cast<uintptr_t>(candidate));
    ++count;
  }
  return count;
}

void put_record(uint64_t *output, const float *five) {
  for (int32_t i = 0; i < 5; ++i) {
    store(reinterpret_cast<void *>(*output), five[i]);
    *output += 4;
  }
}

/// Writes the records of one class and returns where the next class goes.
uint64_t put_class(const void *records, int32_t survivors, int32_t keep_top_k, uint64_t output) {
  const int32_t k = keep_top_k < survivors ? keep_top_k : survivors;
  int32_t written = 0;
  for (int32_t i = 0; i < k; ++i) {
    const Record record = record_at(records, i);
    float five[5];
    std::memcpy(five, reinterpret_cast<const void *>(record.box_addr), 16);
    if (five[0] >= 1.0f || five[1] >= 1.0f || five[2] <= 0.0f || five[3] <= 0.0f) continue;
    five[4] = record.score;
    put_record(&output, five);
    ++written;
  }
  const float filler[5] = {-1.0f, -1.0f, -1.0f, -1.0f, -1.0f};
  for (; written < kLeastRecords; ++written) put_record(&output, filler);
  return output;
}

}  // namespace

void DecodeBBoxes(const float *prior_bboxes, const float *prior_variances, int32_t code_type,
                  int32_t variance_encoded_in_target, int32_t clip_bbox, const float *loc, float *decoded,
                  int32_t num_priors, int32_t num_loc_classes) {
  const bool factors = variance_encoded_in_target == 0;
  for (int32_t l = 0; l < num_loc_classes; ++l) {
    for (int32_t p = 0; p < num_priors; ++p) {
      const int64_t place = 5 * (int64_t{l} * num_priors + p);
      float b[4];
      float v[4];
      float d[4];
      float result[4];
      for (int32_t i = 0; i < 4; ++i) {
        b[i] = float_at(prior_bboxes, int64_t{5} * p + i);
        v[i] = float_at(prior_variances, int64_t{4} * p + i);
        d[i] = float_at(loc, place + i);
        result[i] = float_at(decoded, place + i);
      }
      if (code_type == 0) {
        decode_centre_and_size(b, v, d, factors, result);
      } else if (code_type == 1) {
        decode_corners(b, v, d, factors, result);
      } else if (code_type == 2) {
        decode_relative_corners(b, v, d, factors, result);
      } else {
        std::printf("Unknown code type.");
      }
      if (clip_bbox == 1) {
        for (float &x : result) {
          if (x != x) {
            x = 0.0f;  // a compiler may make a maximum of the comparisons below, which keeps a signalling NaN
          } else if (x >= 1.0f) {
            x = 1.0f;
          } else if (!(x > 0.0f)) {
            x = 0.0f;
          }
        }
      }
      for (int32_t i = 0; i < 4; ++i) set_float(decoded, place + i, result[i]);
    }
  }
}

void quick_sort(void *records, int32_t left, int32_t right) {
  do {
    const Record pivot = record_at(records, left);
    int32_t i = left;
    int32_t j = right;
    while (i < j) {
      while (record_at(records, j).score <= pivot.score && j > i) --j;
      if (i < j) set_record(records, i, record_at(records, j));
      while (record_at(records, i).score >= pivot.score && i < j) ++i;
      if (i < j) set_record(records, j, record_at(records, i));
    }
    set_record(records, i, pivot);
    if (left < i - 1) reference::quick_sort(records, left, i - 1);
    left = i + 1;
  } while (left < right);
}

void calc_area(const float *boxes, float *state, int32_t count) {
  for (int32_t group = 0; group < count; group += 4) {
    for (int32_t lane = 0; lane < 4; ++lane) {
      const int64_t box = int64_t{4} * (group + lane);
      const float height = float_at(boxes, box + 3) - float_at(boxes, box + 1);
      const float width = float_at(boxes, box + 2) - float_at(boxes, box);
      set_float(state, 2 * int64_t{group + lane}, height * width);
    }
  }
}

int32_t check_overlap(const float *boxes, float *state, int32_t count, int32_t top_k, int32_t *last, float threshold) {
  int32_t kept = 0;
  *last = 0;
  for (int32_t i = 0; i < count; ++i) {
    if (score_of(state, i) < 0.0f) continue;
    ++kept;
    *last = i;
    if (kept >= top_k || i == count - 1) return kept;

    const int64_t a = int64_t{4} * i;
    int32_t j = i + 1;
    while (j < count) {
      if (score_of(state, j) < 0.0f) {
        ++j;
        continue;
      }
      for (int32_t lane = 0; lane < 4; ++lane) {
        const int64_t b = int64_t{4} * (j + lane);
        const float ix1 = greater(float_at(boxes, a), float_at(boxes, b));
        const float iy1 = greater(float_at(boxes, a + 1), float_at(boxes, b + 1));
        const float ix2 = lesser(float_at(boxes, a + 2), float_at(boxes, b + 2));
        const float iy2 = lesser(float_at(boxes, a + 3), float_at(boxes, b + 3));
        float iw = ix2 - ix1;
        float ih = iy2 - iy1;
        if (iw < 0.0f) iw = 0.0f;
        if (ih < 0.0f) ih = 0.0f;
        const float inter = ih * iw;
        const float sum = area_of(state, i) + area_of(state, j + lane);
        const float both = sum - inter;
        if (inter >= both * threshold) set_score(state, j + lane, score_of(state, j + lane) + -1.0f);
      }
      j += 4;
    }
  }
  return kept;
}

int32_t nonmax_suppress(void *records, float *boxes, float *state, int32_t count, int32_t /*reserved*/, int32_t top_k,
                        float threshold) {
  if (count == 0) return 0;
  if (count > 1) reference::quick_sort(records, 0, count - 1);

  for (int32_t i = 0; i < count; ++i) {
    const Record record = record_at(records, i);
    std::memcpy(boxes + int64_t{4} * i, reinterpret_cast<const void *>(record.box_addr), 16);
    set_score(state, i, record.score);
  }
  for (int32_t i = 0; i < 3; ++i) set_score(state, count + i, -1.0f);

  reference::calc_area(boxes, state, count);
  int32_t last = 0;
  const int32_t kept = reference::check_overlap(boxes, state, count, top_k, &last, threshold);
  const int32_t n = top_k < kept ? top_k : kept;

  int32_t j = 1;
  for (int32_t i = 0; i < n; ++i) {
    const float s = score_of(state, i);
    if (s > 0.0f) {
      set_score_and_box(records, i, s, record_at(records, i).box_addr);
      continue;
    }
    if (j <= i) j = i + 1;
    while (j <= last && score_of(state, j) < 0.0f) ++j;
    if (j > last) break;
    set_score_and_box(records, i, score_of(state, j), record_at(records, j).box_addr);
    set_score(state, j, -1.0f);
    ++j;
  }
  return n;
}

_QX_RESULT tarvu_detout_process(const _NN_DETOUT_PARM *parm) {
  const int32_t priors = parm->num_priors;
  const int32_t classes = parm->num_classes;
  const int32_t sets = parm->share_location == 1 ? 1 : classes;
  const Scratch scratch = take_scratch(parm->work_buffer, static_cast<uint32_t>(sets), static_cast<uint32_t>(priors),
                                       static_cast<uint32_t>(classes));
  const float scale = scale_of(parm->loc_scale);
  if (parm->batch == 0) return QX_OK;

  for (uint16_t item = 0; item < parm->batch; ++item) {
    const auto *location = reinterpret_cast<const float *>(item_address(parm->loc_addr, item, parm->loc_batch_ofs));
    const auto *confidence = reinterpret_cast<const float *>(item_address(parm->conf_addr, item, parm->conf_batch_ofs));
    const auto *prior = reinterpret_cast<const float *>(item_address(parm->prior_addr, item, parm->prior_batch_ofs));
    uint64_t output = item_address(parm->out_addr, item, parm->out_batch_ofs);

    const int32_t width = parm->loc_fmt.frac_bits + parm->loc_fmt.int_bits + parm->loc_fmt.sign_bits;
    if (static_cast<uint8_t>(width) == 8) {
      reference::int8tofloat_neon(reinterpret_cast<const int8_t *>(location), scratch.converted,
                                  parm->loc_fmt.frac_bits, static_cast<uint32_t>(multiply_32(priors, 4)), scale);
      location = scratch.converted;
    }
    if (priors > 0) gather_inputs(scratch, location, prior, sets, priors);
    reference::DecodeBBoxes(scratch.priors, scratch.variances, parm->code_type, 0, 0, scratch.locations,
                            scratch.decoded, priors, sets);

    const int32_t fill_bytes = multiply_32(multiply_32(parm->keep_top_k, classes), 20);
    std::memset(reinterpret_cast<void *>(parm->out_addr), 0, static_cast<size_t>(fill_bytes));

    for (int32_t c = 0; c < classes; ++c) {
      if (c == parm->background_label_id) continue;
      const int32_t count = collect_candidates(scratch, parm, confidence, c);
      int32_t survivors = 0;
      if (count > 0) {
        survivors = reference::nonmax_suppress(scratch.records, scratch.boxes, scratch.state, count, 1, kSurvivorLimit,
                                               parm->nms_threshold);
      }
      output = put_class(scratch.records, survivors, parm->keep_top_k, output);
    }
  }
  return QX_OK;
}

}  // namespace reference
