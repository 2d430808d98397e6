/* Scratch bytes of a Top-K layer before any memory exists, from the library that knows what a block means. */
#include <stdint.h>
#include <stdio.h>

#include <tarvu.h>
#include <tarvu_contract.h>

int main(void) {
  _NN_TOPK_PARM layer = {0};
  layer.in_fmt.int_bits = 8;
  layer.width = 5;
  layer.height = layer.channel = layer.batch = 1;
  layer.axis = 3;
  layer.k = 2;
  tarvu_contract_call call = {tarvu_contract_function("tarvu_topk_process"), 0, {(uintptr_t)&layer}};
  printf("scratch: %d bytes\n", (int)tarvu_contract_scratch_bytes(&call));
  return 0;
}
