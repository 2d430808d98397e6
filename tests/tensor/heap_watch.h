/// \file heap_watch.h
/// Watches, and fails at will, the heap calls of the code linked into the test program. The program is linked with
/// -Wl,--wrap=malloc,--wrap=calloc,--wrap=free; heap calls from shared libraries, printf's buffer among them, go
/// unseen.
#ifndef TARVU_TESTS_TENSOR_HEAP_WATCH_H
#define TARVU_TESTS_TENSOR_HEAP_WATCH_H

#include <cstddef>
#include <vector>

namespace selection_test {

struct HeapCall {
  enum Kind { kMalloc, kCalloc, kFree } kind;
  size_t bytes;   ///< taken; 0 for a free
  void *address;  ///< taken, or given to free
};

/// While it lives, heap calls of this thread are recorded. The blocks taken in that time and not given back are freed
/// at its end: what the operator leaves behind would otherwise be reported by a leak checker. Not nested.
class HeapWatch {
 public:
  /// `fail_at`: the allocation, counted from 1, that is to return a null pointer; 0 for none.
  explicit HeapWatch(int fail_at = 0);
  HeapWatch(const HeapWatch &) = delete;
  HeapWatch &operator=(const HeapWatch &) = delete;
  ~HeapWatch();

  /// Ends the recording and returns the calls in their order.
  std::vector<HeapCall> calls();
};

}  // namespace selection_test

#endif  // TARVU_TESTS_TENSOR_HEAP_WATCH_H
