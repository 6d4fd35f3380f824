# 64 bits, big-endian; char is unsigned. No router has it, but big-endian MIPS routers have its byte order.
set(VELA_TRIPLET s390x-linux-gnu)
set(VELA_QEMU qemu-s390x)
set(CMAKE_SYSTEM_PROCESSOR s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
