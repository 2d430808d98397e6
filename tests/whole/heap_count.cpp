#include "tests/whole/heap_count.h"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace whole {
namespace {

constexpr size_t kMostCalls = 4096;

struct Call {
  const char *name;
  size_t bytes;
};

struct Record {
  size_t count;
  Call calls[kMostCalls];
};

thread_local Record record;

void note(const char *name, size_t bytes) {
  if (record.count == kMostCalls) std::abort();
  record.calls[record.count++] = {name, bytes};
}

void note_free(const void *address) {
  if (address != nullptr) note("free", 0);
}

}  // namespace

std::string take_heap_story() {
  std::string story;
  for (size_t i = 0; i < record.count; ++i) {
    const Call &call = record.calls[i];
    if (!story.empty()) story += ", ";
    story += call.name;
    if (call.bytes != 0) story += " " + std::to_string(call.bytes);
  }
  record.count = 0;
  return story;
}

}  // namespace whole

using whole::note;
using whole::note_free;

extern "C" {

void *watched_malloc(size_t bytes);
void *watched_calloc(size_t count, size_t bytes);
void *watched_realloc(void *address, size_t bytes);
void *watched_reallocarray(void *address, size_t count, size_t bytes);
void *watched_aligned_alloc(size_t alignment, size_t bytes);
int watched_posix_memalign(void **address, size_t alignment, size_t bytes);
void *watched_memalign(size_t alignment, size_t bytes);
char *watched_strdup(const char *text);
void watched_free(void *address);
void *watched_mmap(void *address, size_t bytes, int protection, int flags, int file, off_t offset);
void *watched__Znwm(size_t bytes);
void *watched__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag);
void *watched__ZnwmSt11align_val_t(size_t bytes, std::align_val_t alignment);
void watched__ZdlPv(void *address);
void watched__ZdlPvSt11align_val_t(void *address);

void *watched_malloc(size_t bytes) {
  note("malloc", bytes);
  return std::malloc(bytes);
}

void *watched_calloc(size_t count, size_t bytes) {
  note("calloc", count * bytes);
  return std::calloc(count, bytes);
}

void *watched_realloc(void *address, size_t bytes) {
  note("realloc", bytes);
  return std::realloc(address, bytes);
}

void *watched_reallocarray(void *address, size_t count, size_t bytes) {
  note("reallocarray", count * bytes);
  return std::realloc(address, count * bytes);
}

void *watched_aligned_alloc(size_t alignment, size_t bytes) {
  note("aligned_alloc", bytes);
  return std::aligned_alloc(alignment, bytes);
}

int watched_posix_memalign(void **address, size_t alignment, size_t bytes) {
  note("posix_memalign", bytes);
  return posix_memalign(address, alignment, bytes);
}

void *watched_memalign(size_t alignment, size_t bytes) {
  note("memalign", bytes);
  return memalign(alignment, bytes);
}

char *watched_strdup(const char *text) {
  note("strdup", std::strlen(text) + 1);
  return strdup(text);
}

void watched_free(void *address) {
  note_free(address);
  std::free(address);
}

void *watched_mmap(void *address, size_t bytes, int protection, int flags, int file, off_t offset) {
  note("mmap", bytes);
  return mmap(address, bytes, protection, flags, file, offset);
}

void *watched__Znwm(size_t bytes) {
  note("new", bytes);
  return ::operator new(bytes);
}

void *watched__ZnwmRKSt9nothrow_t(size_t bytes, const std::nothrow_t &tag) {
  note("new", bytes);
  return ::operator new(bytes, tag);
}

void *watched__ZnwmSt11align_val_t(size_t bytes, std::align_val_t alignment) {
  note("new", bytes);
  return ::operator new(bytes, alignment);
}

void watched__ZdlPv(void *address) {
  note_free(address);
  ::operator delete(address);
}

void watched__ZdlPvSt11align_val_t(void *address) {
  note_free(address);
  std::free(address);
}

// The same for arrays, with a size, and for the other name of mmap().
void *watched_mmap64(void *, size_t, int, int, int, off_t) __attribute__((alias("watched_mmap")));
void *watched__Znam(size_t) __attribute__((alias("watched__Znwm")));
void *watched__ZnamRKSt9nothrow_t(size_t, const std::nothrow_t &) __attribute__((alias("watched__ZnwmRKSt9nothrow_t")));
void *watched__ZnamSt11align_val_t(size_t, std::align_val_t) __attribute__((alias("watched__ZnwmSt11align_val_t")));
void watched__ZdlPvm(void *) __attribute__((alias("watched__ZdlPv")));
void watched__ZdaPv(void *) __attribute__((alias("watched__ZdlPv")));
void watched__ZdaPvm(void *) __attribute__((alias("watched__ZdlPv")));
void watched__ZdlPvmSt11align_val_t(void *) __attribute__((alias("watched__ZdlPvSt11align_val_t")));
void watched__ZdaPvSt11align_val_t(void *) __attribute__((alias("watched__ZdlPvSt11align_val_t")));
}
