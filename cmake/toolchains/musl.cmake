# x86-64 with musl, the C library of OpenWrt: Debian's musl-gcc for C and for linking. For C++, of which musl-gcc knows
# nothing, the machine's compiler and its C++ headers with musl's C headers below them; as the product needs no C++
# run-time library, what comes of it is linked with musl alone.
#
# json-c for musl is expected in build-cross/musl/libraries, where tests/cross/fetch_libraries puts it, and with it the
# kernel's headers, which musl does not bring.
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER g++)

get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/../../build-cross/musl/libraries/root ABSOLUTE)
set(ENV{PKG_CONFIG_LIBDIR} ${root}/usr/lib/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})

execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=include OUTPUT_VARIABLE builtin
    OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES ${root}/kernel)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    ${CMAKE_CURRENT_LIST_DIR}/musl
    /usr/include/c++/${version}
    /usr/include/x86_64-linux-gnu/c++/${version}
    /usr/include/x86_64-linux-musl
    ${builtin}
    ${root}/kernel)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-nostdinc>)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-nostdinc++>)
