# What `cmake --install` puts where: the library with its soname link (component `runtime`), likewise the contract library
# (component `contract`); `tarvu-check` with its page of the manual (component `tools`); the headers, the links that the linker follows, the contract library's archive, the CMake package and the
# pkg-config files (component `development`).

include(CMakePackageConfigHelpers)

# The name of the processor in the version file of the CMake package.
if(TARVU_ARM64)
  set(TARVU_MACHINE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(TARVU_MACHINE x86-64)
else()
  string(TOLOWER "${CMAKE_SYSTEM_PROCESSOR}" TARVU_MACHINE)
endif()

# One set of rules, with the library in `libdir` below the prefix; `component_prefix` goes in front of the components' names.
# Further arguments go to each rule.
function(tarvu_install_rules libdir component_prefix)
  set(generated ${PROJECT_BINARY_DIR}/install/${component_prefix}rules)
  set(runtime COMPONENT ${component_prefix}runtime ${ARGN})
  set(development COMPONENT ${component_prefix}development ${ARGN})
  set(package_dir ${libdir}/cmake/tarvu)

  install(TARGETS tarvu EXPORT ${component_prefix}tarvu_targets
          LIBRARY DESTINATION ${libdir} ${runtime} NAMELINK_COMPONENT ${component_prefix}development
          PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${development}
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(TARGETS tarvu_contract tarvu_contract_static EXPORT ${component_prefix}tarvu_targets
          LIBRARY DESTINATION ${libdir} COMPONENT ${component_prefix}contract ${ARGN}
          NAMELINK_COMPONENT ${component_prefix}development
          ARCHIVE DESTINATION ${libdir} ${development}
          PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${development}
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

  if(TARVU_TOOLS)
    install(TARGETS tarvu_check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component_prefix}tools ${ARGN})
  endif()

  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tarvu-config.cmake.in ${generated}/tarvu-config.cmake
                                INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(${generated}/tarvu-config-version.cmake COMPATIBILITY SameMajorVersion)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version_of_machine.cmake.in ${generated}/version_of_machine.cmake @ONLY)
  file(READ ${generated}/version_of_machine.cmake version_of_machine)
  file(APPEND ${generated}/tarvu-config-version.cmake "${version_of_machine}")
  install(FILES ${generated}/tarvu-config.cmake ${generated}/tarvu-config-version.cmake
          DESTINATION ${package_dir} ${development})
  install(EXPORT ${component_prefix}tarvu_targets FILE tarvu-targets.cmake NAMESPACE tarvu:: DESTINATION ${package_dir}
          ${development})

  # The prefix is told from the file's own place, so that an installed tree can be moved. A folder outside the prefix stays.
  if(IS_ABSOLUTE ${libdir})
    set(TARVU_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
    set(TARVU_PC_LIBDIR ${libdir})
  else()
    cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${libdir}/pkgconfig
               OUTPUT_VARIABLE up)
    set(TARVU_PC_PREFIX "\${pcfiledir}/${up}")
    set(TARVU_PC_LIBDIR "\${prefix}/${libdir}")
  endif()
  if(IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(TARVU_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
  else()
    set(TARVU_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  endif()
  foreach(library IN ITEMS tarvu tarvu_contract)
    string(REPLACE _ - name ${library})
    get_target_property(TARVU_PC_VERSION ${library} VERSION)
    set(TARVU_PC_LIBRARY ${library})
    set(TARVU_PC_NAME ${name})
    set(TARVU_PC_DESCRIPTION ${PROJECT_DESCRIPTION})
    if(library STREQUAL tarvu_contract)
      set(TARVU_PC_DESCRIPTION "What calls of libtarvu touch and what is wrong with them, told before they are made")
    endif()
    configure_file(${PROJECT_SOURCE_DIR}/cmake/tarvu.pc.in ${generated}/${name}.pc @ONLY)
    install(FILES ${generated}/${name}.pc DESTINATION ${libdir}/pkgconfig ${development})
  endforeach()
endfunction()

tarvu_install_rules(${CMAKE_INSTALL_LIBDIR} "")
if(TARVU_TOOLS)
  install(FILES ${PROJECT_SOURCE_DIR}/contract/tarvu_check/tarvu-check.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
          COMPONENT tools)
endif()
