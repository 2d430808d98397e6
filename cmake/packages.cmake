# Debian packages, made by CPack from any build: `libtarvu<soname version>` with the library alone, in the folder of its
# architecture, likewise `libtarvu-contract<soname version>`, `tarvu-tools` with the program `tarvu-check`, and `libtarvu-dev` with all that it takes to build against them, the
# reference and examples.

if(TARVU_ARM64)
  set(architecture arm64)
  set(processor "any 64-bit Arm processor")
  set(triplet aarch64-linux-gnu)
  set(tools_c_library 2.36)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(architecture amd64)
  set(processor "processors of the level ${TARVU_HOST_LEVEL}")
  set(triplet x86_64-linux-gnu)
  set(tools_c_library 2.36)
else()
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libtarvu)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libtarvu developers <developers@tarvu.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL "")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Debian's own tool for dependencies knows this machine's libraries only, and CPack's own list of shared libraries comes with
# scripts that run ldconfig, in place of the trigger.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)

# What every package says of its changes and its licence. The date is that of the list of changes.
set(generated ${PROJECT_BINARY_DIR}/install/packages)
file(TIMESTAMP ${PROJECT_SOURCE_DIR}/CHANGELOG.md changed "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${generated}/changelog "libtarvu (${PROJECT_VERSION}) unstable; urgency=medium

  * The operators of version ${PROJECT_VERSION}, with the interface libtarvu.so.${PROJECT_VERSION_MAJOR}.

 -- ${CPACK_PACKAGE_CONTACT}  ${changed}
")
find_program(TARVU_gzip gzip REQUIRED)
execute_process(COMMAND ${TARVU_gzip} --best --no-name --stdout ${generated}/changelog OUTPUT_FILE ${generated}/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)

# tarvu_package(<component> <name> SECTION <section> SUMMARY <line> DESCRIPTION <line> ... [DEPENDS <packages>]
#               [CONTROL <file> ...])
# makes a package of what is installed for the component. `DEPENDS` is the field of that name, `CONTROL` are further files for the
# package manager.
function(tarvu_package component name)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "SECTION;SUMMARY;DEPENDS" "DESCRIPTION;CONTROL")
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/packages/copyright ${generated}/changelog.gz DESTINATION share/doc/${name}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} PARENT_SCOPE)
  string(TOUPPER ${component} upper)
  string(REPLACE ";" "\n" description "${arg_SUMMARY};${arg_DESCRIPTION}")
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${arg_SECTION} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${arg_DEPENDS}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA "${arg_CONTROL}" PARENT_SCOPE)
endfunction()

# tarvu_shared_library_control(<package> <library> <soname version> <exported names> <result>)
# writes what the package manager has to know of a shared library, and puts the list of these files into `result`.
function(tarvu_shared_library_control package library major names result)
  set(folder ${generated}/${package})
  set(symbols "${library}.so.${major} ${package} (>= ${PROJECT_VERSION})\n* Build-Depends-Package: libtarvu-dev\n")
  list(SORT names)
  foreach(name IN LISTS names)
    string(APPEND symbols " ${name}@Base ${PROJECT_VERSION}\n")
  endforeach()
  file(WRITE ${folder}/symbols "${symbols}")
  file(WRITE ${folder}/shlibs "${library} ${major} ${package} (>= ${PROJECT_VERSION})\n")
  file(WRITE ${folder}/triggers "activate-noawait ldconfig\n")
  set(${result} ${folder}/symbols ${folder}/shlibs ${folder}/triggers PARENT_SCOPE)
endfunction()

get_target_property(contract_version tarvu_contract VERSION)
get_target_property(contract_major tarvu_contract SOVERSION)
tarvu_install_rules(lib/${triplet} deb_ EXCLUDE_FROM_ALL)
install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/${triplet}/libtarvu.so.${PROJECT_VERSION}\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT deb_runtime EXCLUDE_FROM_ALL)
set(runtime_package libtarvu${PROJECT_VERSION_MAJOR})
tarvu_shared_library_control(${runtime_package} libtarvu ${PROJECT_VERSION_MAJOR} "${TARVU_EXPORTED_NAMES}" control)
# The C library's version is that of its youngest function that the library calls; a test holds it against the packed file.
tarvu_package(
  deb_runtime ${runtime_package}
  SECTION libs
  SUMMARY "neural-network layer operators for embedded 64-bit Arm Linux"
  DESCRIPTION "A graph runtime that executes a compiled, mostly fixed-point network calls"
              "this library for the layers that have to run on the processor: pooling,"
              "softmax, the tails of detectors, conversions and re-arrangement of tensors,"
              "109 functions in all. Results are defined bit by bit."
              "."
              "This package holds the shared library, for ${processor}."
  DEPENDS "libc6 (>= 2.29)"
  CONTROL ${control})

