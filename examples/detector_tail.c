/* The tail of a detector: four prior boxes and two classes, of which class 0 is the background. The predictions become boxes by
   detection output; another suppression with a smaller overlap thins them out. */
#include <stdio.h>
#include <stdlib.h>

#include "tarvu.h"

enum { kPriors = 4, kClasses = 2, kMost = 3 };

int main(void) {
  static const float priors[2 * kPriors][4] = {
      {0.1f, 0.1f, 0.5f, 0.5f}, {0.12f, 0.1f, 0.52f, 0.5f}, {0.3f, 0.1f, 0.7f, 0.5f}, {0.6f, 0.6f, 0.9f, 0.9f},
      {0.1f, 0.1f, 0.2f, 0.2f}, {0.1f, 0.1f, 0.2f, 0.2f},   {0.1f, 0.1f, 0.2f, 0.2f}, {0.1f, 0.1f, 0.2f, 0.2f},
  };
  static const float locations[kPriors][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0.5f, -0.5f, 0, 0}};
  static const float confidences[kPriors][kClasses] = {{0.2f, 0.8f}, {0.1f, 0.9f}, {0.4f, 0.6f}, {0.3f, 0.7f}};
  float out[kClasses * 20][5]; /* an item takes at least keep_top_k * classes * 20 bytes, and 5 records a class */

  _NN_DETOUT_PARM layer = {0};
  layer.loc_addr = (uintptr_t)locations;
  layer.conf_addr = (uintptr_t)confidences;
  layer.prior_addr = (uintptr_t)priors;
  layer.out_addr = (uintptr_t)out;
  layer.batch = 1;
  layer.loc_fmt = (_NN_FMT){.frac_bits = 0, .int_bits = 31, .sign_bits = 1};
  layer.num_classes = kClasses;
  layer.num_priors = kPriors;
  layer.share_location = 1;
  layer.background_label_id = 0;
  layer.code_type = 0; /* centre and size */
  layer.keep_top_k = kMost;
  layer.confidence_threshold = 0.5f;
  layer.nms_threshold = 0.75f;
  void *scratch = malloc((40 + 4 * kClasses + 88) * kPriors + 24 * ((kPriors + 3) / 4 * 4));
  if (!scratch) {
    return 1;
  }
  layer.work_buffer = (uintptr_t)scratch;
  _QX_RESULT const result = tarvu_detout_process(&layer);
  free(scratch);
  if (result != QX_OK) {
    return 1;
  }

  _NN_NMS_OBJ boxes[kMost] = {{0}};
  _NN_NMS_PARM again = {.nms_threshold = 0.25f, .max_obj_num = kMost, .obj_addr = (uintptr_t)boxes};
  for (int i = 0; i < kMost && out[i][4] > 0; ++i, ++again.obj_num) { /* records of -1 fill up */
    printf("%.3f at %.3f %.3f %.3f %.3f\n", out[i][4], out[i][0], out[i][1], out[i][2], out[i][3]);
    boxes[i] = (_NN_NMS_OBJ){out[i][0], out[i][1], out[i][2], out[i][3], out[i][4], (uint32_t)i};
  }
  tarvu_nms_process(&again); /* prints how many are left */
  for (int i = 0; i < again.obj_num && boxes[i].score > 0; ++i) {
    printf("box %u is left\n", (unsigned)boxes[i].obj_tag);
  }
  return 0;
}
