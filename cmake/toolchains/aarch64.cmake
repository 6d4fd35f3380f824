# ARM, 64 bits, little-endian; char is unsigned.
set(VELA_TRIPLET aarch64-linux-gnu)
set(VELA_QEMU qemu-aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
