// The exported steps of the detection output, and the standalone suppression.
#include <algorithm>
#include <cstddef>
#include <limits>

#include "tests/fuzz/makers.h"
#include "tests/fuzz/trial.h"
#include "tests/reference/tarvu_detout_reference.h"
#include "tests/reference/tarvu_nms_c_reference.h"

namespace fuzz {
namespace {

using support::Element;
using support::GuardedMemory;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// Any score but NaN, with which the sorts do not end; few levels make many ties.
float some_score(support::Random &random, uint32_t levels) {
  if (random.one_in(16)) return random.pick({-1.0f, -0.0f, 1.0f, 2.0f, kInfinity, -kInfinity, 3.0f});
  return static_cast<float>(random.below(levels + 1)) / static_cast<float>(levels) *
         random.pick({1.0f, 1.0f, 1.0f, 3.0f, -1.0f});
}

/// Corners of a box that may be turned round, touch others or, now and then, be no numbers.
void make_box(support::Random &random, bool nasty, float (&box)[4]) {
  box[0] = random.uniform(0.0f, 3.0f);
  box[1] = random.uniform(0.0f, 3.0f);
  box[2] = box[0] + random.uniform(-0.2f, 2.0f);
  box[3] = box[1] + random.uniform(-0.2f, 2.0f);
  if (random.one_in(3)) {
    for (float &corner : box) corner = static_cast<float>(random.below(5));
  }
  if (nasty && random.one_in(3)) random.fill_any_floats(box, 4);
}

uint32_t some_levels(Source &source) { return one_of(source, {1000000u, 1u, 2u, 5u, 100u}); }

float some_threshold(Source &source) {
  return one_in(source, 4) ? some_float(source, 1.0f) : one_of(source, {0.45f, 0.0f, 0.3f, 0.5f, 1.0f, -1.0f});
}

/// A range of a sort: all of it, a part, or none. The record at its start is always there: it is the pivot.
struct Range {
  int32_t left, right;
};

Range some_range(Source &source, uint32_t count) {
  const int32_t last = static_cast<int32_t>(count) - 1;
  if (one_in(source, 16)) return {0, -1};
  if (!one_in(source, 3)) return {0, last};
  const int32_t left = pick(source, 0, last);
  return {left, pick(source, left, last)};
}

std::string run_decode(Source &source) {
  Trial trial{source, {}, {}};
  const auto priors = static_cast<int32_t>(some_size(source, 33));
  const auto sets = static_cast<int32_t>(one_of(source, {1u, 2u, 3u, 0u}));
  const auto all = static_cast<size_t>(priors * sets);
  const int32_t code_type = one_in(source, 8) ? pick(source, -2, 5) : pick(source, 0, 2);
  const int32_t encoded = one_of(source, {0, 1, -1});
  const int32_t clip = pick(source, 0, 2);
  const size_t used = sets == 0 ? 0 : static_cast<size_t>(priors);
  const GuardedMemory &boxes = make_floats(trial, "priors", 5 * used, 2.0f);
  const GuardedMemory &variances = make_floats(trial, "variances", 4 * used, 1.0f);
  const GuardedMemory &locations = make_floats(trial, "locations", 5 * all, 4.0f);
  const GuardedMemory &decoded = make_floats(trial, "decoded", 5 * all, 4.0f);
  const auto call = [&](auto decode) {
    return [&, decode] {
      decode(boxes.as<const float>(), variances.as<const float>(), code_type, encoded, clip,
             locations.as<const float>(), decoded.as<float>(), priors, sets);
    };
  };
  return compare_calls(trial, "DecodeBBoxes", call(::DecodeBBoxes), call(reference::DecodeBBoxes));
}

/// Records that point at boxes of their own.
const GuardedMemory &make_records(Trial &trial, uint32_t count, const GuardedMemory &boxes) {
  const GuardedMemory &records = make_memory(trial, count * sizeof(_NN_DETOUT_RECORD), Address::kFloats);
  const uint32_t levels = some_levels(trial.source);
  support::Random random(word(trial.source));
  for (uint32_t i = 0; i < count; ++i) {
    const _NN_DETOUT_RECORD record = {some_score(random, levels), static_cast<uint32_t>(random.next()),
                                      boxes.address() + 16 * uint64_t{i}};
    std::memcpy(records.data() + i * sizeof record, &record, sizeof record);
  }
  trial.run.track(records, "records", Element::k32Bit);
  return records;
}

const GuardedMemory &make_boxes(Trial &trial, const char *name, uint32_t count) {
  const GuardedMemory &boxes = make_memory(trial, size_t{16} * count, Address::kFloats);
  const bool nasty = one_in(trial.source, 4);
  support::Random random(word(trial.source));
  for (uint32_t i = 0; i < count; ++i) {
    float box[4];
    make_box(random, nasty, box);
    std::memcpy(boxes.data() + 16 * i, box, sizeof box);
  }
  trial.run.track(boxes, name, Element::kFloat);
  return boxes;
}

std::string run_quick_sort(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t count = std::max(some_size(source, one_in(source, 6) ? 400 : 40), 1u);
  const GuardedMemory &boxes = make_memory(trial, 0);
  const GuardedMemory &records = make_records(trial, count, boxes);
  const Range range = some_range(source, count);
  const auto call = [&](auto sort) { return [&, sort] { sort(records.data(), range.left, range.right); }; };
  return compare_calls(trial, "quick_sort", call(::quick_sort), call(reference::quick_sort));
}

std::string run_nonmax(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t count = some_size(source, one_in(source, 6) ? 300 : 40);
  const GuardedMemory &from = make_boxes(trial, "boxes of the records", count);
  const GuardedMemory &records = make_records(trial, count, from);
  const size_t room = count == 0 ? 0 : count + size_t{3};
  const GuardedMemory &boxes = make_floats(trial, "boxes", 4 * room, 2.0f);
  const GuardedMemory &state = make_floats(trial, "state", 2 * room, 2.0f);
  const int32_t top_k = one_of(source, {20, 1, 1000, 0, -1, 3});
  const auto reserved = static_cast<int32_t>(unread(source));
  const float threshold = some_threshold(source);
  const auto call = [&](auto suppress) {
    return [&, suppress] {
      return suppress(records.data(), boxes.as<float>(), state.as<float>(), static_cast<int32_t>(count), reserved,
                      top_k, threshold);
    };
  };
  return compare_calls(trial, "nonmax_suppress", call(::nonmax_suppress), call(reference::nonmax_suppress));
}

std::string run_calc_area(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t count = some_size(source, 70);
  const uint32_t room = (count + 3) / 4 * 4;
  const GuardedMemory &boxes = make_boxes(trial, "boxes", room);
  const GuardedMemory &state = make_floats(trial, "state", size_t{2} * room, 2.0f);
  const auto call = [&](auto area) {
    return [&, area] { area(boxes.as<const float>(), state.as<float>(), static_cast<int32_t>(count)); };
  };
  return compare_calls(trial, "calc_area", call(::calc_area), call(reference::calc_area));
}

std::string run_check_overlap(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t count = some_size(source, one_in(source, 6) ? 300 : 40);
  const GuardedMemory &boxes = make_boxes(trial, "boxes", count + 3);
  const GuardedMemory &state = make_memory(trial, size_t{8} * (count + 3), Address::kFloats);
  const uint32_t levels = some_levels(source);
  support::Random random(word(source));
  for (uint32_t i = 0; i < count + 3; ++i) {
    float box[4];
    std::memcpy(box, boxes.data() + 16 * i, sizeof box);
    float pair[2] = {(box[3] - box[1]) * (box[2] - box[0]), some_score(random, levels)};
    if (i >= count) pair[1] = random.pick({-1.0f, -0.5f, -kInfinity});
    std::memcpy(state.data() + 8 * i, pair, sizeof pair);
  }
  trial.run.track(state, "state", Element::kFloat);
  const GuardedMemory &last = make_tensor(trial, "index of the last", 4);
  const int32_t top_k = one_of(source, {20, 1, 1000, 0, -1, 3});
  const float threshold = some_threshold(source);
  const auto call = [&](auto check) {
    return [&, check] {
      int32_t index = 0;
      std::memcpy(&index, last.data(), 4);
      const int32_t kept =
          check(boxes.as<const float>(), state.as<float>(), static_cast<int32_t>(count), top_k, &index, threshold);
      std::memcpy(last.data(), &index, 4);
      return kept;
    };
  };
  return compare_calls(trial, "check_overlap", call(::check_overlap), call(reference::check_overlap));
}

}  // namespace

std::string run_detout_steps_case(Source &source) {
  switch (below(source, 5)) {
    case 0:
      return run_decode(source);
    case 1:
      return run_nonmax(source);
    case 2:
      return run_quick_sort(source);
    case 3:
      return run_calc_area(source);
    default:
      return run_check_overlap(source);
  }
}

std::string run_nms_case(Source &source) {
  Trial trial{source, {}, {}};
  const uint32_t count = some_size(source, one_in(source, 6) ? 300 : 40);
  const GuardedMemory &objects = make_memory(trial, count * sizeof(_NN_NMS_OBJ), Address::kFloats);
  const bool nasty = one_in(source, 4);
  const uint32_t levels = some_levels(source);
  support::Random random(word(source));
  for (uint32_t i = 0; i < count; ++i) {
    float box[4];
    make_box(random, nasty, box);
    const _NN_NMS_OBJ object = {
        box[0], box[1], box[2], box[3], some_score(random, levels), static_cast<uint32_t>(random.next())};
    std::memcpy(objects.data() + i * sizeof object, &object, sizeof object);
  }
  trial.run.track(objects, "objects", Element::kFloat);
  const auto obj_num = static_cast<int32_t>(count);
  const int32_t max_obj_num = one_of(source, {1000, 20, 3, 1, 0, -1});
  const float threshold = some_threshold(source);
  const uint32_t function = below(source, 4);
  if (function == 3 && count != 0) {
    const Range range = some_range(source, count);
    const auto call = [&](auto sort) {
      return [&, sort] { sort(objects.as<_NN_NMS_OBJ>(), range.left, range.right); };
    };
    return compare_calls(trial, "q_sort", call(::q_sort), call(reference::q_sort));
  }
  if (function >= 2) {
    const auto call = [&](auto suppress) {
      return [&, suppress] { return suppress(objects.as<_NN_NMS_OBJ>(), obj_num, max_obj_num, threshold); };
    };
    return compare_calls(trial, "nms_process_c", call(::nms_process_c), call(reference::nms_process_c));
  }
  _NN_NMS_PARM block{};
  block.nms_threshold = threshold;
  block.obj_num = obj_num;
  block.max_obj_num = max_obj_num;
  block.reserved_0 = unread(source);
  block.obj_addr = objects.address();
  return compare_blocks(trial, block, TARVU_TWINS(tarvu_nms_process));
}

}  // namespace fuzz
