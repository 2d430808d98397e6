# Debian packages, made by CPack from any build: `libtarvu<soname version>` with the library alone, `libtarvu-dev` with all
# that it takes to build against it. The library lies in the folder of its architecture, so that a machine can hold both.

if(TARVU_ARM64)
  set(architecture arm64)
  set(processor "")
  set(triplet aarch64-linux-gnu)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(architecture amd64)
  set(processor " It needs a processor of the level ${TARVU_HOST_LEVEL}.")
  set(triplet x86_64-linux-gnu)
else()
  return()
endif()

tarvu_install_rules(lib/${triplet} deb_ EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libtarvu)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libtarvu developers <developers@tarvu.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL deb_runtime deb_development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Debian's own tool for dependencies knows this machine's libraries only. The C library's version is that of its youngest
# function that the library calls; a test holds it against the packed file.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(runtime_package libtarvu${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEB_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_DEB_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEB_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.29)")
set(CPACK_COMPONENT_DEB_RUNTIME_DESCRIPTION "The shared library, for programs that are linked with it.${processor}")
set(CPACK_DEBIAN_DEB_DEVELOPMENT_PACKAGE_NAME libtarvu-dev)
set(CPACK_DEBIAN_DEB_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEB_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEB_DEVELOPMENT_DESCRIPTION
    "The header, and what CMake and pkg-config need to find the library.")

include(CPack)
