# Cross build for the register's board: 32-bit ARM (armhf) Debian, against the sysroot that
# scripts/armhf-sysroot.sh makes. The tests run under qemu-user.
#   cmake -S . -B build-armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake \
#         -DARTICLEMANAGER_ARMHF_SYSROOT=$(scripts/armhf-sysroot.sh)
# (scripts/test-armhf.sh does this.)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

# try_compile projects see the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARTICLEMANAGER_ARMHF_SYSROOT)
if(NOT ARTICLEMANAGER_ARMHF_SYSROOT)
    set(ARTICLEMANAGER_ARMHF_SYSROOT "$ENV{ARTICLEMANAGER_ARMHF_SYSROOT}")
endif()
if(NOT EXISTS "${ARTICLEMANAGER_ARMHF_SYSROOT}/usr/include")
    message(FATAL_ERROR "no armhf sysroot at ${ARTICLEMANAGER_ARMHF_SYSROOT}: "
                        "run scripts/armhf-sysroot.sh")
endif()
set(CMAKE_SYSROOT "${ARTICLEMANAGER_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The board's programs run here under user-mode emulation, with the sysroot as their root for
# the loader and the libraries.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${ARTICLEMANAGER_ARMHF_SYSROOT}")

# Qt's code generators run on this machine: the host's, not the sysroot's ARM binaries.
set(ARTICLEMANAGER_HOST_QT_BINDIR /usr/lib/qt5/bin)
