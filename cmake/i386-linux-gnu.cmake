# Toolchain for the library's declared platform, 32-bit x86 Linux: g++ -m32 (g++-multilib)
# against the i386 sysroot that `scripts/install-deps.sh --i386` unpacks, with the tests run under
# qemu-i386-static.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)

if(DEFINED ENV{TARNXML_I386_SYSROOT})
  set(TARNXML_I386_SYSROOT "$ENV{TARNXML_I386_SYSROOT}")
else()
  set(TARNXML_I386_SYSROOT /opt/tarnxml/i386-sysroot)
endif()
set(_libdirs "${TARNXML_I386_SYSROOT}/usr/lib/i386-linux-gnu;${TARNXML_I386_SYSROOT}/lib/i386-linux-gnu")

set(CMAKE_C_FLAGS_INIT "-m32")
set(CMAKE_CXX_FLAGS_INIT "-m32")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
      "-m32 -Wl,-rpath-link,${TARNXML_I386_SYSROOT}/usr/lib/i386-linux-gnu -Wl,-rpath-link,${TARNXML_I386_SYSROOT}/lib/i386-linux-gnu")
endforeach()

set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${TARNXML_I386_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The C library's headers come from the host's multilib installation.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "${TARNXML_I386_SYSROOT}/usr/lib/i386-linux-gnu/pkgconfig:${TARNXML_I386_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${TARNXML_I386_SYSROOT}")

# ctest runs every test program through the emulator; the sysroot's libraries are found through
# LD_LIBRARY_PATH, which qemu passes on to the program.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-i386-static)
set(TARNXML_TEST_ENVIRONMENT "LD_LIBRARY_PATH=${TARNXML_I386_SYSROOT}/usr/lib/i386-linux-gnu:${TARNXML_I386_SYSROOT}/lib/i386-linux-gnu")
