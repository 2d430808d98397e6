/// \file detection.c
/// Examples of the detector's operators.

#include "examples.h"

static void priorbox(void) {
  //! [priorbox]
  struct {
    float boxes[8], variances[8];
  } out;
  _NN_PRIORBOX_PARM layer = {0};
  layer.out_addr = (uintptr_t)&out;
  layer.variance_ofs = offsetof(__typeof__(out), variances);
  layer.in_width = 2;  // two cells side by side
  layer.in_height = 1;
  layer.img_width = layer.img_height = 64;
  layer.min_sizes[0] = 16.0f;
  layer.min_size_num = 1;
  layer.aspect_ratios[0] = 1.0f;  // square, which every box size gives anyway
  layer.aspect_ratios_num = 1;
  layer.variances[0] = layer.variances[1] = 0.125f;
  layer.variances[2] = layer.variances[3] = 0.25f;
  layer.variance_num = 4;
  layer.offset = 0.5f;
  IS(tarvu_priorbox_process(&layer), QX_OK);
  GIVES(out.boxes, 0.125f, 0.375f, 0.375f, 0.625f, 0.625f, 0.375f, 0.875f, 0.625f);
  GIVES(out.variances, 0.125f, 0.125f, 0.25f, 0.25f, 0.125f, 0.125f, 0.25f, 0.25f);
  //! [priorbox]
}

static void detection_output(void) {
  //! [detection_output]
  const float prior[5] = {0.25f, 0.25f, 0.5f, 0.5f, 0.0f};
  const float variances[4] = {0.5f, 0.5f, 0.5f, 0.5f}, location[5] = {0.25f, 0.0f, -0.25f, 0.0f, 0.0f};
  float box[5] = {0};
  DecodeBBoxes(prior, variances, 1, 0, 0, location, box, 1, 1);  // corners
  GIVES(box, 0.375f, 0.25f, 0.375f, 0.5f, 0.0f);
  DecodeBBoxes(prior, variances, 2, 0, 0, location, box, 1, 1);  // corners, in units of the prior box
  GIVES(box, 0.28125f, 0.25f, 0.46875f, 0.5f, 0.0f);
  //! [detection_output]
}

static void detection_records(void) {
  //! [detection_records]
  enum { kPriors = 2, kClasses = 3, kMost = 5 };  // class 0 is the background
  const float priors[2 * kPriors][4] = {{0.0f, 0.0f, 0.25f, 0.25f}, {0.5f, 0.5f, 1.0f, 1.0f}};  // variances of 0
  const float locations[kPriors][4] = {{0.0f}},
              confidences[kPriors][kClasses] = {{0.25f, 0.0f, 0.75f}, {0.0f, 0.5f, 0.5f}};
  float out[kMost * kClasses][5];
  float scratch[((40 + 4 * kClasses + 88) * kPriors + 24 * 4) / sizeof(float)];
  _NN_DETOUT_PARM layer = {0};
  layer.loc_addr = (uintptr_t)locations;
  layer.conf_addr = (uintptr_t)confidences;
  layer.prior_addr = (uintptr_t)priors;
  layer.out_addr = (uintptr_t)out;
  layer.work_buffer = (uintptr_t)scratch;
  layer.batch = 1;
  layer.loc_fmt = format(0, 31, 1);  // floats
  layer.num_classes = kClasses;
  layer.num_priors = kPriors;
  layer.share_location = 1;
  layer.code_type = 1;  // corners
  layer.keep_top_k = kMost;
  layer.confidence_threshold = 0.375f;
  layer.nms_threshold = 0.5f;
  IS(tarvu_detout_process(&layer), QX_OK);
  int boxes[kClasses - 1];
  for (int i = 0; i < kClasses - 1; ++i) {
    const float(*records)[5] = &out[5 * i];
    for (boxes[i] = 0; boxes[i] < kMost && records[boxes[i]][4] >= 0.0f;) ++boxes[i];
  }
  GIVES(boxes, 1, 2);                                // classes 1 and 2
  GIVES(out[5], 0.0f, 0.0f, 0.25f, 0.25f, 0.75f);    // the best of class 2
  GIVES(out[7], -1.0f, -1.0f, -1.0f, -1.0f, -1.0f);  // fills up

  // More than five boxes a class: one class at a time, its confidences one behind the other.
  const float class_2[kPriors] = {0.75f, 0.5f};
  layer.conf_addr = (uintptr_t)class_2;
  layer.num_classes = 1;
  layer.background_label_id = -1;
  layer.keep_top_k = 10;
  IS(tarvu_detout_process(&layer), QX_OK);
  int count = 0;
  while (count < 10 && out[count][4] > 0.0f) ++count;
  IS(count, 2);
  //! [detection_records]
}

static void nms(void) {
  //! [nms]
  _NN_NMS_OBJ boxes[3] = {
      {1.0f, 1.0f, 11.0f, 11.0f, 0.75f, 1},  // shares 81 of 119 units with the next one
      {0.0f, 0.0f, 10.0f, 10.0f, 0.875f, 2},
      {20.0f, 0.0f, 30.0f, 10.0f, 0.5f, 3},
  };
  IS(nms_process_c(boxes, 3, 3, 0.5f), 2);
  IS(boxes[0].obj_tag, 2);
  IS(boxes[1].obj_tag, 3);
  IS(boxes[2].score < 0, 1);  // dead
  //! [nms]
}

void detection_examples(void) {
  priorbox();
  detection_output();
  detection_records();
  nms();
}
