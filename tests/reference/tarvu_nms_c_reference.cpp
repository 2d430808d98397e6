#include "tests/reference/tarvu_nms_c_reference.h"

#include <cstdint>
#include <cstdio>

#include "tests/reference/processor_rules.h"

namespace reference {
namespace {

using Object = _NN_NMS_OBJ;

Object object_at(const Object *objs, int32_t i) { return load<Object>(objs + i); }
void set_object(Object *objs, int32_t i, const Object &object) { store(objs + i, object); }
float score_of(const Object *objs, int32_t i) { return object_at(objs, i).score; }

void set_score(Object *objs, int32_t i, float score) {
  Object object = object_at(objs, i);
  object.score = score;
  set_object(objs, i, object);
}

bool is_suppressed(const Object &a, const Object &b, float threshold) {
  const float ix1 = a.x1 > b.x1 ? a.x1 : b.x1;
  const float ix2 = a.x2 < b.x2 ? a.x2 : b.x2;
  if (ix1 >= ix2) return false;
  const float iy1 = a.y1 > b.y1 ? a.y1 : b.y1;
  const float iy2 = a.y2 < b.y2 ? a.y2 : b.y2;
  if (iy1 >= iy2) return false;
  const float iw = ix2 - ix1;
  const float ih = iy2 - iy1;
  const float inter = iw * ih;
  const float area_a = (a.x2 - a.x1) * (a.y2 - a.y1);
  const float area_b = (b.x2 - b.x1) * (b.y2 - b.y1);
  const float sum = area_a + area_b;
  const float either = sum - inter;
  return threshold <= inter / either;
}

}  // namespace

void q_sort(Object *objs, int32_t left, int32_t right) {
  if (left >= right) return;
  do {
    const Object pivot = object_at(objs, left);
    int32_t i = left;
    int32_t j = right;
    while (i < j) {
      while (score_of(objs, j) <= pivot.score && j > i) --j;
      set_object(objs, i, object_at(objs, j));
      while (score_of(objs, i) >= pivot.score && i < j) ++i;
      set_object(objs, j, object_at(objs, i));
    }
    set_object(objs, i, pivot);
    reference::q_sort(objs, left, i - 1);
    left = i + 1;
  } while (left < right);
}

int32_t nms_process_c(Object *objs, int32_t obj_num, int32_t max_obj_num, float threshold) {
  if (obj_num == 0) return 0;
  reference::q_sort(objs, 0, obj_num - 1);

  int32_t kept = 0;
  int32_t last = 0;
  for (int32_t i = 0; i < obj_num; ++i) {
    last = i;
    const Object a = object_at(objs, i);
    if (a.score < 0.0f) continue;
    ++kept;
    if (kept >= max_obj_num || i == obj_num - 1) break;
    for (int32_t j = i + 1; j < obj_num; ++j) {
      const Object b = object_at(objs, j);
      if (b.score >= 0.0f && is_suppressed(a, b, threshold)) set_score(objs, j, -1.0f);
    }
  }

  const int32_t n = max_obj_num < kept ? max_obj_num : kept;
  int32_t i = 0;
  int32_t j = 1;
  while (i < n) {
    if (score_of(objs, i) > 0.0f) {
      ++i;
      continue;
    }
    if (j <= i) j = i + 1;
    while (j <= last && score_of(objs, j) < 0.0f) ++j;
    if (j > last) break;
    set_object(objs, i, object_at(objs, j));
    set_score(objs, j, -1.0f);
  }
  return n;
}

_QX_RESULT tarvu_nms_process(const _NN_NMS_PARM *parm) {
  const float threshold = parm->nms_threshold;
  const int32_t obj_num = parm->obj_num;
  const int32_t max_obj_num = parm->max_obj_num;
  auto *objs = reinterpret_cast<Object *>(parm->obj_addr);
  const int32_t kept = reference::nms_process_c(objs, obj_num, max_obj_num, threshold);
  std::printf("obj_final_num is %d\r\n", kept);
  return QX_OK;
}

}  // namespace reference