install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/${triplet}/libtarvu_contract.so.${contract_version}\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT deb_contract EXCLUDE_FROM_ALL)
install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --strip-debug --remove-section=.comment
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/lib/${triplet}/libtarvu_contract.a\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT deb_development EXCLUDE_FROM_ALL)
set(contract_package libtarvu-contract${contract_major})
file(READ ${PROJECT_SOURCE_DIR}/contract/exports.map contract_names)
string(REGEX MATCHALL "tarvu_contract_[a-z_]+" contract_names "${contract_names}")
tarvu_shared_library_control(${contract_package} libtarvu_contract ${contract_major} "${contract_names}" control)
# There is no older C library for arm64; what is needed on the other machine is older than that.
tarvu_package(
  deb_contract ${contract_package}
  SECTION libs
  SUMMARY "what calls of libtarvu touch and what is wrong with them"
  DESCRIPTION "For a call of libtarvu that has not been made, this library tells the memory"
              "that it would read, write and take as scratch, what is wrong or surprising"
              "about it, and its parameter block in words. Network compilers and memory"
              "planners link it, on the device or on a PC that compiles for one."
              "."
              "This package holds the shared library, for ${processor}."
  DEPENDS "libc6 (>= 2.17)"
  CONTROL ${control})

if(TARVU_TOOLS)
  execute_process(
    COMMAND ${TARVU_gzip} --best --no-name --stdout ${PROJECT_SOURCE_DIR}/contract/tarvu_check/tarvu-check.1
    OUTPUT_FILE ${generated}/tarvu-check.1.gz COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${generated}/tarvu-check.1.gz DESTINATION share/man/man1 COMPONENT deb_tools EXCLUDE_FROM_ALL)
  install(CODE "execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin/tarvu-check\" COMMAND_ERROR_IS_FATAL ANY)"
          COMPONENT deb_tools EXCLUDE_FROM_ALL)
  tarvu_package(
    deb_tools tarvu-tools
    SECTION devel
    SUMMARY "tells what calls of libtarvu touch and what is wrong with them"
    DESCRIPTION "The program tarvu-check takes a parameter block of libtarvu as it stands in"
                "memory, or a call written in JSON, and prints it in words with the memory"
                "that it would touch, its scratch bytes and what is wrong with it."
    DEPENDS "libc6 (>= ${tools_c_library})")
endif()

# The reference is made when the package is, by a build of its own: only then its tools have to be there.
install(CODE "execute_process(
  COMMAND \"${CMAKE_COMMAND}\" -S \"${PROJECT_SOURCE_DIR}\" -B \"${PROJECT_BINARY_DIR}/reference\" -G \"${CMAKE_GENERATOR}\"
          \"-DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}\" \"-DCMAKE_C_COMPILER=${CMAKE_C_COMPILER}\"
          \"-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}\" -DBUILD_TESTING=OFF -DTARVU_EXAMPLES=OFF -DTARVU_DOCS=ON
  COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
execute_process(COMMAND \"${CMAKE_COMMAND}\" --build \"${PROJECT_BINARY_DIR}/reference\" --target docs
  COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)"
        COMPONENT deb_development EXCLUDE_FROM_ALL)
install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/docs/html DESTINATION share/doc/libtarvu-dev COMPONENT deb_development
        EXCLUDE_FROM_ALL)
set(examples one_layer.c pooling_layer.c softmax_layer.c detector_tail.c padded_lines.c largest_scores.cpp arena.c)
list(TRANSFORM examples PREPEND ${PROJECT_SOURCE_DIR}/examples/)
install(FILES ${examples} DESTINATION share/doc/libtarvu-dev/examples COMPONENT deb_development EXCLUDE_FROM_ALL)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/packages/reference.doc-base DESTINATION share/doc-base
        RENAME libtarvu-dev.reference COMPONENT deb_development EXCLUDE_FROM_ALL)
tarvu_package(
  deb_development libtarvu-dev
  SECTION libdevel
  SUMMARY "neural-network layer operators - development files"
  DESCRIPTION "All that it takes to build a program against libtarvu: the header, what CMake"
              "and pkg-config need to find the library, the reference as pages for a browser"
              "and example programs in C and C++; likewise for libtarvu_contract, which tells"
              "what a call would touch and what is wrong with it, and which is here as an"
              "archive, too."
  DEPENDS "${runtime_package} (= ${PROJECT_VERSION}), ${contract_package} (= ${PROJECT_VERSION})")

include(CPack)
