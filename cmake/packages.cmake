# The Debian packages that cpack makes of an installation below /usr: script/package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The maintainers of Tavo <maintainers@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development desk)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(base_libraries "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 11)")

set(same_version "(= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtavo)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "background tasks, messages and intents for native plug-ins
Native plug-ins of Flutter applications start other applications as
background tasks with this library, exchange messages with them, answer such
messages, open URIs and offer intents.

It needs the runtime manager of the device, or the one of tavo-desk.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "tavo-desk ${same_version}")
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)  # libtavo-dbgsym.

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtavo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "headers and CMake package for native plug-ins
What a plug-in for Ostrel OS is built with: the headers of libtavo.so, the
kit of typed calls, the CMake package with tavo_add_plugin, the pkg-config
file, and the toolchain file for 32-bit hard-float ARM.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libtavo ${same_version}, tavo-desk ${same_version}, ${base_libraries}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "cmake, g++, ninja-build")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS
  "qtbase5-dev, crossbuild-essential-armhf, mmdebstrap, qemu-user")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)  # The trace needs libtavo.so.real.

set(CPACK_DEBIAN_DESK_PACKAGE_NAME tavo-desk)
set(CPACK_DEBIAN_DESK_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_DESK_DESCRIPTION "runs native plug-ins on a desk, and talks to their tasks
The runtime manager of a device with real processes and sockets, a headless
embedder for plug-ins, and the command tavo, which calls tasks, watches and
draws their conversations, replays and disturbs them.")
set(CPACK_DEBIAN_DESK_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_DESK_PACKAGE_DEPENDS "libtavo ${same_version}")
set(CPACK_DEBIAN_DESK_PACKAGE_RECOMMENDS "xdg-utils")  # Opens URIs.
set(CPACK_DEBIAN_DESK_PACKAGE_SUGGESTS "libtavo-dev ${same_version}")  # What `tavo new` writes.

if(CMAKE_CROSSCOMPILING)  # dpkg-shlibdeps knows the packages of this machine only.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(qt "libqt5core5a (>= 5.15.1)")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${base_libraries}, ${qt}")
  string(APPEND CPACK_DEBIAN_DESK_PACKAGE_DEPENDS
    ", libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12), ${qt}, libglib2.0-0 (>= 2.12.0)")
endif()

# Where the dynamic linker looks has changed.
foreach(component RUNTIME DESK)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
endforeach()

# What each package holds for people and for lintian.
set(directory ${PROJECT_BINARY_DIR}/debian)
string(REPLACE "." "\\." section ${PROJECT_VERSION})
file(STRINGS CHANGELOG.md section REGEX "^## \\[${section}\\] - ")
string(REGEX MATCH "[0-9-]+$" date "${section}")
execute_process(COMMAND date --utc --rfc-email --date "${date}"
  OUTPUT_VARIABLE TAVO_RELEASE_DATE OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
configure_file(cmake/debian/changelog.in ${directory}/changelog @ONLY)
execute_process(COMMAND gzip -9nf ${directory}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(package libtavo=runtime libtavo-dev=development tavo-desk=desk)
  string(REGEX MATCH "(.*)=(.*)" package ${package})
  set(name ${CMAKE_MATCH_1})
  set(component ${CMAKE_MATCH_2})
  install(FILES ${directory}/changelog.gz cmake/debian/copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  file(STRINGS cmake/debian/overrides overrides REGEX "^${name}: ")
  list(JOIN overrides "\n" overrides)
  file(CONFIGURE OUTPUT ${directory}/${name}.overrides CONTENT "${overrides}\n")
  install(FILES ${directory}/${name}.overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${name} COMPONENT ${component})
endforeach()
include(CPack)
