# GCC before 12 lacks __builtin_shufflevector, which arranges the lanes of simd/. Also run as a script, by the tests.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
  message(FATAL_ERROR "Building needs GCC 12 or newer, or Clang 14 or newer; this is GCC ${CMAKE_CXX_COMPILER_VERSION}.")
endif()
