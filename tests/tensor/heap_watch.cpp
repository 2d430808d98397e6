#include "tests/tensor/heap_watch.h"

extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void __real_free(void *address);
void *__wrap_malloc(size_t bytes);
void *__wrap_calloc(size_t count, size_t bytes);
void __wrap_free(void *address);
}

namespace selection_test {
namespace {

constexpr size_t kMostCalls = 64;

struct Record {
  bool is_recording = false;
  int fail_at = 0;
  int allocations = 0;
  size_t count = 0;
  HeapCall calls[kMostCalls];
};

thread_local Record record;

void note(HeapCall call) {
  if (record.count < kMostCalls) record.calls[record.count++] = call;
}

bool is_to_fail() { return ++record.allocations == record.fail_at; }

}  // namespace

HeapWatch::HeapWatch(int fail_at) {
  record.fail_at = fail_at;
  record.allocations = 0;
  record.count = 0;
  record.is_recording = true;
}

HeapWatch::~HeapWatch() {
  record.is_recording = false;
  for (size_t i = 0; i < record.count; ++i) {
    void *address = record.calls[i].address;
    bool is_held = record.calls[i].kind != HeapCall::kFree && address != nullptr;
    for (size_t j = i + 1; j < record.count; ++j) {
      if (record.calls[j].kind == HeapCall::kFree && record.calls[j].address == address) is_held = false;
    }
    if (is_held) __real_free(address);
  }
}

std::vector<HeapCall> HeapWatch::calls() {
  record.is_recording = false;
  return {record.calls, record.calls + record.count};
}

}  // namespace selection_test

using selection_test::HeapCall;
using selection_test::record;

void *__wrap_malloc(size_t bytes) {
  if (!record.is_recording) return __real_malloc(bytes);
  void *address = selection_test::is_to_fail() ? nullptr : __real_malloc(bytes);
  selection_test::note({HeapCall::kMalloc, bytes, address});
  return address;
}

void *__wrap_calloc(size_t count, size_t bytes) {
  if (!record.is_recording) return __real_calloc(count, bytes);
  void *address = selection_test::is_to_fail() ? nullptr : __real_calloc(count, bytes);
  selection_test::note({HeapCall::kCalloc, count * bytes, address});
  return address;
}

void __wrap_free(void *address) {
  if (record.is_recording) selection_test::note({HeapCall::kFree, 0, address});
  __real_free(address);
}
