# SPDX-License-Identifier: Apache-2.0
# Exports from the shared library what the Debian package lists, so that there is one list. Without
# it, hidden visibility still exports private members and weak instantiations of std templates.
set(larkspur_symbols "${PROJECT_SOURCE_DIR}/debian/liblarkspur1.symbols")
set(larkspur_map "${PROJECT_BINARY_DIR}/larkspur.map")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${larkspur_symbols}")

file(STRINGS "${larkspur_symbols}" larkspur_exports REGEX "^ [(a-z].*@LARKSPUR_1[\" ]")
list(TRANSFORM larkspur_exports REPLACE "^ (\\(c\\+\\+\\)\")?([^@]+)@.*" "    \"\\2\"")
string(JOIN ";\n" larkspur_exports ${larkspur_exports})
file(CONFIGURE OUTPUT "${larkspur_map}" @ONLY CONTENT
  "LARKSPUR_1 {\n  global: extern \"C++\" {\n@larkspur_exports@;\n  };\n  local: *;\n};\n")

target_link_options(larkspur PRIVATE "LINKER:--version-script=${larkspur_map}")
set_property(TARGET larkspur APPEND PROPERTY LINK_DEPENDS "${larkspur_map}")
