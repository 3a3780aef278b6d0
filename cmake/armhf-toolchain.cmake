# Cross build for 32-bit ARM (Debian armhf) with Debian's cross compiler.
#
# EV_ARMHF_SYSROOT names a folder into which the armhf builds of the
# project's dependencies have been unpacked (scripts/armhf.sh makes it); the
# compiler keeps its own C library, the dependencies come from the sysroot.
# Test programs run under qemu-arm user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

if(NOT EV_ARMHF_SYSROOT)
  set(EV_ARMHF_SYSROOT $ENV{EV_ARMHF_SYSROOT})
endif()
if(NOT EV_ARMHF_SYSROOT)
  message(FATAL_ERROR "set EV_ARMHF_SYSROOT to the unpacked armhf dependencies")
endif()
set(sysroot ${EV_ARMHF_SYSROOT})
# try_compile projects re-read this file and need the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES EV_ARMHF_SYSROOT)

# Trees that a caller names in CMAKE_PREFIX_PATH (an installed copy of this
# project, for a client's build) hold armhf files as well: they are roots too.
set(CMAKE_FIND_ROOT_PATH ${sysroot} /usr/${triplet} ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})

# Multiarch headers (opensslconf.h and friends) live under the triplet.
# -Wno-psabi drops GCC's notes that passing some classes by value changed in
# GCC 7.1: every object of this build comes from one compiler.
# _FILE_OFFSET_BITS=64 gives every file and directory call 64-bit offsets,
# as the dependencies were built. Under qemu-user the 64-bit host kernel
# hands out 64-bit directory offsets, so without it readdir fails with
# EOVERFLOW on the first entry and a directory reads as empty. time_t stays
# 32 bits: the dependencies' interfaces (X509_VERIFY_PARAM_set_time) use it.
set(ev_flags "-isystem ${sysroot}/usr/include/${triplet} -Wno-psabi -D_FILE_OFFSET_BITS=64")
set(CMAKE_C_FLAGS_INIT "${ev_flags}")
set(CMAKE_CXX_FLAGS_INIT "${ev_flags}")

# The dependencies' own dependencies are resolved from the sysroot at link time.
set(libdirs ${sysroot}/usr/lib/${triplet} ${sysroot}/lib/${triplet})
string(REPLACE ";" ":" rpath_link "${libdirs}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${rpath_link}")

# The sysroot holds a complete armhf C library, so it can serve as the
# emulator's root for the dynamic loader and every shared library. The
# emulator is named by its full path: tests that start programs themselves
# put it in front of the program and may not search PATH.
find_program(EV_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${EV_QEMU_ARM} -L ${sysroot}
    -E LD_LIBRARY_PATH=${sysroot}/usr/lib/${triplet}:${sysroot}/lib/${triplet})
