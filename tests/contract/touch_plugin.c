/// \file touch_plugin.c
/// Plugin of the user-mode emulator (QEMU 7.2, plugin interface version 1): which bytes of one window of memory does a program load
/// and store between its calls of touch_mark_begin() and touch_mark_end()?
///
///   qemu-aarch64 -cpu cortex-a76 -plugin libtarvu_touch.so,first=ADDRESS,bytes=N,report=FILE program
///
/// At every end the plugin appends to the report, and flushes, one record an interval, in ascending order, first those read, then
/// those written: 64-bit words `first address`, `bytes`, `0 read or 1 written`; a record of three zeros ends the call. The program
/// can read it at once. The processor has to be one without SVE: what that stores the emulator does not report.
///
/// Distributions build the emulator with plugins but do not ship the header, so what is used of it is declared here.
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
typedef uint32_t qemu_plugin_meminfo_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef void (*block_translated)(qemu_plugin_id_t, struct qemu_plugin_tb *);
typedef void (*code_executed)(unsigned, void *);
typedef void (*memory_touched)(unsigned, qemu_plugin_meminfo_t, uint64_t, void *);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, block_translated);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn *, code_executed, int flags, void *);
void qemu_plugin_register_vcpu_mem_cb(struct qemu_plugin_insn *, memory_touched, int flags, int kinds, void *);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *);
struct qemu_plugin_insn *qemu_plugin_tb_get_insn(const struct qemu_plugin_tb *, size_t);
const char *qemu_plugin_insn_symbol(const struct qemu_plugin_insn *);
unsigned qemu_plugin_mem_size_shift(qemu_plugin_meminfo_t);
bool qemu_plugin_mem_is_store(qemu_plugin_meminfo_t);

#define TARVU_PLUGIN_EXPORT __attribute__((visibility("default")))
TARVU_PLUGIN_EXPORT int qemu_plugin_version = 1;
TARVU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv);

enum { kLoadsAndStores = 3, kRead = 1, kWritten = 2 };

static uint64_t window_first;
static uint64_t window_bytes;
static uint8_t *touched;  // a byte for each byte of the window
static uint64_t lowest;   // of the bytes touched since the last report
static uint64_t highest;  // behind the last one
static bool is_between;
static FILE *report;

static void on_access(unsigned processor, qemu_plugin_meminfo_t info, uint64_t address, void *data) {
  (void)processor;
  (void)data;
  const uint64_t at = address - window_first;
  if (!is_between || at >= window_bytes) return;
  const uint8_t kind = qemu_plugin_mem_is_store(info) ? kWritten : kRead;
  uint64_t end = at + (UINT64_C(1) << qemu_plugin_mem_size_shift(info));
  if (end > window_bytes) end = window_bytes;
  for (uint64_t i = at; i < end; ++i) touched[i] |= kind;
  if (at < lowest) lowest = at;
  if (end > highest) highest = end;
}

static void put_interval(uint64_t first, uint64_t bytes, uint64_t is_written) {
  const uint64_t words[] = {first, bytes, is_written};
  fwrite(words, sizeof words, 1, report);
}

static void put_intervals(uint8_t kind) {
  for (uint64_t i = lowest; i < highest; ++i) {
    if ((touched[i] & kind) == 0) continue;
    const uint64_t first = i;
    while (i < highest && (touched[i] & kind) != 0) ++i;
    put_interval(window_first + first, i - first, kind == kWritten);
  }
}

static void begin(unsigned processor, void *data) {
  (void)processor;
  (void)data;
  lowest = window_bytes;
  highest = 0;
  is_between = true;
}

static void end(unsigned processor, void *data) {
  (void)processor;
  (void)data;
  if (!is_between) return;
  is_between = false;
  put_intervals(kRead);
  put_intervals(kWritten);
  put_interval(0, 0, 0);
  fflush(report);
  if (lowest < highest) memset(touched + lowest, 0, highest - lowest);
}

static void block_is_translated(qemu_plugin_id_t id, struct qemu_plugin_tb *block) {
  (void)id;
  const size_t count = qemu_plugin_tb_n_insns(block);
  for (size_t i = 0; i < count; ++i) {
    struct qemu_plugin_insn *instruction = qemu_plugin_tb_get_insn(block, i);
    const char *symbol = i == 0 ? qemu_plugin_insn_symbol(instruction) : NULL;
    if (symbol != NULL && strcmp(symbol, "touch_mark_begin") == 0) {
      qemu_plugin_register_vcpu_insn_exec_cb(instruction, begin, 0, NULL);
    } else if (symbol != NULL && strcmp(symbol, "touch_mark_end") == 0) {
      qemu_plugin_register_vcpu_insn_exec_cb(instruction, end, 0, NULL);
    }
    qemu_plugin_register_vcpu_mem_cb(instruction, on_access, 0, kLoadsAndStores, NULL);
  }
}

int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv) {
  (void)info;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "first=", 6) == 0) {
      window_first = strtoull(argv[i] + 6, NULL, 0);
    } else if (strncmp(argv[i], "bytes=", 6) == 0) {
      window_bytes = strtoull(argv[i] + 6, NULL, 0);
    } else if (strncmp(argv[i], "report=", 7) == 0) {
      report = fopen(argv[i] + 7, "wb");
    } else {
      fprintf(stderr, "touch: unknown argument %s\n", argv[i]);
      return 1;
    }
  }
  touched = calloc(window_bytes == 0 ? 1 : window_bytes, 1);
  if (report == NULL || touched == NULL || window_bytes == 0) {
    fprintf(stderr, "touch: first=, bytes= and report= have to be given\n");
    return 1;
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, block_is_translated);
  return 0;
}
