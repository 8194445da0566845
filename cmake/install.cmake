# `cmake --install` and the package that find_package(tavo) finds: see cmake/tavoConfig.cmake.in.
include(CMakePackageConfigHelpers)

set(include_directory ${CMAKE_INSTALL_INCLUDEDIR}/tavo)
set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)

function(tavo_install_headers)
  foreach(header ${ARGN})
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${include_directory}/${folder})
  endforeach()
endfunction()

tavo_install_headers(${TAVO_PUBLIC_HEADERS})
install(TARGETS tavo-trace)
set(installed tavo flutter_ostrel tavo_kit tavo_kit_qt)
if(TAVO_DESK)
  tavo_install_headers(${TAVO_DESK_HEADERS})
  install(TARGETS tavo-supervisor RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR})
  list(APPEND installed tavo_desk runtimemanager tavo_embedder tavo-embed tavo_platform)
endif()
if(TAVO_DESK AND TAVO_TOOLS)
  install(TARGETS tavo-tool)
endif()
install(TARGETS ${installed} EXPORT tavo)
install(EXPORT tavo NAMESPACE tavo:: FILE tavoTargets.cmake DESTINATION ${package_directory})

configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/tavoConfig.cmake.in
  ${CMAKE_BINARY_DIR}/tavoConfig.cmake INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tavoConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tavoConfig.cmake ${CMAKE_BINARY_DIR}/tavoConfigVersion.cmake
  DESTINATION ${package_directory})
