# SPDX-License-Identifier: Apache-2.0
# What is installed, and how others find it: three components, `runtime`, `dev` and `doc`.
include(CMakePackageConfigHelpers)

option(LARKSPUR_BUILD_REFERENCE "Build the HTML reference with Doxygen and install it" OFF)

set(larkspur_packaging "${CMAKE_CURRENT_LIST_DIR}")
set(larkspur_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Larkspur")
set(larkspur_examples_dir "${CMAKE_INSTALL_DOCDIR}/examples")

# --- the library ---------------------------------------------------------------------------------

if(BUILD_SHARED_LIBS)
  # Hidden visibility still lets weak instantiations of the standard library's templates out.
  target_link_options(larkspur PRIVATE "LINKER:--version-script=${larkspur_packaging}/larkspur.map")
  set_property(TARGET larkspur APPEND PROPERTY LINK_DEPENDS "${larkspur_packaging}/larkspur.map")
else()
  # The package file makes this target under a name that no consumer has taken for itself.
  set_property(TARGET larkspur PROPERTY INTERFACE_LINK_LIBRARIES
    "$<BUILD_INTERFACE:$<LINK_ONLY:PkgConfig::systemd>>"
    "$<INSTALL_INTERFACE:$<LINK_ONLY:PkgConfig::LARKSPUR_PRIVATE>>")
endif()

install(TARGETS larkspur EXPORT LarkspurTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/larkspur" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT dev FILES_MATCHING PATTERN "*.h")

# --- CMake package -------------------------------------------------------------------------------

configure_package_config_file("${larkspur_packaging}/LarkspurConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/LarkspurConfig.cmake" INSTALL_DESTINATION ${larkspur_package_dir})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/LarkspurConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/LarkspurConfig.cmake"
  "${PROJECT_BINARY_DIR}/LarkspurConfigVersion.cmake"
  DESTINATION ${larkspur_package_dir} COMPONENT dev)
install(EXPORT LarkspurTargets NAMESPACE Larkspur:: DESTINATION ${larkspur_package_dir}
  COMPONENT dev)

# --- pkg-config module ---------------------------------------------------------------------------

# Found from where the file lies, so that an installed tree may be moved.
file(RELATIVE_PATH larkspur_up "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
set(LARKSPUR_PC_PREFIX "\${pcfiledir}/${larkspur_up}")
string(REGEX REPLACE "/$" "" LARKSPUR_PC_PREFIX "${LARKSPUR_PC_PREFIX}")
foreach(directory LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
    set(LARKSPUR_PC_${directory} "${CMAKE_INSTALL_${directory}}")
  else()
    set(LARKSPUR_PC_${directory} "\${prefix}/${CMAKE_INSTALL_${directory}}")
  endif()
endforeach()
configure_file("${larkspur_packaging}/larkspur.pc.in" "${PROJECT_BINARY_DIR}/larkspur.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/larkspur.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# --- what a host and an administrator take from here ---------------------------------------------

install(FILES "${larkspur_packaging}/com.corvid.Larkspur1.xml"
  DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT dev)
install(FILES "${PROJECT_SOURCE_DIR}/docs/man/larkspur.3"
  "${PROJECT_SOURCE_DIR}/docs/man/larkspur_c.3"
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
install(FILES "${PROJECT_SOURCE_DIR}/docs/man/larkspur-record.5"
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT doc)

foreach(document README.md CHANGELOG.md docs/architecture.md docs/operations.md)
  install(FILES "${PROJECT_SOURCE_DIR}/${document}" DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT doc OPTIONAL)
endforeach()
install(DIRECTORY "${larkspur_packaging}/examples/" DESTINATION ${larkspur_examples_dir}
  COMPONENT doc)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/" DESTINATION ${larkspur_examples_dir}/programs
  COMPONENT doc)

# --- HTML reference ------------------------------------------------------------------------------

find_program(LARKSPUR_DOXYGEN doxygen)
mark_as_advanced(LARKSPUR_DOXYGEN)
if(LARKSPUR_DOXYGEN AND NOT TARGET reference)
  configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
  file(GLOB larkspur_headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/include/larkspur/*.h")
  set(larkspur_reference "${PROJECT_BINARY_DIR}/reference/html/index.html")
  add_custom_command(OUTPUT "${larkspur_reference}"
    COMMAND "${LARKSPUR_DOXYGEN}" -q "${PROJECT_BINARY_DIR}/Doxyfile"
    DEPENDS ${larkspur_headers} "${PROJECT_BINARY_DIR}/Doxyfile"
      "${PROJECT_SOURCE_DIR}/docs/reference.md"
    COMMENT "HTML reference" VERBATIM)
  add_custom_target(reference DEPENDS "${larkspur_reference}")
endif()
if(LARKSPUR_BUILD_REFERENCE)
  if(NOT LARKSPUR_DOXYGEN)
    message(FATAL_ERROR "LARKSPUR_BUILD_REFERENCE needs doxygen")
  endif()
  set_target_properties(reference PROPERTIES EXCLUDE_FROM_ALL OFF)
  install(DIRECTORY "${PROJECT_BINARY_DIR}/reference/html" DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT doc)
endif()

if(PROJECT_IS_TOP_LEVEL)
  include("${larkspur_packaging}/cpack.cmake")
endif()
