# The head's own kind: ARMv5TE, floating point by software.
set(LUMET_ARCHITECTURE armel)
set(LUMET_TRIPLET arm-linux-gnueabi)
set(LUMET_EMULATOR qemu-arm)
# Instructions of half the length, of which it takes more.
set(LUMET_SMALL_CODE -mthumb)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
