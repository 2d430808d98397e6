#include "bench/bench.h"

// The bodies differ, so that no compiler folds the two symbols into one.

extern "C" __attribute__((noinline, used)) void bench_mark_begin() { __asm__ volatile("" : : "r"(1) : "memory"); }

extern "C" __attribute__((noinline, used)) void bench_mark_end() { __asm__ volatile("" : : "r"(2) : "memory"); }
