# Flags as properties of targets. What decides the numeric results stands in tarvu_arithmetic, which every target links that
# holds arithmetic of its own: the kernels, the tests and the benchmarks.

add_library(tarvu_arithmetic INTERFACE)
target_compile_options(
  tarvu_arithmetic
  INTERFACE
    # A fused multiply-add rounds once where the results are stated with two roundings; GCC fuses even separate intrinsics.
    -ffp-contract=off
    # These two change no result: nobody reads floating-point traps or errno, and vector loops need both.
    -fno-trapping-math
    -fno-math-errno)
if(TARVU_ARM64)
  target_compile_options(tarvu_arithmetic INTERFACE -march=armv8-a -mtune=cortex-a55)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  target_compile_options(tarvu_arithmetic INTERFACE -march=${TARVU_HOST_LEVEL})
  if(NOT TARVU_HOST_LEVEL MATCHES "^x86-64(-v[23])?$")
    # Without AVX-512: the lanes are 256 bits wide, and their comparisons would go through mask registers and back, which makes
    # softmax, LRN and layer normalisation take twice the time. At x86-64-v4 the code is that of v3.
    target_compile_options(tarvu_arithmetic INTERFACE -mno-avx512f)
  endif()
endif()

add_library(tarvu_product_code INTERFACE)
target_compile_options(
  tarvu_product_code
  INTERFACE
    -fvisibility=hidden
    -fvisibility-inlines-hidden
    -fno-semantic-interposition
    -fno-stack-protector # on arm64 its guard adds the loader to the libraries needed
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
    -ffile-prefix-map=${PROJECT_BINARY_DIR}=build
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>
    $<$<COMPILE_LANGUAGE:CXX>:-fno-rtti>
    $<$<COMPILE_LANGUAGE:CXX>:-fno-threadsafe-statics>
    # A grid of no columns never ends; Clang would leave such a loop out.
    $<$<CXX_COMPILER_ID:Clang>:-fno-finite-loops>)

if(NOT TARVU_INSTRUMENTED)
  # An application that brings its own printf sees every line: none goes out through puts instead. The compiler then no longer
  # checks the formats; the builds with sanitizers do.
  target_compile_options(tarvu_product_code INTERFACE -fno-builtin-printf)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT TARVU_INSTRUMENTED)
  # Beside each object a list of its functions' frames; a test reads it.
  target_compile_options(tarvu_product_code INTERFACE -fstack-usage)
endif()

if(TARVU_COVERAGE)
  # What this target never calls, such as the other target's form of a step, does not count.
  target_compile_options(tarvu_product_code INTERFACE ${TARVU_COVERAGE_OPTIONS} -fcoverage-mapping -O1
                                                      "SHELL:-mllvm -limited-coverage-experimental=true")
endif()

add_library(tarvu_warnings INTERFACE)
target_compile_options(tarvu_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Wundef -Wformat=2
                                                -Wimplicit-fallthrough -Wno-psabi -Werror
                                                # GCC 12 sees overlaps in std::string that cannot happen.
                                                $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
                                                # A loop that Clang leaves scalar is no fault of the source.
                                                $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>
                                                # Clang 14 tells that it ignores -frounding-math on arm64: it folds what is
                                                # constant, and nothing that reads the rounding environment is.
                                                $<$<CXX_COMPILER_ID:Clang>:-Wno-unsupported-floating-point-opt>)
if(TARVU_SANITIZE)
  # The sanitizers hide from GCC that a quotient fits; the other builds check.
  target_compile_options(tarvu_warnings INTERFACE -Wno-conversion)
endif()

add_library(tarvu_product_warnings INTERFACE)
target_compile_options(tarvu_product_warnings INTERFACE -Wpedantic -Wcast-qual -Wdouble-promotion -Wmissing-declarations
                                                        -Wvla $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
target_link_libraries(tarvu_product_warnings INTERFACE tarvu_warnings)

# What all shared libraries of this tree are linked with.
add_library(tarvu_library_link INTERFACE)
target_link_options(tarvu_library_link INTERFACE -Wl,-Bsymbolic-functions -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
                    -Wl,--as-needed)
if(NOT TARVU_INSTRUMENTED)
  target_link_options(tarvu_library_link INTERFACE -static-libstdc++ -static-libgcc -Wl,-z,defs)
endif()

# cmake/exports.cmake adds the list of what libtarvu exports.
add_library(tarvu_shared_link INTERFACE)
target_link_libraries(tarvu_shared_link INTERFACE tarvu_library_link)
