/// \file faulty_library.cpp
/// Has one of each fault that the checks of the binary look for, so that a check that finds nothing here is a broken check.

#include <cstdint>
#include <string>

#include "tarvu.h"

int writable_count = 1;
int *writable_address = &writable_count;

/// A C++ name, and memory from the heap.
std::string *text_of(int number) { return new std::string(std::to_string(number)); }

/// Fused into one instruction with one rounding, by this target's flags.
float multiply_add(float a, float b, float c) { return a * b + c; }

extern "C" {

__attribute__((noinline)) NN_AI_IO_TYPE tarvu_get_fmt_type(const _NN_FMT *fmt) {
  return fmt->sign_bits != 0 ? NN_AI_IO_TYPE_INT8 : NN_AI_IO_TYPE_UINT8;
}

/// Reached through the loader, which takes an application's function of that name.
_QX_RESULT tarvu_reverse_process(const _NN_REVERSE_PARM *parm) { return tarvu_get_fmt_type(&parm->in_fmt); }
}
