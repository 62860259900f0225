# Cross-building for 32-bit ARM (armhf) with Debian's cross compilers. The
# libraries the tests need come unpacked from Debian's armhf packages into
# QV_ARM_SYSROOT (see scripts/test-arm.sh); the C library from the cross
# toolchain. Tests run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(QV_ARM_SYSROOT "$ENV{QV_ARM_SYSROOT}" CACHE PATH "Unpacked armhf packages")
set(QV_ARM_LIBS "${QV_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf "${QV_ARM_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(_qv_flags "-isystem ${QV_ARM_SYSROOT}/usr/include -isystem ${QV_ARM_SYSROOT}/usr/include/arm-linux-gnueabihf")
set(CMAKE_C_FLAGS_INIT "${_qv_flags}")
set(CMAKE_CXX_FLAGS_INIT "${_qv_flags}")
set(_qv_link "")
foreach(dir "${QV_ARM_LIBS}" "${QV_ARM_SYSROOT}/lib/arm-linux-gnueabihf")
  string(APPEND _qv_link " -L${dir} -Wl,-rpath-link,${dir}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_qv_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_qv_link}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf
    -E "LD_LIBRARY_PATH=${QV_ARM_LIBS}:${QV_ARM_SYSROOT}/lib/arm-linux-gnueabihf")
