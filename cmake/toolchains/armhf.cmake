# ARM with a floating-point unit, 32 bits, little-endian; char is unsigned.
set(VELA_TRIPLET arm-linux-gnueabihf)
set(VELA_QEMU qemu-arm)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
