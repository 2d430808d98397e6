// Standalone non-maximum suppression, in place.
#include <algorithm>

#include "contract/contents.h"

namespace contract {
namespace {

#include "contract/nms_ids.inc"

/// The call, by its block or by its arguments.
struct Boxes {
  const char *field;
  uint64_t address;
  int32_t count;
  int32_t most;
};

Boxes boxes_of(const Call &call) {
  if (call.info.block == nullptr) {
    return {"objs", call.argument[0], static_cast<int32_t>(call.argument[1]), static_cast<int32_t>(call.argument[2])};
  }
  const auto block = block_of<_NN_NMS_PARM>(call);
  return {"obj_addr", block.obj_addr, block.obj_num, block.max_obj_num};
}

float score_of(const Boxes &boxes, int32_t i) {
  return value_at<float>(boxes.address + static_cast<uint64_t>(i) * sizeof(_NN_NMS_OBJ) + offsetof(_NN_NMS_OBJ, score));
}

/// Which records move, and whose edges count, the scores and boxes decide; all scores are compared.
void nms_ranges(const Call &call, RangeSink &sink) {
  const Boxes boxes = boxes_of(call);
  if (boxes.count <= 0) return;
  Range records =
      range_of(boxes.field, boxes.address, TARVU_CONTRACT_WRITES, TARVU_CONTRACT_RECORD, sizeof(_NN_NMS_OBJ));
  records.exact = 0;
  records.alignment = 4;
  extend(records, static_cast<uint64_t>(boxes.count), sizeof(_NN_NMS_OBJ));
  add(sink, records);
  Range scores = range_of(boxes.field, boxes.address, TARVU_CONTRACT_READS, TARVU_CONTRACT_F32, sizeof(float));
  scores.alignment = 4;
  scores.offset = offsetof(_NN_NMS_OBJ, score);
  extend(scores, static_cast<uint64_t>(boxes.count), sizeof(_NN_NMS_OBJ));
  add(sink, scores);
}

/// The first box of each kind. Returns how many are alive.
int32_t check_scores(FindingSink &sink, const Boxes &boxes) {
  int32_t alive = 0;
  bool has_none = false;
  bool has_zero = false;
  bool has_dead = false;
  for (int32_t i = 0; i < boxes.count; ++i) {
    const float score = score_of(boxes, i);
    if (score >= 0.0f) ++alive;
    if (score != score && !has_none) {
      has_none = true;
      add(sink, kNotANumber, boxes.field, static_cast<int64_t>(boxes.address), {i, 0, 0});
    } else if (score == 0.0f && !has_zero) {
      has_zero = true;
      add(sink, kZeroScore, boxes.field, static_cast<int64_t>(boxes.address), {i, 0, 0});
    } else if (score < 0.0f && !has_dead) {
      has_dead = true;
      add(sink, kDeadBox, boxes.field, static_cast<int64_t>(boxes.address), {i, 0, 0});
    }
  }
  return alive;
}

void nms_findings(const Call &call, FindingSink &sink) {
  const Boxes boxes = boxes_of(call);
  bool knows_result = boxes.count <= 0 || boxes.most <= 0;
  int32_t result = boxes.count == 0 ? 0 : std::min(boxes.most, 0);
  if (boxes.count <= 0) {
    add(sink, kNoBoxes, "obj_num", boxes.count);
  } else {
    if (boxes.most <= 0) add(sink, kKeepsNone, "max_obj_num", boxes.most);
    if (call.reads_contents() && boxes.address != 0) {
      const int32_t alive = check_scores(sink, boxes);
      // The best box of all is always kept.
      if (boxes.most > 0 && (alive <= 1 || boxes.most == 1)) {
        knows_result = true;
        result = std::min(alive, 1);
      }
    }
  }
  if (call.info.block == nullptr) return;
  // A number that boxes decide is left open.
  if (knows_result) return add(sink, kCount, "obj_num", boxes.count, {nullptr, "obj_final_num is %d\r\n", result}, 0);
  add(sink, kCount, "obj_num", boxes.count, {nullptr, "obj_final_num is %n\r\n", 0}, 0);
}

}  // namespace

const Description kSuppression = {nullptr, nms_ranges, nms_findings, nullptr, nullptr, nullptr};

}  // namespace contract
