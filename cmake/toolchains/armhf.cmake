# Cross-builds for 32-bit hard-float ARM Linux and runs what it builds under user-mode emulation.
#
# Needs crossbuild-essential-armhf, qemu-user, mmdebstrap and a sysroot with Qt 5: script/sysroot makes
# one (installed as share/tavo/sysroot). A sysroot of your own: -DTAVO_SYSROOT=DIRECTORY. Packages are
# found in the sysroot and in CMAKE_PREFIX_PATH. -DCMAKE_CXX_COMPILER=clang++ builds with clang.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER_TARGET ${CMAKE_LIBRARY_ARCHITECTURE})  # What clang asks for.
set(CMAKE_CXX_COMPILER_TARGET ${CMAKE_LIBRARY_ARCHITECTURE})
if(NOT CMAKE_C_COMPILER)
  set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
endif()
if(NOT CMAKE_CXX_COMPILER)
  set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
endif()

if(DEFINED ENV{XDG_CACHE_HOME})
  set(tavo_cache $ENV{XDG_CACHE_HOME}/tavo)
else()
  set(tavo_cache $ENV{HOME}/.cache/tavo)
endif()
set(TAVO_SYSROOT ${tavo_cache}/sysroot-armhf CACHE PATH "Root of an armhf system with Qt 5")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVO_SYSROOT)
if(NOT EXISTS ${TAVO_SYSROOT}/usr/lib)
  message(FATAL_ERROR "There is no sysroot in ${TAVO_SYSROOT}: script/sysroot makes one")
endif()
set(CMAKE_SYSROOT ${TAVO_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})

# Where packages for the target are installed is as good a root as the sysroot.
list(APPEND CMAKE_FIND_ROOT_PATH ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
