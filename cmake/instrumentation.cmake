# Sanitizers and coverage reach every target of the tree, GoogleTest included: mixed builds miss or invent findings.

if(TARVU_SANITIZE)
  add_compile_options(-fsanitize=${TARVU_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TARVU_SANITIZE})
  if(TARVU_SANITIZE MATCHES "undefined")
    # The library has no virtual functions, and the check for them needs the type information that it is built without.
    add_compile_options(-fno-sanitize=vptr)
    if(NOT TARVU_ARM64)
      # A float that its target integer cannot hold is undefined as well, but is not part of the default set. On arm64 the
      # intrinsics of the saturating conversions are written as such casts.
      add_compile_options(-fsanitize=float-cast-overflow)
      add_link_options(-fsanitize=float-cast-overflow)
    endif()
  endif()
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

# Coverage counts the source's own lines and branches in product code (Clang's source-based form): the instances of a template, and
# of what is inlined into many places, count as the one text that they are, whatever the compiler makes of them.
if(TARVU_COVERAGE)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "Coverage needs Clang (Debian packages clang and libclang-rt-14-dev).")
  endif()
  set(TARVU_COVERAGE_COUNTS ${PROJECT_BINARY_DIR}/counts)
  set(TARVU_COVERAGE_OPTIONS -fprofile-instr-generate=${TARVU_COVERAGE_COUNTS}/%4m.profraw -fprofile-update=atomic)
  add_link_options(${TARVU_COVERAGE_OPTIONS})
endif()

# What only a build without instrumentation can hold: the library's imports, exports and sections.
if(TARVU_SANITIZE OR TARVU_COVERAGE)
  set(TARVU_INSTRUMENTED ON)
else()
  set(TARVU_INSTRUMENTED OFF)
endif()

# Every program links this: what its sanitizers need to run under the emulator.
add_library(tarvu_program INTERFACE)
if(TARVU_SANITIZE MATCHES "address" AND CMAKE_CROSSCOMPILING)
  target_sources(tarvu_program INTERFACE ${PROJECT_SOURCE_DIR}/cmake/sanitizer_defaults.c)
endif()
