/* Lays out an arena for three layers before any memory exists, and asks what is wrong with a block. */
#include <stdio.h>

#include "tarvu.h"
#include "tarvu_contract.h"

/* What a block means, for the function of that name. */
static tarvu_contract_call call_of(const char *function, const void *block) {
  tarvu_contract_call call = {tarvu_contract_function(function), 0, {(uintptr_t)block}};
  return call;
}

static void print_layer(const char *function, const void *block) {
  const tarvu_contract_call call = call_of(function, block);
  tarvu_contract_range ranges[8];
  const size_t count = tarvu_contract_ranges(&call, TARVU_CONTRACT_WITHOUT_ADDRESSES, 0, ranges, 8);
  printf("%s:", function);
  for (size_t i = 0; i < count && i < 8; ++i) {
    printf(" %s %d", ranges[i].field, (int)tarvu_contract_range_bytes(&ranges[i]));
  }
  printf("\n");
}

int main(void) {
  const _NN_FMT bytes = {.frac_bits = 0, .int_bits = 8, .sign_bits = 0};

  /* Windows of 2 x 2 of an image of 8 x 6 in lines of 16 bytes, its axes exchanged, and the three largest of it. */
  _NN_POOL_PARM pool = {.width = 8, .height = 6, .channel = 1, .batch = 1, .in_fmt = bytes, .out_fmt = bytes};
  pool.in_line_ofs = 16;
  pool.out_line_ofs = 4;
  pool.kernel_w = pool.kernel_h = pool.stride_w = pool.stride_h = 2;
  _NN_PERMUTE_PARM permute = {.width = 4, .height = 3, .channel = 1, .batch = 1, .in_fmt = bytes, .out_fmt = bytes};
  permute.in_line_ofs = 4;
  permute.out_line_ofs = 3;
  permute.order[1] = 1;
  permute.order[2] = 3;
  permute.order[3] = 2;
  _NN_TOPK_PARM largest = {.width = 12, .height = 1, .channel = 1, .batch = 1, .in_fmt = bytes, .axis = 3};
  largest.largest = largest.sorted = 1;
  largest.k = 3;

  print_layer("tarvu_pool_process", &pool);
  print_layer("tarvu_permute_process", &permute);
  print_layer("tarvu_topk_process", &largest);

  pool.out_line_ofs = 3; /* lines of four outputs */
  const tarvu_contract_call call = call_of("tarvu_pool_process", &pool);
  tarvu_contract_finding finding;
  if (tarvu_contract_findings(&call, TARVU_CONTRACT_WITHOUT_ADDRESSES, &finding, 1) != 0) {
    printf("%s: %s\n", finding.id, finding.sentence);
  }
  return 0;
}
