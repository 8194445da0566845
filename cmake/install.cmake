# `cmake --install`, and the package that find_package(tavo) finds in the installation or in the build
# directory: see cmake/tavoConfig.cmake.in.
include(CMakePackageConfigHelpers)

set(include_directory ${CMAKE_INSTALL_INCLUDEDIR}/tavo)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)
set(share_directory ${CMAKE_INSTALL_DATADIR}/tavo)

function(tavo_install_headers)
  foreach(header ${ARGN})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${include_directory}/${folder})
  endforeach()
endfunction()

tavo_install_headers(${TAVO_PUBLIC_HEADERS})
set(installed tavo flutter_ostrel tavo_kit tavo_kit_qt)
if(TAVO_DESK)
  tavo_install_headers(${TAVO_DESK_HEADERS})
  install(TARGETS tavo-supervisor RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR})
  list(APPEND installed tavo_desk runtimemanager tavo_embedder tavo-embed tavo_platform)
endif()
if(TAVO_DESK AND TAVO_TOOLS)
  list(APPEND installed tavo-tool)
endif()
install(TARGETS ${installed} EXPORT tavo)
install(EXPORT tavo NAMESPACE tavo:: FILE tavoTargets.cmake DESTINATION ${package_directory})
export(EXPORT tavo NAMESPACE tavo:: FILE ${PROJECT_BINARY_DIR}/tavoTargets.cmake)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tavoConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tavoConfig.cmake INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
set(scripts tavo_add_plugin.cmake write_desktop_entry.cmake)
foreach(script ${scripts})
  configure_file(cmake/${script} ${PROJECT_BINARY_DIR}/${script} COPYONLY)
endforeach()
list(TRANSFORM scripts PREPEND ${PROJECT_BINARY_DIR}/)
install(FILES ${PROJECT_BINARY_DIR}/tavoConfig.cmake ${PROJECT_BINARY_DIR}/tavoConfigVersion.cmake
  ${scripts} DESTINATION ${package_directory})

# For builds without CMake. The prefix is where the file is found.
file(RELATIVE_PATH TAVO_PREFIX_OF_PC
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/tavo.pc.in ${PROJECT_BINARY_DIR}/tavo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# What a cross build of a plug-in needs.
install(FILES cmake/toolchains/armhf.cmake cmake/emulated_moc.cmake DESTINATION ${share_directory})
install(PROGRAMS script/sysroot DESTINATION ${share_directory})
