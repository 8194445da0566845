# What every target of the tree is compiled with.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# Everything that runs lies in bin/, every library in lib/: one relative run path serves them all.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# The assertions of this system are part of its contract: they stay in every build type.
foreach(language C CXX)
  foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
    string(REPLACE "-DNDEBUG" "" CMAKE_${language}_FLAGS_${type} "${CMAKE_${language}_FLAGS_${type}}")
  endforeach()
endforeach()

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

# Log lines name the statement's file as the path below the root.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
add_compile_definitions(QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII)
add_compile_definitions(_FILE_OFFSET_BITS=64)  # On 32 bits large files and inodes fail without.
# Nobody replaces our functions at run time: exported ones may be inlined and called directly.
add_compile_options(-fno-semantic-interposition)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TAVO_WERROR)
  add_compile_options(-Werror)
endif()
if(TAVO_SANITIZE)
  add_compile_options(-fsanitize=${TAVO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVO_SANITIZE})
  # With sanitizers GCC's flow analysis sees ghosts (its manual says so); the other builds keep it.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

# For the directories that are not the library: they are to be built quickly.
macro(tavo_build_quickly)
  if(TAVO_SANITIZE)
    # A null pointer that is used ends the program by itself; bytes are decoded in the library.
    add_compile_options(-O0 -fno-sanitize=null,alignment)
  elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
    add_compile_options(-O1)
  endif()
endmacro()

if(TAVO_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # Coverage, which steers the search.
endif()

include_directories(${PROJECT_SOURCE_DIR})
if(TAVO_RUNTIME_MANAGER_INCLUDE)  # The device's declarations hide ours.
  include_directories(BEFORE ${TAVO_RUNTIME_MANAGER_INCLUDE})
endif()
