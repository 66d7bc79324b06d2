# ARMv7 with floating point in hardware.
set(LUMET_ARCHITECTURE armhf)
set(LUMET_TRIPLET arm-linux-gnueabihf)
set(LUMET_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
