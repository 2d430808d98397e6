/* Half of each byte, by one fraction bit less in a format of the same width. */
#include <stdint.h>
#include <stdio.h>

#include <tarvu.h>

int main(void) {
  const int8_t in[4] = {10, -10, 7, -7};
  int8_t out[4];
  const _NN_FMT in_fmt = {2, 5, 1, 0}, out_fmt = {1, 6, 1, 0};
  const _NN_SCALE one = {1, 0, {0}};

  tarvu_convert_fmt_c(in, out, 4, &in_fmt, &out_fmt, &one, &one);
  printf("version %s: %d %d %d %d\n", prebuilt_ai_get_lib_version(), out[0], out[1], out[2], out[3]);
  return 0;
}
