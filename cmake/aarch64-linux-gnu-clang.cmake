# As aarch64-linux-gnu.cmake with Clang, which takes the headers, the libraries and the linker of Debian's cross compiler.
# TARVU_CLANG chooses the version by the command: clang is Debian's own choice (14 in Debian 12), clang-19 a newer one.

set(TARVU_CLANG clang CACHE STRING "Command of Clang's C compiler, such as clang-19")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARVU_CLANG)
include(${CMAKE_CURRENT_LIST_DIR}/aarch64-linux-gnu.cmake)
string(REPLACE clang clang++ clang_cxx ${TARVU_CLANG})
set(CMAKE_C_COMPILER ${TARVU_CLANG})
set(CMAKE_CXX_COMPILER ${clang_cxx})
set(CMAKE_C_COMPILER_TARGET aarch64-linux-gnu)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-gnu)
