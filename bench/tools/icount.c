/// \file icount.c
/// Plugin of the user-mode emulator (QEMU 7.2, plugin interface version 1): counts the instructions that a program
/// executes between its calls of two marker functions.
///
///   qemu-aarch64 -plugin libtarvu_icount.so,begin=bench_mark_begin,end=bench_mark_end -d plugin -D report.txt program
///
/// The program must keep its symbol table. Every section from one marker to the other adds a line to the report:
///   icount total=N vec=N ld=N st=N br=N other=N
/// by class of the A64 encoding: vec is SIMD and floating-point data processing; ld and st are loads and stores of any
/// register, one for each instruction; br is branches, exceptions and system. With dump=1 the 40 hottest blocks follow,
/// with the symbol that each lies in. With counts=1 the line is "icount total=N" alone, which takes the emulator a fifth
/// of the time.
///
/// With windows=N, N stretches of the sequence of blocks that was executed follow instead, spread evenly over the
/// section, and the blocks that they are made of:
///   block NUMBER hits=N symbol=NAME code=WORD,WORD,..
///   window NUMBER NUMBER .. | NUMBER NUMBER ..     blocks that warm a processor up, then those to be measured
///
/// Distributions build the emulator with plugins but do not ship the header, so what is used of it is declared here.
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef void (*block_translated)(qemu_plugin_id_t, struct qemu_plugin_tb *);
typedef void (*code_executed)(unsigned, void *);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t, block_translated);
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb *, code_executed, int flags, void *);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *, int operation, void *, uint64_t);
void qemu_plugin_register_vcpu_insn_exec_cb(struct qemu_plugin_insn *, code_executed, int flags, void *);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *);
struct qemu_plugin_insn *qemu_plugin_tb_get_insn(const struct qemu_plugin_tb *, size_t);
const void *qemu_plugin_insn_data(const struct qemu_plugin_insn *);
uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn *);
const char *qemu_plugin_insn_symbol(const struct qemu_plugin_insn *);
void qemu_plugin_outs(const char *);

#define TARVU_PLUGIN_EXPORT __attribute__((visibility("default")))
TARVU_PLUGIN_EXPORT int qemu_plugin_version = 1;
TARVU_PLUGIN_EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv);

enum { kVector, kLoad, kStore, kBranch, kOther, kClasses };
enum { kAddInline = 0, kWarmUp = 256, kMeasured = 768 };  // instructions
enum { kHottestBlocks = 40, kLineBytes = 512, kSymbolBytes = 384 };

/// A translated run of instructions that is entered at its top only.
struct block {
  uint64_t address;
  uint32_t instructions;
  uint32_t of_class[kClasses];
  uint64_t hits;  // since the section began
  uint32_t number;
  bool is_in_window;
  uint32_t *code;  // null if it is not wanted
  char symbol[kSymbolBytes];
  struct block *next;
};

static const char *begin_symbol = "bench_mark_begin";
static const char *end_symbol = "bench_mark_end";
static bool dump_blocks;
static bool only_counts;
static int windows_wanted;
static bool counting;
static struct block *all_blocks;
static struct block **by_number;
static uint32_t block_count;
static uint32_t *sequence;  // numbers of the blocks executed since the section began, if windows are wanted
static size_t sequence_length;
static size_t sequence_room;
static uint64_t total;
static uint64_t executed;  // by only_counts, since the program began
static uint64_t total_of_class[kClasses];

static uint32_t bits(uint32_t word, unsigned first, unsigned count) { return (word >> first) & ((1u << count) - 1u); }

/// By the top-level fields of the A64 encoding.
static unsigned classify(uint32_t word) {
  const uint32_t group = bits(word, 25, 4);
  if (group == 7 || group == 15) return kVector;
  if ((group & 14) == 10) return kBranch;
  if ((group & 5) != 4) return kOther;
  if ((bits(word, 24, 8) & 0x3B) == 0x18) return kLoad;                   // literal
  if (bits(word, 27, 3) == 5) return bits(word, 22, 1) ? kLoad : kStore;  // pairs
  if (bits(word, 27, 3) == 7) {
    const uint32_t operation = bits(word, 22, 2);
    const bool stores_16_bytes = operation == 2 && bits(word, 26, 1) == 1 && bits(word, 30, 2) == 0;
    return operation == 0 || stores_16_bytes ? kStore : kLoad;
  }
  return bits(word, 22, 1) ? kLoad : kStore;  // exclusive, and structures
}

