# MIPS, 32 bits, little-endian; char is signed.
set(VELA_TRIPLET mipsel-linux-gnu)
set(VELA_QEMU qemu-mipsel)
set(CMAKE_SYSTEM_PROCESSOR mipsel)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
