# json-c and the OpenWrt libraries: libuci, libubus, libubox, libblobmsg_json.
#
# Where the real libraries are, they are used and nothing else. Debian does not carry them; there the source-compatible
# subset in hostlibs/ takes their place. Defines vela_uci, vela_ubus and vela_jsonc to link with.

set(VELA_OPENWRT_LIBS auto CACHE STRING "Where the OpenWrt libraries come from: system, bundled or auto")
set_property(CACHE VELA_OPENWRT_LIBS PROPERTY STRINGS auto system bundled)

find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONC REQUIRED IMPORTED_TARGET json-c)
add_library(vela_jsonc INTERFACE)
target_link_libraries(vela_jsonc INTERFACE PkgConfig::JSONC)

set(VELA_OPENWRT_FOUND TRUE)
if(NOT VELA_OPENWRT_LIBS STREQUAL "bundled")
    find_path(UCI_INCLUDE_DIR uci.h)
    find_path(UBUS_INCLUDE_DIR libubus.h)
    find_path(UBOX_INCLUDE_DIR libubox/blobmsg_json.h)
    find_library(UCI_LIBRARY uci)
    find_library(UBUS_LIBRARY ubus)
    find_library(UBOX_LIBRARY ubox)
    find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
    foreach(part UCI_INCLUDE_DIR UBUS_INCLUDE_DIR UBOX_INCLUDE_DIR UCI_LIBRARY UBUS_LIBRARY UBOX_LIBRARY
            BLOBMSG_JSON_LIBRARY)
        if(NOT ${part})
            set(VELA_OPENWRT_FOUND FALSE)
        endif()
    endforeach()
endif()

if(VELA_OPENWRT_LIBS STREQUAL "system" AND NOT VELA_OPENWRT_FOUND)
    message(FATAL_ERROR "VELA_OPENWRT_LIBS=system, but libuci, libubus, libubox and libblobmsg_json are not all here")
endif()

add_library(vela_uci INTERFACE)
add_library(vela_ubus INTERFACE)
if(VELA_OPENWRT_LIBS STREQUAL "bundled" OR NOT VELA_OPENWRT_FOUND)
    message(STATUS "OpenWrt libraries: the bundled subset (hostlibs/)")
    set(VELA_BUNDLED_LIBS TRUE)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        # Times go beyond 2038. Structures of the OpenWrt libraries contain times: with the system's, of what size is
        # for the flags to say with which these were built.
        add_compile_definitions(_TIME_BITS=64)
    endif()
    add_subdirectory(hostlibs)
    target_link_libraries(vela_uci INTERFACE hostlibs_uci)
    target_link_libraries(vela_ubus INTERFACE hostlibs_ubus hostlibs_ubox)
else()
    message(STATUS "OpenWrt libraries: the system's (${UCI_LIBRARY}, ${UBUS_LIBRARY})")
    set(VELA_BUNDLED_LIBS FALSE)
    target_include_directories(vela_uci SYSTEM INTERFACE ${UCI_INCLUDE_DIR})
    target_link_libraries(vela_uci INTERFACE ${UCI_LIBRARY} ${UBOX_LIBRARY})
    target_include_directories(vela_ubus SYSTEM INTERFACE ${UBUS_INCLUDE_DIR} ${UBOX_INCLUDE_DIR})
    target_link_libraries(vela_ubus INTERFACE ${UBUS_LIBRARY} ${BLOBMSG_JSON_LIBRARY} ${UBOX_LIBRARY})
endif()