static void *larger(void *memory, size_t bytes) {
  void *grown = realloc(memory, bytes);
  if (grown == NULL) abort();
  return grown;
}

static void append_to_sequence(uint32_t number) {
  if (sequence_length == sequence_room) {
    sequence_room = sequence_room == 0 ? 1u << 20 : 2 * sequence_room;
    sequence = larger(sequence, sequence_room * sizeof *sequence);
  }
  sequence[sequence_length++] = number;
}

static void block_executed(unsigned processor, void *data) {
  struct block *b = data;
  (void)processor;
  if (!counting) return;
  ++b->hits;
  total += b->instructions;
  for (int i = 0; i < kClasses; ++i) total_of_class[i] += b->of_class[i];
  if (windows_wanted != 0) append_to_sequence(b->number);
}

static int hotter_first(const void *a, const void *b) {
  const struct block *x = *(struct block *const *)a;
  const struct block *y = *(struct block *const *)b;
  const uint64_t of_x = x->hits * x->instructions;
  const uint64_t of_y = y->hits * y->instructions;
  return of_x < of_y ? 1 : of_x > of_y ? -1 : 0;
}

static void print_code(const struct block *b) {
  char word[16];
  for (uint32_t k = 0; b->code != NULL && k < b->instructions; ++k) {
    snprintf(word, sizeof word, "%s%08" PRIx32, k == 0 ? " code=" : ",", b->code[k]);
    qemu_plugin_outs(word);
  }
  qemu_plugin_outs("\n");
}

static void report_blocks(void) {
  size_t count = 0;
  for (struct block *b = all_blocks; b != NULL; b = b->next) count += b->hits != 0;
  struct block **sorted = malloc((count + 1) * sizeof *sorted);
  if (sorted == NULL) return;
  count = 0;
  for (struct block *b = all_blocks; b != NULL; b = b->next) {
    if (b->hits != 0) sorted[count++] = b;
  }
  qsort(sorted, count, sizeof *sorted, hotter_first);
  for (size_t i = 0; i < count && i < kHottestBlocks; ++i) {
    const struct block *b = sorted[i];
    const double share = 100.0 * (double)(b->hits * b->instructions) / (double)total;
    char line[kLineBytes];
    snprintf(line, sizeof line, "  %5.2f%% %#" PRIx64 " insns=%" PRIu32 " hits=%" PRIu64 " %s\n", share, b->address,
             b->instructions, b->hits, b->symbol);
    qemu_plugin_outs(line);
  }
  free(sorted);
}

/// One window from `first` of the sequence on; returns where it ends and adds its instructions to `*executed_so_far`.
static size_t report_window(size_t first, uint64_t *executed_so_far) {
  char number[16];
  uint64_t length = 0;
  bool warm = false;
  qemu_plugin_outs("window");
  for (; first < sequence_length && length < kWarmUp + kMeasured; ++first) {
    struct block *b = by_number[sequence[first]];
    if (!warm && length >= kWarmUp) {
      qemu_plugin_outs(" |");
      warm = true;
    }
    snprintf(number, sizeof number, " %" PRIu32, b->number);
    qemu_plugin_outs(number);
    b->is_in_window = true;
    length += b->instructions;
  }
  qemu_plugin_outs("\n");
  *executed_so_far += length;
  return first;
}

/// One window in each of as many equal parts of the section, at a place that is the same in every run.
static void report_windows(void) {
  const uint64_t part = total / (uint64_t)windows_wanted;
  const uint64_t room = part > kWarmUp + kMeasured ? part - kWarmUp - kMeasured : 1;
  uint64_t seed = 88172645463325252u;  // xorshift
  uint64_t executed_so_far = 0;
  size_t at = 0;
  for (int i = 0; i < windows_wanted && at < sequence_length; ++i) {
    seed ^= seed << 13;
    seed ^= seed >> 7;
    seed ^= seed << 17;
    const uint64_t start = (uint64_t)i * part + seed % room;
    for (; at < sequence_length && executed_so_far < start; ++at) {
      executed_so_far += by_number[sequence[at]]->instructions;
    }
    at = report_window(at, &executed_so_far);
  }
  for (struct block *b = all_blocks; b != NULL; b = b->next) {
    if (!b->is_in_window) continue;
    char line[kLineBytes];
    snprintf(line, sizeof line, "block %" PRIu32 " hits=%" PRIu64 " symbol=%s", b->number, b->hits, b->symbol);
    qemu_plugin_outs(line);
    print_code(b);
    b->is_in_window = false;
  }
  sequence_length = 0;
}

