# SPDX-License-Identifier: Apache-2.0
# Brings the staged components into the form that Debian's policy asks for, before they are packed.
cmake_policy(VERSION 3.25)
set(documents_of_runtime liblarkspur1)
set(documents_of_dev liblarkspur-dev)
set(documents_of_doc liblarkspur-doc)

function(compress file)
  execute_process(COMMAND gzip -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component ${CPACK_COMPONENTS_ALL})
  set(usr "${CPACK_TEMPORARY_DIRECTORY}/${component}/usr")
  set(documents "${usr}/share/doc/${documents_of_${component}}")
  if(NOT IS_DIRECTORY "${usr}")
    message(FATAL_ERROR "no staged files in ${usr}")
  endif()

  file(GLOB pages "${usr}/share/man/man*/*.[0-9]")
  foreach(page ${pages})
    compress("${page}")
  endforeach()

  # Packages do not move, and pkg-config leaves out the system's own directories by name.
  file(GLOB_RECURSE modules "${usr}/lib/larkspur.pc")
  foreach(module ${modules})
    file(READ "${module}" text)
    string(REGEX REPLACE "prefix=[^\n]*pcfiledir[^\n]*" "prefix=/usr" text "${text}")
    file(WRITE "${module}" "${text}")
  endforeach()

  file(MAKE_DIRECTORY "${documents}")
  foreach(file copyright changelog)
    configure_file("${CMAKE_CURRENT_LIST_DIR}/${file}" "${documents}/${file}" COPYONLY
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endforeach()
  file(RENAME "${documents}/changelog" "${documents}/changelog.Debian")
  compress("${documents}/changelog.Debian")
  if(EXISTS "${documents}/CHANGELOG.md")
    file(RENAME "${documents}/CHANGELOG.md" "${documents}/changelog")
    compress("${documents}/changelog")
  endif()
endforeach()

# dpkg-shlibdeps insists on a source tree around it.
if(runtime IN_LIST CPACK_COMPONENTS_ALL)
  set(source "${CPACK_TEMPORARY_DIRECTORY}/shlibdeps")
  file(WRITE "${source}/debian/control" "Source: larkspur\n\nPackage: liblarkspur1\nArchitecture: any\n")
  file(GLOB_RECURSE libraries "${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/lib/liblarkspur.so.*.*")
  execute_process(COMMAND dpkg-shlibdeps -O ${libraries} WORKING_DIRECTORY "${source}"
    OUTPUT_VARIABLE shlibdeps OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "shlibs:Depends=" "" shlibdeps "${shlibdeps}")
  string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", ${shlibdeps}")
  file(REMOVE_RECURSE "${source}")
endif()
