# All modules' objects, and the shared library made of them. Object libraries are not transitive:
# whoever wants the library's code (libtavo.so, every unit test) links tavo_objects.
add_library(tavo_objects INTERFACE)
foreach(module forge cw flrpc flrpc_qt src wrapper)
  target_sources(tavo_objects INTERFACE $<TARGET_OBJECTS:tavo_${module}>)
  target_compile_options(tavo_${module} PRIVATE $<$<BOOL:${TAVO_LIBRARY_DEBUG_INFO}>:-g>)
endforeach()
target_link_libraries(tavo_objects INTERFACE Qt5::Core)

if(TAVO_RUNTIME_MANAGER)
  set(runtime_manager ${TAVO_RUNTIME_MANAGER})
elseif(TAVO_DESK)
  set(runtime_manager runtimemanager)
else()
  return()  # Nothing to link against: only the tests over the fake platform can be built.
endif()

add_library(tavo SHARED)
target_link_libraries(tavo PRIVATE tavo_objects ${runtime_manager})
target_link_libraries(tavo INTERFACE flutter_ostrel)  # And with it the include path.
target_compile_features(tavo INTERFACE cxx_std_17)
add_library(tavo::tavo ALIAS tavo)
set_target_properties(tavo PROPERTIES
  INSTALL_RPATH $ORIGIN  # Beside the runtime manager, in the tree as installed.
  BUILD_WITH_INSTALL_RPATH ON
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/tavo.map)
target_link_options(tavo PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/tavo.map
  -Wl,-z,nodelete)  # Callbacks may be pending when the last table goes.
if(NOT TAVO_SANITIZE)  # A sanitizer's own symbols come from the program.
  target_link_options(tavo PRIVATE -Wl,-z,defs)
endif()
