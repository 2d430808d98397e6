/* The two largest of five bytes and where they are. */
#include <stdint.h>
#include <stdio.h>

#include <tarvu.h>

int main(void) {
  const uint8_t in[5] = {3, 7, 1, 9, 7};
  uint8_t values[2];
  uint16_t places[2];
  uint32_t scratch[5];

  _NN_TOPK_PARM layer = {0};
  layer.in_addr = (uintptr_t)in;
  layer.out_addr = (uintptr_t)values;
  layer.out_index_addr = (uintptr_t)places;
  layer.work_buffer = (uintptr_t)scratch;
  layer.in_fmt.int_bits = 8;
  layer.width = 5;
  layer.height = layer.channel = layer.batch = 1;
  layer.axis = 3;
  layer.largest = layer.sorted = 1;
  layer.k = 2;
  if (tarvu_topk_process(&layer) != QX_OK) {
    return 1;
  }
  printf("largest: %d at %d, %d at %d\n", values[0], places[0], values[1], places[1]);
  return 0;
}
