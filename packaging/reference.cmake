# SPDX-License-Identifier: Apache-2.0
# The HTML reference, by the target `larkspur_reference`.
option(LARKSPUR_BUILD_REFERENCE "Build the HTML reference with Doxygen, and install it" OFF)

find_program(LARKSPUR_DOXYGEN doxygen)
mark_as_advanced(LARKSPUR_DOXYGEN)
if(NOT LARKSPUR_DOXYGEN)
  if(LARKSPUR_BUILD_REFERENCE)
    message(FATAL_ERROR "LARKSPUR_BUILD_REFERENCE needs doxygen")
  endif()
  return()
endif()

configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
set(larkspur_reference "${PROJECT_BINARY_DIR}/reference/html/index.html")
add_custom_command(OUTPUT "${larkspur_reference}"
  COMMAND "${LARKSPUR_DOXYGEN}" -q "${PROJECT_BINARY_DIR}/Doxyfile"
  DEPENDS ${larkspur_headers} "${PROJECT_BINARY_DIR}/Doxyfile"
    "${PROJECT_SOURCE_DIR}/docs/reference.md"
  COMMENT "HTML reference" VERBATIM)
add_custom_target(larkspur_reference DEPENDS "${larkspur_reference}")
if(LARKSPUR_BUILD_REFERENCE)
  set_target_properties(larkspur_reference PROPERTIES EXCLUDE_FROM_ALL OFF)
endif()
