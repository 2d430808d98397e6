/// \file small_stack.h
/// Runs a call on a 64 KiB stack that faults below its end, as the threads of an embedded system have it.
#ifndef TARVU_TESTS_DETECTION_SMALL_STACK_H
#define TARVU_TESTS_DETECTION_SMALL_STACK_H

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace small_stack {

inline constexpr size_t kStackBytes = 64 * 1024;

/// What the entry point of a context runs; makecontext() passes integers only.
template <class Call>
struct Pending {
  static inline Call *call = nullptr;
  static void run() { (*call)(); }
};

template <class Call>
void run(Call call) {
  const auto page_bytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t mapping_bytes = kStackBytes + page_bytes;
  void *mapping = mmap(nullptr, mapping_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED || mprotect(mapping, page_bytes, PROT_NONE) != 0) std::abort();

  ucontext_t here{};
  ucontext_t there{};
  if (getcontext(&there) != 0) std::abort();
  there.uc_stack.ss_sp = static_cast<uint8_t *>(mapping) + page_bytes;
  there.uc_stack.ss_size = kStackBytes;
  there.uc_link = &here;
  Pending<Call>::call = &call;
  makecontext(&there, &Pending<Call>::run, 0);
  if (swapcontext(&here, &there) != 0) std::abort();
  munmap(mapping, mapping_bytes);
}

}  // namespace small_stack

#endif  // TARVU_TESTS_DETECTION_SMALL_STACK_H
