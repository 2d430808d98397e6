/// \file heap_count.h
/// Calls by which the library takes memory or gives it back. The library's copy in this program calls these functions under
/// names of their own (watched_names.txt), so that neither the tests' own calls nor those within the C library are seen.
#ifndef TARVU_TESTS_WHOLE_HEAP_COUNT_H
#define TARVU_TESTS_WHOLE_HEAP_COUNT_H

#include <string>

namespace whole {

/// The calls of this thread since the one before, in their order: "calloc 8, malloc 12, free". Frees of null pointers are left
/// out. Empty if there were none.
std::string take_heap_story();

}  // namespace whole

#endif  // TARVU_TESTS_WHOLE_HEAP_COUNT_H
