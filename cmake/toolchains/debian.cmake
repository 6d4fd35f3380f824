# What the toolchain files in this directory share: Debian's cross compiler, and qemu-user for what was built with it.
#
# A toolchain file sets VELA_TRIPLET (the compiler's prefix), VELA_QEMU (the emulator) and CMAKE_SYSTEM_PROCESSOR, and
# includes this one. json-c and GoogleTest for the processor are expected in build-cross/NAME/libraries, where
# tests/cross/fetch_libraries puts them; NAME is that of the toolchain file.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${VELA_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${VELA_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${VELA_TRIPLET})

get_filename_component(name ${CMAKE_PARENT_LIST_FILE} NAME_WE)
get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/../../build-cross/${name}/libraries/root ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH ${root} /usr/${VELA_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/${VELA_TRIPLET}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})

set(CMAKE_CROSSCOMPILING_EMULATOR ${VELA_QEMU} -L /usr/${VELA_TRIPLET})
