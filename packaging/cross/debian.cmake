# A toolchain file includes this after setting LUMET_ARCHITECTURE, Debian's name of the
# architecture, LUMET_TRIPLET, the prefix of its tools, and LUMET_EMULATOR, which runs its programs.
# The sysroot is what make-sysroot makes; ./dev runs it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CXX_COMPILER ${LUMET_TRIPLET}-g++)

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${LUMET_ARCHITECTURE})
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/.packages)
  message(FATAL_ERROR "There is no sysroot; ./dev build ${LUMET_ARCHITECTURE} makes it")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${LUMET_TRIPLET}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# Notes on what other releases of the compiler did with arguments are of no use.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(CMAKE_CROSSCOMPILING_EMULATOR ${LUMET_EMULATOR} -L ${CMAKE_SYSROOT})
