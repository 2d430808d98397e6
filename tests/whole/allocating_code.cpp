#include "tests/whole/allocating_code.h"

#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace whole {

void allocate_in_every_way() {
  void *address = std::malloc(11);
  address = std::realloc(address, 12);
  std::free(address);
  std::free(std::calloc(2, 7));
  std::free(reallocarray(nullptr, 3, 5));
  std::free(std::aligned_alloc(16, 16));
  if (posix_memalign(&address, 16, 17) == 0) std::free(address);
  std::free(memalign(16, 18));
  std::free(strdup("eighteen and one.."));
  munmap(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0), 4096);
  int64_t *volatile number = new int64_t(1);  // without the detour the compiler leaves out both calls
  delete number;
  char *volatile text = new char[21];
  delete[] text;
  // The standard library's own: a stable sort takes a buffer.
  int64_t numbers[] = {5, 3, 4, 1, 2, 9, 8};
  std::stable_sort(std::begin(numbers), std::end(numbers));
}

}  // namespace whole
