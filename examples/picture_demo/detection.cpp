/// \file detection.cpp
/// The tail of a single-shot detector on a picture: prior boxes, class scores, detection output, non-maximum suppression.
///
/// No network has run before it, so the class scores are plain figures of the picture: what is rich in contrast, and what is
/// bright and even.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "demo.h"
#include "lettering.h"

namespace demo {

namespace {

constexpr uint16_t kSide = 304;  // of the detector's picture; both grids divide it
constexpr _NN_FMT kLogit = {3, 4, 1, 0};
constexpr _NN_FMT kLocation = {5, 2, 1, 0};

enum Class : uint32_t { kBackground, kContrast, kBrightness };
constexpr uint32_t kClasses = 3;
constexpr int8_t kBackgroundLogit = 6 * 8;
constexpr float kLeastConfidence = 0.5f;
constexpr float kOverlap = 0.1f;
constexpr uint32_t kDetections = 5;  // a class; with no more than these a class takes exactly five output records
constexpr int32_t kMostKept = 20;

/// A feature map of the detector and the boxes of its cells.
struct FeatureMap {
  uint16_t cells;  // a side
  float least, greatest;
};
constexpr FeatureMap kMaps[] = {{38, 26, 48}, {19, 60, 96}};
constexpr uint32_t kBoxesACell = 4;  // two squares, one wide, one high
constexpr uint32_t kBoxes = (38 * 38 + 19 * 19) * kBoxesACell;

struct Box {
  float left, top, right, bottom;
};

struct Found {
  Box box;
  uint32_t box_class;
  float score;
};

/// What is known of a cell, in the format of kLogit.
struct Cells {
  Tensor contrast, brightness;
};

/// The picture as a square of one colour.
Tensor detector_picture(Demo &demo, const Tensor &picture) {
  auto const positions = [](uint16_t extent) {
    std::vector<uint16_t> nearest;
    for (uint32_t i = 0; i < kSide; ++i) nearest.push_back(static_cast<uint16_t>((2 * i + 1) * extent / (2 * kSide)));
    return nearest;
  };
  Tensor const lines = gather(demo, "304 lines", picture, Axis::kChannel, positions(picture.shape.channel));
  Tensor colours = gather(demo, "304 columns", lines, Axis::kHeight, positions(picture.shape.height));
  // A line of pixels is a line of three times the elements, and grey the average of every three.
  colours.shape = {3 * kSide, kSide, 1, 1};
  return pool_tiles(demo, "grey", colours, Pooling::kAverage, 3, 1);
}

Tensor weighted_sum(Demo &demo, const std::string &name, const Tensor &a, float weight_a, const Tensor &b,
                    float weight_b) {
  Tensor out(a.shape, kLogit);
  std::vector<float> scratch(size_t{3} * a.shape.width * a.shape.height);
  _NN_ELTWISE_PARM block = {};
  block.in0_addr = a.address();
  block.in1_addr = b.address();
  block.out_addr = out.address();
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.width = a.shape.width;
  block.height = a.shape.height;
  block.channel = a.shape.channel;
  block.batch = a.shape.batch;
  block.in0_line_ofs = block.in1_line_ofs = a.line_bytes();
  block.in0_channel_ofs = block.in1_channel_ofs = a.channel_bytes();
  block.in0_batch_ofs = block.in1_batch_ofs = a.batch_bytes();
  block.out_line_ofs = out.line_bytes();
  block.out_channel_ofs = out.channel_bytes();
  block.out_batch_ofs = out.batch_bytes();
  block.in0_fmt = a.format;
  block.in1_fmt = b.format;
  block.out_fmt = out.format;
  block.in0_scale.scale_value = block.in1_scale.scale_value = block.out_scale.scale_value = 1;
  block.op = 1;
  block.coeff0 = weight_a;
  block.coeff1 = weight_b;
  demo.run("eltwise: " + name, tarvu_eltwise_process, block, a, out);
  return out;
}

Cells look_at_cells(Demo &demo, const Tensor &grey, uint16_t cells) {
  int const side = kSide / cells;
  std::string const grid = " of " + std::to_string(cells) + " x " + std::to_string(cells);
  Tensor const most = pool_tiles(demo, "maximum" + grid, grey, Pooling::kMaximum, side, side);
  Tensor const mean = pool_tiles(demo, "average" + grid, grey, Pooling::kAverage, side, side);
  return {weighted_sum(demo, "contrast" + grid, most, 1 / 12.0f, mean, -1 / 12.0f),
          weighted_sum(demo, "brightness" + grid, mean, 3 / 24.0f, most, -2 / 24.0f)};
}

/// Boxes of all maps, behind them their variances.
Tensor prior_boxes(Demo &demo, const Cells (&maps)[2]) {
  Tensor priors({4, kBoxes, 2, 1}, kFloats);
  uint64_t out = priors.address();
  for (size_t i = 0; i < std::size(kMaps); ++i) {
    FeatureMap const &map = kMaps[i];
    _NN_PRIORBOX_PARM block = {};
    block.out_addr = out;
    block.in_width = block.in_height = map.cells;
    block.img_width = block.img_height = kSide;
    block.variance_ofs = priors.channel_bytes();
    block.min_sizes[0] = map.least;
    block.max_sizes[0] = map.greatest;
    block.min_size_num = block.max_size_num = 1;
    block.aspect_ratios[0] = 2;
    block.aspect_ratios_num = 1;
    block.flip = block.clip = 1;
    block.variances[0] = block.variances[1] = 0.1f;
    block.variances[2] = block.variances[3] = 0.2f;
    block.variance_num = 4;
    block.offset = 0.5f;
    char name[32];
    std::snprintf(name, sizeof name, "prior boxes: %u x %u", unsigned{map.cells}, unsigned{map.cells});
    demo.run(name, tarvu_priorbox_process, block, maps[i].contrast, priors);
    out += uint64_t{map.cells} * map.cells * kBoxesACell * sizeof(Box);
  }
  return priors;
}

/// Scores of the classes, a line a box; the first box of a cell has a little more than the others.
Tensor confidences(Demo &demo, const Cells (&maps)[2]) {
  Tensor logits({kClasses, kBoxes, 1, 1}, kLogit);
  auto logit = logits.bytes.begin();
  for (const Cells &map : maps) {
    for (size_t cell = 0; cell < map.contrast.bytes.size(); ++cell) {
      for (int box = 0; box < static_cast<int>(kBoxesACell); ++box) {
        auto const less = [&](uint8_t byte) {
          return static_cast<uint8_t>(std::max<int>(INT8_MIN, static_cast<int8_t>(byte) - box));
        };
        *logit++ = kBackgroundLogit;
        *logit++ = less(map.contrast.bytes[cell]);
        *logit++ = less(map.brightness.bytes[cell]);
      }
    }
  }
  Tensor out(logits.shape, kFloats);
  std::vector<float> scratch(2 * logits.bytes.size());
  auto block = block_of<_NN_SOFTMAX_PARM>(logits, out);
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.in_scale.scale_value = block.out_scale.scale_value = 1;
  block.axis = 3;
  demo.run("softmax: classes of the boxes", tarvu_softmax_process, block, logits, out);
  return out;
}

/// Offsets of the boxes: the centre is drawn to the side that has more contrast.
Tensor locations(const Cells (&maps)[2]) {
  Tensor offsets({4, kBoxes, 1, 1}, kLocation);
  auto offset = offsets.bytes.begin();
  for (const Cells &map : maps) {
    int const cells = map.contrast.shape.width;
    auto const contrast = [&](int x, int y) {
      int const cell = std::clamp(y, 0, cells - 1) * cells + std::clamp(x, 0, cells - 1);
      return static_cast<int8_t>(map.contrast.bytes[static_cast<size_t>(cell)]);
    };
    for (int cell = 0; cell < cells * cells; ++cell) {
      int const x = cell % cells, y = cell / cells;
      for (uint32_t box = 0; box < kBoxesACell; ++box, offset += 4) {
        offset[0] = static_cast<uint8_t>((contrast(x + 1, y) - contrast(x - 1, y)) / 4);
        offset[1] = static_cast<uint8_t>((contrast(x, y + 1) - contrast(x, y - 1)) / 4);
      }
    }
  }
  return offsets;
}

struct Detections {
  Tensor records;            // a box and its score
  std::vector<Box> decoded;  // every box, moved by its offsets
};

Detections detect(Demo &demo, const Tensor &priors, const Tensor &scores, const Tensor &offsets) {
  Detections found;
  found.records = Tensor({5, kDetections, kClasses, 1}, kFloats);
  constexpr size_t kScratchBytes = (40 + 4 * kClasses + 88) * kBoxes + 24 * ((kBoxes + 3) / 4 * 4);
  std::vector<float> scratch(kScratchBytes / sizeof(float));
  _NN_DETOUT_PARM block = {};
  block.loc_addr = offsets.address();
  block.conf_addr = scores.address();
  block.prior_addr = priors.address();
  block.out_addr = found.records.address();
  block.work_buffer = reinterpret_cast<uintptr_t>(scratch.data());
  block.batch = 1;
  block.loc_fmt = offsets.format;
  block.loc_scale.scale_value = 1;
  block.num_classes = kClasses;
  block.num_priors = kBoxes;
  block.share_location = 1;
  block.background_label_id = kBackground;
  block.keep_top_k = kDetections;
  block.confidence_threshold = kLeastConfidence;
  block.nms_threshold = kOverlap;
  demo.run("detection: boxes of the picture", tarvu_detout_process, block, scores, found.records);

  // The decoded boxes stay in the scratch memory, behind the records of the locations and of the prior boxes.
  constexpr size_t kRecord = 5;
  const float *record = scratch.data() + 2 * kRecord * kBoxes;
  for (uint32_t i = 0; i < kBoxes; ++i, record += kRecord) {
    found.decoded.push_back({record[0], record[1], record[2], record[3]});
  }
  return found;
}

/// The boxes of the class `kContrast` that are left of all.
std::vector<Found> suppress(Demo &demo, const std::vector<Box> &boxes, const Tensor &scores) {
  std::vector<_NN_NMS_OBJ> objects;
  for (uint32_t i = 0; i < kBoxes; ++i) {
    float score;
    std::memcpy(&score, &scores.bytes[(size_t{kClasses} * i + kContrast) * sizeof score], sizeof score);
    if (score >= kLeastConfidence) {
      objects.push_back({boxes[i].left, boxes[i].top, boxes[i].right, boxes[i].bottom, score, i});
    }
  }
  Tensor in({sizeof(_NN_NMS_OBJ) / 4, static_cast<uint16_t>(objects.size()), 1, 1}, kFloats);
  if (!objects.empty()) std::memcpy(in.bytes.data(), objects.data(), in.bytes.size());
  Tensor const out = in;
  _NN_NMS_PARM block = {};
  block.nms_threshold = kOverlap;
  block.obj_num = static_cast<int32_t>(objects.size());
  block.max_obj_num = kMostKept;
  block.obj_addr = out.address();
  demo.run("nms: boxes of much contrast", tarvu_nms_process, block, in, out);

  // In place; a score below 0 is the end.
  if (!objects.empty()) std::memcpy(objects.data(), out.bytes.data(), out.bytes.size());
  std::vector<Found> kept;
  for (const _NN_NMS_OBJ &object : objects) {
    if (object.score < 0 || kept.size() == kMostKept) break;
    kept.push_back({{object.x1, object.y1, object.x2, object.y2}, kContrast, object.score});
  }
  return kept;
}

struct Label {
  const char *name;
  Colour colour;
};
constexpr Label kLabels[kClasses] = {{"background", {}}, {"contrast", {255, 210, 0}}, {"bright", {255, 120, 200}}};

/// Draws the frame of a box into an interleaved picture and returns where its text begins: above it.
Rectangle draw_frame(Tensor &picture, const Box &box, const Colour &colour) {
  int const width = picture.shape.height, height = picture.shape.channel;
  int const line = std::max(1, std::min(width, height) / 200);
  auto const place = [](float share, int extent) {
    return static_cast<int>(std::clamp(share, 0.0f, 1.0f) * static_cast<float>(extent - 1));
  };
  int const left = place(box.left, width), right = place(box.right, width) + 1;
  int const top = place(box.top, height), bottom = place(box.bottom, height) + 1;
  fill(picture, {left, top, right, top + line}, colour);
  fill(picture, {left, bottom - line, right, bottom}, colour);
  fill(picture, {left, top, left + line, bottom}, colour);
  fill(picture, {right - line, top, right, bottom}, colour);
  return {left, top, left, top};
}

/// Draws the frames of boxes into an interleaved picture, and above them their classes and scores, each where none is yet.
void draw(Tensor &picture, const std::vector<Found> &boxes) {
  int const width = picture.shape.height, height = picture.shape.channel;
  int const dot = std::max(1, std::min(width, height) / 480);
  int const text_height = dot * kTextHeight;
  std::vector<Rectangle> places;
  for (const Found &found : boxes) places.push_back(draw_frame(picture, found.box, kLabels[found.box_class].colour));

  for (size_t i = 0; i < boxes.size(); ++i) {
    char text[32];
    std::snprintf(text, sizeof text, "%s %.2f", kLabels[boxes[i].box_class].name, static_cast<double>(boxes[i].score));
    Rectangle &place = places[i];
    int const text_places = dot * (text_width(text) + 2);
    place.left = std::clamp(place.left, 0, std::max(0, width - text_places));
    place.right = place.left + text_places;
    auto const is_taken = [&](const Rectangle &other) {
      return place.left < other.right && other.left < place.right && place.top < other.bottom &&
             other.top < place.bottom;
    };
    do {
      place.bottom = place.top;
      place.top -= text_height;
    } while (place.top >= text_height &&
             std::any_of(places.begin(), places.begin() + static_cast<ptrdiff_t>(i), is_taken));
    place.top = std::max(0, place.top);
    place.bottom = place.top + text_height;
    fill(picture, place, kLabels[boxes[i].box_class].colour);
    write_text(picture, place.left + dot, place.top + 2 * dot, width, dot, text, {0, 0, 0});
  }
}

/// The boxes of the output records.
std::vector<Found> found_in(const Tensor &records) {
  std::vector<Found> boxes;
  for (uint32_t i = 0; i < (kClasses - 1) * kDetections; ++i) {
    struct {
      Box box;
      float score;
    } record;
    std::memcpy(&record, &records.bytes[i * sizeof record], sizeof record);
    if (record.score < 0) continue;  // a record that fills up
    boxes.push_back({record.box, kContrast + i / kDetections, record.score});
  }
  return boxes;
}

}  // namespace

void detection_stages(Demo &demo, const Tensor &picture) {
  Tensor const grey = detector_picture(demo, picture);
  Cells const maps[2] = {look_at_cells(demo, grey, kMaps[0].cells), look_at_cells(demo, grey, kMaps[1].cells)};
  Tensor const priors = prior_boxes(demo, maps);
  Tensor const scores = confidences(demo, maps);
  Detections const found = detect(demo, priors, scores, locations(maps));
  std::vector<Found> const kept = suppress(demo, found.decoded, scores);

  Tensor boxes = picture;
  std::vector<Found> const records = found_in(found.records);
  draw(boxes, records);
  demo.show("boxes", boxes, "class and score, by detection output");
  Tensor more_boxes = picture;
  draw(more_boxes, kept);
  demo.show("boxes by nms", more_boxes, "the class \"contrast\" alone, by nms");
  demo.report("of " + std::to_string(kBoxes) + " boxes detection output found " + std::to_string(records.size()) +
              ", nms " + std::to_string(kept.size()) + " of the class \"contrast\" alone");
}

}  // namespace demo
