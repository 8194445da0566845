# `cmake --install`, and the package that find_package(tavo) finds in the installation or in the build
# directory: see cmake/tavoConfig.cmake.in.
include(CMakePackageConfigHelpers)

set(include_directory ${CMAKE_INSTALL_INCLUDEDIR}/tavo)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)
set(share_directory ${CMAKE_INSTALL_DATADIR}/tavo)

function(tavo_install_headers)
  foreach(header ${ARGN})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${include_directory}/${folder} COMPONENT development)
  endforeach()
endfunction()

tavo_install_headers(${TAVO_PUBLIC_HEADERS})
install(TARGETS tavo EXPORT tavo COMPONENT runtime)
install(TARGETS flutter_ostrel tavo_kit tavo_kit_qt EXPORT tavo COMPONENT development)
install(TARGETS tavo-trace LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/tavo COMPONENT development)
if(TAVO_DESK)
  tavo_install_headers(${TAVO_DESK_HEADERS})
  install(TARGETS tavo_desk tavo_embedder tavo_platform EXPORT tavo COMPONENT development)
  install(TARGETS tavo-supervisor RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT desk)
  install(TARGETS runtimemanager tavo-embed EXPORT tavo COMPONENT desk)
endif()
if(TAVO_DESK AND TAVO_TOOLS)
  install(TARGETS tavo-tool EXPORT tavo COMPONENT desk)
endif()
install(EXPORT tavo NAMESPACE tavo:: FILE tavoTargets.cmake DESTINATION ${package_directory}
  COMPONENT development)
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
  ${scripts} DESTINATION ${package_directory} COMPONENT development)

# For builds without CMake. The prefix is where the file is found.
file(RELATIVE_PATH TAVO_PREFIX_OF_PC
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/tavo.pc.in ${PROJECT_BINARY_DIR}/tavo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tavo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# What a cross build of a plug-in needs.
install(FILES cmake/toolchains/armhf.cmake cmake/emulated_moc.cmake DESTINATION ${share_directory}
  COMPONENT development)
install(PROGRAMS script/sysroot DESTINATION ${share_directory} COMPONENT development)
