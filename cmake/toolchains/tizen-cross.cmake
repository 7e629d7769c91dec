# Cross build of the service for a watch, against the sysroot of its SDK or rootstrap:
#   cmake --preset device -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/tizen-cross.cmake \
#         -DMORVIK_SYSROOT=/path/to/rootstrap -DMORVIK_CROSS_PREFIX=armv7l-tizen-linux-gnueabi-
# MORVIK_SYSROOT_ARCH (default armv7l) names the processor; MORVIK_SYSROOT_LIBDIR (default lib)
# is the sysroot's library directory (lib64 on 64-bit rootstraps).
set(CMAKE_SYSTEM_NAME Linux)

# The toolchain file is read again for every compiler check; the cache keeps what the first read
# was given.
set(MORVIK_SYSROOT "$ENV{MORVIK_SYSROOT}" CACHE PATH "The watch's sysroot")
set(MORVIK_CROSS_PREFIX "$ENV{MORVIK_CROSS_PREFIX}" CACHE STRING "The cross compilers' prefix")
set(MORVIK_SYSROOT_ARCH "armv7l" CACHE STRING "The watch's processor")
set(MORVIK_SYSROOT_LIBDIR "lib" CACHE STRING "The sysroot's library directory under /usr")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
     MORVIK_SYSROOT MORVIK_CROSS_PREFIX MORVIK_SYSROOT_ARCH MORVIK_SYSROOT_LIBDIR)
if(NOT MORVIK_SYSROOT OR NOT IS_DIRECTORY "${MORVIK_SYSROOT}")
  message(FATAL_ERROR "tizen-cross.cmake: set MORVIK_SYSROOT to the watch's sysroot, not '${MORVIK_SYSROOT}'")
endif()
set(CMAKE_SYSTEM_PROCESSOR ${MORVIK_SYSROOT_ARCH})
set(CMAKE_C_COMPILER ${MORVIK_CROSS_PREFIX}gcc)
set(CMAKE_CXX_COMPILER ${MORVIK_CROSS_PREFIX}g++)
set(CMAKE_SYSROOT ${MORVIK_SYSROOT})

# Headers, libraries and packages come from the sysroot only; programs from the build machine.
set(CMAKE_FIND_ROOT_PATH ${MORVIK_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the sysroot's modules, never the build machine's, and puts the sysroot in
# front of the paths they name.
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${MORVIK_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    "${MORVIK_SYSROOT}/usr/${MORVIK_SYSROOT_LIBDIR}/pkgconfig:${MORVIK_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# The compiler checks build a library, not a program: a sysroot may lack what a program links.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
