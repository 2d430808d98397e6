// Calls of the standalone suppression.
#include "tests/cases/cases.h"

namespace cases {

using namespace fuzz;

void draw_nms(Source &source, Case &made) {
  const uint32_t count = some_size(source, one_in(source, 6) ? 300 : 40);
  const bool has_block = !one_in(source, 3);
  Contents &boxes =
      made.contents.emplace_back(has_block ? "obj_addr" : "objs", std::vector<uint8_t>(count * sizeof(_NN_NMS_OBJ)));
  const bool nasty = one_in(source, 8);
  for (uint32_t i = 0; i < count; ++i) {
    const auto edge = [&] { return static_cast<float>(below(source, 64)) / 64.0f; };
    _NN_NMS_OBJ box = {edge(), edge(), 0.0f, 0.0f, 0.0f, word(source)};
    box.x2 = box.x1 + edge();
    box.y2 = box.y1 + edge();
    box.score = one_in(source, 9) ? one_of(source, {0.0f, -1.0f, -0.0f, 0.5f}) : edge();
    if (nasty) box.x1 = some_float(source);
    if (one_in(source, 5000)) box.score = some_float(source);
    std::memcpy(boxes.bytes.data() + i * sizeof box, &box, sizeof box);
  }
  const auto obj_num = one_in(source, 40) ? -static_cast<int32_t>(below(source, 5)) : static_cast<int32_t>(count);
  const int32_t max_obj_num = one_of(source, {1000, 20, 3, 1, 0, -1});
  const float threshold = one_of(source, {0.45f, 0.0f, 0.3f, 0.5f, 1.0f, -1.0f});
  if (has_block) {
    _NN_NMS_PARM block{};
    block.nms_threshold = threshold;
    block.obj_num = obj_num;
    block.max_obj_num = max_obj_num;
    return set_block(made, "tarvu_nms_process", block);
  }
  choose_function(made, "nms_process_c");
  made.call.argument[1] = static_cast<uint64_t>(int64_t{obj_num});
  made.call.argument[2] = static_cast<uint64_t>(int64_t{max_obj_num});
  made.call.argument[3] = argument_of(threshold);
}

}  // namespace cases
