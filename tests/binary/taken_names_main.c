/* Calls the library by address from a program that exports a function of its own under every name of the library.
   The calls that the library makes to itself must stay inside it. */

#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "tarvu.h"

static int captured_calls;

/* What the program's own functions do; they stand in a file made of the list of names. */
void report_captured_call(const char *name);
void report_captured_call(const char *name) {
  ++captured_calls;
  printf("captured: %s\n", name);
}

static uint64_t address_of(const void *data) { return (uint64_t)(uintptr_t)data; }

/* Asks for the type code and re-formats. */
static int reverse_is_right(void *function) {
  _QX_RESULT (*process)(const _NN_REVERSE_PARM *);
  memcpy(&process, &function, sizeof process);
  int8_t const in[4] = {1, 2, -3, 100};
  int8_t out[4] = {0};
  _NN_REVERSE_PARM parm = {0};
  parm.in_addr = address_of(in);
  parm.out_addr = address_of(out);
  parm.width = 4;
  parm.height = parm.channel = parm.batch = 1;
  parm.in_line_ofs = parm.in_channel_ofs = parm.in_batch_ofs = sizeof in;
  parm.out_line_ofs = parm.out_channel_ofs = parm.out_batch_ofs = sizeof out;
  parm.in_fmt = (_NN_FMT){4, 3, 1, 0};
  parm.out_fmt = (_NN_FMT){5, 2, 1, 0};
  parm.axis = 3;
  int8_t const expected[4] = {127, -6, 4, 2};
  return process(&parm) == QX_OK && memcmp(out, expected, sizeof out) == 0;
}

/* Asks for both type codes and re-formats. */
static int permute_is_right(void *function) {
  _QX_RESULT (*process)(const _NN_PERMUTE_PARM *);
  memcpy(&process, &function, sizeof process);
  int8_t const in[4] = {1, 2, -3, 100};
  int8_t out[4] = {0};
  _NN_PERMUTE_PARM parm = {0};
  parm.in_addr = address_of(in);
  parm.out_addr = address_of(out);
  parm.width = parm.height = 2;
  parm.channel = parm.batch = 1;
  parm.in_line_ofs = parm.out_line_ofs = 2;
  parm.in_channel_ofs = parm.in_batch_ofs = parm.out_channel_ofs = parm.out_batch_ofs = sizeof in;
  parm.in_fmt = (_NN_FMT){4, 3, 1, 0};
  parm.out_fmt = (_NN_FMT){5, 2, 1, 0};
  parm.order[0] = 0;
  parm.order[1] = 1;
  parm.order[2] = 3;
  parm.order[3] = 2;
  int8_t const expected[4] = {2, -6, 4, 127};
  return process(&parm) == QX_OK && memcmp(out, expected, sizeof out) == 0;
}

static const struct {
  const char *name;
  int (*is_right)(void *function);
} kCalls[] = {
    {"tarvu_reverse_process", reverse_is_right},
    {"tarvu_permute_process", permute_is_right},
};

int main(int argc, char **argv) {
  void *library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : NULL;
  if (library == NULL) {
    printf("no library: %s\n", argc == 2 ? dlerror() : "name one");
    return 2;
  }
  int wrong = 0;
  for (size_t i = 0; i < sizeof kCalls / sizeof kCalls[0]; ++i) {
    void *function = dlsym(library, kCalls[i].name);
    int const right = function != NULL && kCalls[i].is_right(function);
    printf("%s: %s\n", kCalls[i].name, function == NULL ? "missing" : right ? "right" : "wrong");
    wrong += !right;
  }
  printf("%d captured calls\n", captured_calls);
  return wrong == 0 && captured_calls == 0 ? 0 : 1;
}
