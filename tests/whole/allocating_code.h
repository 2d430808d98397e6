/// \file allocating_code.h
/// Code that takes memory in every way, for the test of what counts such calls.
#ifndef TARVU_TESTS_WHOLE_ALLOCATING_CODE_H
#define TARVU_TESTS_WHOLE_ALLOCATING_CODE_H

namespace whole {

void allocate_in_every_way();

}  // namespace whole

#endif  // TARVU_TESTS_WHOLE_ALLOCATING_CODE_H
