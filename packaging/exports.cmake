# SPDX-License-Identifier: Apache-2.0
# Exports the symbols that the Debian package lists, so that there is one list. Hidden visibility
# alone still exports private members and weak instantiations of std templates.
set(larkspur_symbols "${PROJECT_SOURCE_DIR}/debian/liblarkspur1.symbols")
set(larkspur_map "${PROJECT_BINARY_DIR}/larkspur.map")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${larkspur_symbols}")

set(larkspur_exports "")
set(rest "local: *;")
file(STRINGS "${larkspur_symbols}" versions REGEX "^ LARKSPUR_[^@]*@")
foreach(version IN LISTS versions)
  string(REGEX REPLACE "^ ([^@]+)@.*" "\\1" version "${version}")
  string(REPLACE "." "\\." pattern "${version}")
  file(STRINGS "${larkspur_symbols}" symbols REGEX "^ [(a-z].*@${pattern}[\" ]")
  list(TRANSFORM symbols REPLACE "^ (\\(c\\+\\+\\)\")?([^@]+)@.*" "    \"\\2\"")
  string(JOIN ";\n" symbols ${symbols})
  string(APPEND larkspur_exports
    "${version} {\n  global: extern \"C++\" {\n${symbols};\n  };\n  ${rest}\n};\n")
  set(rest "")
endforeach()
file(CONFIGURE OUTPUT "${larkspur_map}" CONTENT "@larkspur_exports@" @ONLY)

target_link_options(larkspur PRIVATE "LINKER:--version-script=${larkspur_map}")
set_property(TARGET larkspur APPEND PROPERTY LINK_DEPENDS "${larkspur_map}")
