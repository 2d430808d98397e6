/* What is said of a layer that nobody has given a format. */
#include <stdint.h>
#include <stdio.h>

#include <tarvu.h>
#include <tarvu_contract.h>

int main(void) {
  const _NN_REVERSE_PARM layer = {0};
  tarvu_contract_call call = {tarvu_contract_function("tarvu_reverse_process"), 0, {(uintptr_t)&layer}};
  tarvu_contract_finding finding;
  if (tarvu_contract_findings(&call, 0, &finding, 1) == 1) {
    printf("%s: %s\n", finding.id, finding.sentence);
  }
  return 0;
}
