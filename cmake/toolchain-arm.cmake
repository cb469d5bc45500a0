# Building for the device's 32-bit ARM with Debian's cross compiler, against the system that scripts/arm-sysroot makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH project)
set(TESSEL_ARM_SYSROOT ${project}/build/arm-sysroot CACHE PATH "What scripts/arm-sysroot has made")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TESSEL_ARM_SYSROOT)
if(NOT EXISTS ${TESSEL_ARM_SYSROOT}/complete)
  message(FATAL_ERROR "${TESSEL_ARM_SYSROOT} is missing or not complete: scripts/arm-sysroot makes it")
endif()
set(CMAKE_SYSROOT ${TESSEL_ARM_SYSROOT})

# GCC notes at each call of some library templates that their parameters are passed differently since version 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# Programs from this machine, everything else from the device's system.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TESSEL_ARM_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
  ${TESSEL_ARM_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${TESSEL_ARM_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${TESSEL_ARM_SYSROOT})
