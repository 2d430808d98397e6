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
  nms();
}
