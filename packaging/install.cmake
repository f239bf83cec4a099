# SPDX-License-Identifier: Apache-2.0
# Installs everything, in three components: `runtime`, `dev` and `doc`.
include(CMakePackageConfigHelpers)

set(larkspur_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Larkspur")

# --- the library ---------------------------------------------------------------------------------

install(TARGETS larkspur EXPORT LarkspurTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)

# --- CMake package -------------------------------------------------------------------------------

configure_package_config_file(packaging/LarkspurConfig.cmake.in
  "${PROJECT_BINARY_DIR}/LarkspurConfig.cmake" INSTALL_DESTINATION ${larkspur_package_dir})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/LarkspurConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/LarkspurConfig.cmake"
  "${PROJECT_BINARY_DIR}/LarkspurConfigVersion.cmake"
  DESTINATION ${larkspur_package_dir} COMPONENT dev)
install(EXPORT LarkspurTargets NAMESPACE Larkspur:: DESTINATION ${larkspur_package_dir}
  COMPONENT dev)

# --- pkg-config module ---------------------------------------------------------------------------

# Relative to the file, so that an installed tree can be moved.
file(RELATIVE_PATH larkspur_up "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
set(LARKSPUR_PC_PREFIX "\${pcfiledir}/${larkspur_up}")
string(REGEX REPLACE "/$" "" LARKSPUR_PC_PREFIX "${LARKSPUR_PC_PREFIX}")
# A shared library loads its own dependencies; clients of a static one must link them.
if(LARKSPUR_BUILD_SHARED)
  set(larkspur_modules "")
endif()
string(REPLACE ">=" " >= " LARKSPUR_PC_REQUIRES_PRIVATE "${larkspur_modules}")
string(REPLACE ";" ", " LARKSPUR_PC_REQUIRES_PRIVATE "${LARKSPUR_PC_REQUIRES_PRIVATE}")
foreach(directory LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${directory}}")
    set(LARKSPUR_PC_${directory} "${CMAKE_INSTALL_${directory}}")
  else()
    set(LARKSPUR_PC_${directory} "\${prefix}/${CMAKE_INSTALL_${directory}}")
  endif()
endforeach()
configure_file(packaging/larkspur.pc.in "${PROJECT_BINARY_DIR}/larkspur.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/larkspur.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# --- for hosts and administrators ----------------------------------------------------------------

install(FILES packaging/com.corvid.Larkspur1.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT dev)
install(DIRECTORY docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev
  FILES_MATCHING PATTERN "*.3")
install(DIRECTORY docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT doc
  FILES_MATCHING PATTERN "*.5")

# The layout of the source tree, so that links between pages work.
file(GLOB larkspur_pages CONFIGURE_DEPENDS *.md LICENSE)
install(FILES ${larkspur_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN man EXCLUDE)
install(DIRECTORY examples packaging/examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc)
if(LARKSPUR_BUILD_REFERENCE)
  install(DIRECTORY "${PROJECT_BINARY_DIR}/reference/html" DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT doc)
endif()
