# Makes the linker's version script of cmake/exported_names.txt: "+ name" is exported, "- name" is not yet.

set(TARVU_EXPORTED_NAMES_FILE ${PROJECT_SOURCE_DIR}/cmake/exported_names.txt)
set(TARVU_VERSION_SCRIPT ${PROJECT_BINARY_DIR}/tarvu.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TARVU_EXPORTED_NAMES_FILE})

file(STRINGS ${TARVU_EXPORTED_NAMES_FILE} lines)
set(TARVU_EXPORTED_NAMES "")
foreach(line IN LISTS lines)
  if(line MATCHES "^\\+ ([A-Za-z_][A-Za-z0-9_]*)$")
    list(APPEND TARVU_EXPORTED_NAMES ${CMAKE_MATCH_1})
  elseif(NOT line MATCHES "^(- [A-Za-z_][A-Za-z0-9_]*|#.*|)$")
    message(FATAL_ERROR "cmake/exported_names.txt: a line is neither '+ name', '- name' nor a comment: ${line}")
  endif()
endforeach()

list(JOIN TARVU_EXPORTED_NAMES ";\n    " TARVU_EXPORTED_NAMES_JOINED)
file(CONFIGURE OUTPUT ${TARVU_VERSION_SCRIPT} CONTENT "{\n  global:\n    @TARVU_EXPORTED_NAMES_JOINED@;\n  local:\n    *;\n};\n"
     @ONLY)
target_link_options(tarvu_shared_link INTERFACE -Wl,--version-script=${TARVU_VERSION_SCRIPT})
set_target_properties(tarvu_shared_link PROPERTIES INTERFACE_LINK_DEPENDS ${TARVU_VERSION_SCRIPT})