static void section_begins(unsigned processor, void *data) {
  (void)processor;
  (void)data;
  counting = true;
  executed = 0;
}

static void section_ends(unsigned processor, void *data) {
  (void)processor;
  (void)data;
  if (!counting) return;
  counting = false;
  char line[kLineBytes];
  if (only_counts) {
    snprintf(line, sizeof line, "icount total=%" PRIu64 "\n", executed);
    qemu_plugin_outs(line);
    return;
  }
  snprintf(line, sizeof line,
           "icount total=%" PRIu64 " vec=%" PRIu64 " ld=%" PRIu64 " st=%" PRIu64 " br=%" PRIu64 " other=%" PRIu64 "\n",
           total, total_of_class[kVector], total_of_class[kLoad], total_of_class[kStore], total_of_class[kBranch],
           total_of_class[kOther]);
  qemu_plugin_outs(line);
  if (dump_blocks) report_blocks();
  if (windows_wanted != 0) report_windows();
  for (struct block *b = all_blocks; b != NULL; b = b->next) b->hits = 0;
  total = 0;
  memset(total_of_class, 0, sizeof total_of_class);
}

static void watch_for_marks(struct qemu_plugin_insn *first) {
  const char *symbol = qemu_plugin_insn_symbol(first);
  if (symbol == NULL) return;
  if (strcmp(symbol, begin_symbol) == 0) qemu_plugin_register_vcpu_insn_exec_cb(first, section_begins, 0, NULL);
  if (strcmp(symbol, end_symbol) == 0) qemu_plugin_register_vcpu_insn_exec_cb(first, section_ends, 0, NULL);
}

static void block_is_translated(qemu_plugin_id_t id, struct qemu_plugin_tb *translated) {
  (void)id;
  if (only_counts) {
    watch_for_marks(qemu_plugin_tb_get_insn(translated, 0));
    qemu_plugin_register_vcpu_tb_exec_inline(translated, kAddInline, &executed, qemu_plugin_tb_n_insns(translated));
    return;
  }
  struct block *b = calloc(1, sizeof *b);
  if (b == NULL) abort();
  const size_t count = qemu_plugin_tb_n_insns(translated);
  b->instructions = (uint32_t)count;
  b->number = block_count;
  if (windows_wanted != 0) {
    by_number = larger(by_number, (block_count + 1u) * sizeof *by_number);
    by_number[block_count] = b;
  }
  ++block_count;
  b->next = all_blocks;
  all_blocks = b;
  if (windows_wanted != 0) b->code = malloc(count * sizeof *b->code);
  for (size_t i = 0; i < count; ++i) {
    uint32_t word;
    memcpy(&word, qemu_plugin_insn_data(qemu_plugin_tb_get_insn(translated, i)), sizeof word);
    ++b->of_class[classify(word)];
    if (b->code != NULL) b->code[i] = word;
  }
  struct qemu_plugin_insn *first = qemu_plugin_tb_get_insn(translated, 0);
  b->address = qemu_plugin_insn_vaddr(first);
  const char *symbol = qemu_plugin_insn_symbol(first);
  if (symbol != NULL) strncpy(b->symbol, symbol, sizeof b->symbol - 1);
  watch_for_marks(first);
  qemu_plugin_register_vcpu_tb_exec_cb(translated, block_executed, 0, b);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv) {
  (void)info;
  for (int i = 0; i < argc; ++i) {
    if (strncmp(argv[i], "begin=", 6) == 0) {
      begin_symbol = strdup(argv[i] + 6);
    } else if (strncmp(argv[i], "end=", 4) == 0) {
      end_symbol = strdup(argv[i] + 4);
    } else if (strcmp(argv[i], "dump=1") == 0 || strcmp(argv[i], "dump=on") == 0) {
      dump_blocks = true;
    } else if (strcmp(argv[i], "counts=1") == 0 || strcmp(argv[i], "counts=on") == 0) {
      only_counts = true;
    } else if (strncmp(argv[i], "windows=", 8) == 0) {
      windows_wanted = atoi(argv[i] + 8);
    } else {
      fprintf(stderr, "icount: unknown argument %s\n", argv[i]);
      return 1;
    }
  }
  qemu_plugin_register_vcpu_tb_trans_cb(id, block_is_translated);
  return 0;
}
