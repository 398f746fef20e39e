# Cross-build for 64-bit Arm Linux with Debian's crossbuild-essential-arm64 and the :arm64
# multiarch libraries (dpkg --add-architecture arm64), running target programs under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Libraries and headers come from the multiarch paths of the host; tools stay the host's.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)

# No -L prefix on purpose: with one, qemu takes ld.so from the cross libc but libc.so.6 from the
# multiarch libc6:arm64, two glibc builds whose private layouts differ, and pthread_create spins.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# pkg-config reads the arm64 multiarch .pc files, not the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
