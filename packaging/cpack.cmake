# SPDX-License-Identifier: Apache-2.0
# The Debian packages. Configure for the place where they install to, build, and pack:
#   cmake -S . -B build/package -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr
#     -DCMAKE_INSTALL_DOCDIR=share/doc/liblarkspur-doc -DLARKSPUR_BUILD_REFERENCE=ON
#   cmake --build build/package && cpack --config build/package/CPackConfig.cmake -B build/package
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME larkspur)
set(CPACK_PACKAGE_VENDOR "Larkspur developers")
# Each package has a summary of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "Larkspur developers <developers@larkspur.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev doc)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
  GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS "${larkspur_packaging}/debian/finish.cmake")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(larkspur_debian_version "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(larkspur_about
"Larkspur keeps the configuration trees of managed services on one machine.
A management client hands it zip archives; it unpacks each one, refuses
symbolic links, exchanges the tree in one step, records where it came from,
keeps a copy of the archive and announces the change on the system bus.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liblarkspur1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The script above adds what the library is linked with. Left to CPack, it would also call ldconfig
# from maintainer scripts, where a trigger is wanted.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS unzip)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${larkspur_packaging}/debian/shlibs;${larkspur_packaging}/debian/triggers")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "default-dbus-system-bus | dbus-system-bus")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"configuration trees of managed services - shared library
${larkspur_about}

This package contains the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liblarkspur-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
# pkg-config looks at private requirements also for a shared library.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
  "liblarkspur1 (= ${larkspur_debian_version}), libsystemd-dev")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS liblarkspur-doc)
set(CPACK_COMPONENT_DEV_DESCRIPTION
"configuration trees of managed services - development files
${larkspur_about}

This package contains what is needed to build programs with the library, and
the description of its bus interface.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME liblarkspur-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOC_DESCRIPTION
"configuration trees of managed services - documentation
${larkspur_about}

This package contains the reference, the guide to operating the library, and
examples: programs, units, a tmpfiles.d snippet and a bus policy.")

if(NOT BUILD_SHARED_LIBS)
  # Everything that is left of the library is for those who build with it.
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL runtime)
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libsystemd-dev, unzip")
endif()

include(CPack)
