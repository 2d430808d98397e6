#include "tests/support/guarded_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace support {
namespace {

constexpr uint8_t kGuard = 0xC5;
constexpr size_t kLeastGuard = 64;  // guard bytes on the side that does not touch the page that faults

size_t page_bytes() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

size_t round_up(size_t value, size_t multiple) { return (value + multiple - 1) / multiple * multiple; }

}  // namespace

GuardedMemory::GuardedMemory(size_t bytes, Placement placement) : size_(bytes) {
  const size_t page = page_bytes();
  const size_t room = round_up(bytes + placement.alignment + placement.misalign + kLeastGuard, page);
  mapping_bytes_ = room + 2 * page;
  void *mapping = mmap(nullptr, mapping_bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED || mprotect(static_cast<uint8_t *>(mapping) + page, room, PROT_READ | PROT_WRITE) != 0) {
    std::perror("guarded memory");
    std::abort();
  }
  mapping_ = static_cast<uint8_t *>(mapping);
  uint8_t *first = mapping_ + page;
  if (placement.fault == Fault::kInFront) {
    data_ = first + placement.misalign;
  } else {
    const size_t start = (room - bytes) / placement.alignment * placement.alignment - placement.misalign;
    data_ = first + start;
  }
  std::memset(first, kGuard, room);
}

GuardedMemory::GuardedMemory(GuardedMemory &&other) noexcept
    : mapping_(other.mapping_), mapping_bytes_(other.mapping_bytes_), data_(other.data_), size_(other.size_) {
  other.mapping_ = nullptr;
}

GuardedMemory::~GuardedMemory() {
  if (mapping_ != nullptr) munmap(mapping_, mapping_bytes_);
}

void GuardedMemory::fill(uint8_t value) const {
  if (size_ != 0) std::memset(data_, value, size_);
}

std::string GuardedMemory::guard_damage() const {
  const size_t page = page_bytes();
  for (const uint8_t *at = mapping_ + page; at < mapping_ + mapping_bytes_ - page; ++at) {
    if (at == data_) at += size_;
    if (at >= mapping_ + mapping_bytes_ - page) break;
    if (*at == kGuard) continue;
    const long distance = at < data_ ? static_cast<long>(data_ - at) : static_cast<long>(at - (data_ + size_)) + 1;
    return "guard byte " + std::to_string(distance) + (at < data_ ? " in front of the data" : " behind the data") +
           " was overwritten with " + std::to_string(*at);
  }
  return {};
}

uint64_t unreadable_address() {
  static void *const page = mmap(nullptr, page_bytes(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return reinterpret_cast<uintptr_t>(page);
}

}  // namespace support
