# What ships: vela_modem (which exports get_api_entity too), vela_modem.so and vela_api.
#
# They are C++ without exceptions and run-time type information and need no C++ run-time library: flash is what routers
# have least of. They are linked by the C compiler, so that code which needs libstdc++ does not link. The optimisation
# level is the packager's.

add_library(vela_core STATIC
    api/at_endpoint.cpp
    api/brief_info_endpoints.cpp
    api/handler.cpp
    api/info_endpoint.cpp
    api/modem_info_endpoints.cpp
    cli/arguments.cpp
    cli/commands.cpp
    cli/connect_commands.cpp
    cli/convert.cpp
    connection/bring_up.cpp
    connection/config_endpoints.cpp
    connection/connect.cpp
    connection/firmware_upgrade.cpp
    connection/interface_control.cpp
    connection/link_endpoints.cpp
    connection/multiwan.cpp
    connection/network_config.cpp
    connection/power.cpp
    connection/power_endpoints.cpp
    modem/at_exchange.cpp
    modem/at_query.cpp
    modem/at_reply.cpp
    modem/bus_name.cpp
    modem/configured_modems.cpp
    modem/debug.cpp
    modem/detection.cpp
    modem/discovery.cpp
    modem/model.cpp
    modem/model_table.cpp
    modem/modem_core/carrier.cpp
    modem/modem_core/carrier_by_bus.cpp
    modem/modem_core/firmware_version.cpp
    modem/modem_core/identity.cpp
    modem/modem_core/mode_band.cpp
    modem/modem_core/registration.cpp
    modem/modem_core/signal.cpp
    modem/modem_core/state_files.cpp
    modem/modem_core/status_report.cpp
    modem/serial_port.cpp
    modem/sysfs_walk.cpp
    platform/board.cpp
    platform/clock.cpp
    platform/json.cpp
    platform/shell.cpp
    platform/text.cpp
    platform/ubus.cpp
    platform/uci.cpp
    platform/ucs2.cpp
    platform/utf8.cpp
    platform/wifi.cpp
    router/mcu.cpp
    router/passthrough.cpp
    router/wifi_channel.cpp
    router/wifi_interference.cpp
    sms/sms_endpoints.cpp
    sms/sms_forwarding.cpp
    sms/sms_message.cpp
    sms/sms_sending.cpp
    sms/sms_store.cpp
    sms/ssmtp_conf.cpp
    vendor/apn_database.cpp
    vendor/fibocom_cells.cpp
    vendor/fibocom_data_context.cpp
    vendor/fibocom_fields.cpp
    vendor/fibocom_registration.cpp
    vendor/fibocom_signal.cpp
    vendor/quectel_cells.cpp
    vendor/quectel_data_context.cpp
    vendor/quectel_default_band.cpp
    vendor/quectel_fields.cpp
    vendor/quectel_registration.cpp
    vendor/quectel_signal.cpp
    vendor/quectel_thermal.cpp
    vendor/sierra_busy.cpp
    vendor/sierra_cells.cpp
    vendor/sierra_registration.cpp
    vendor/sierra_signal.cpp
    vendor/sierra_status.cpp
)
# The table that both product files export; objects, as a linker takes nothing from an archive that nobody calls.
add_library(vela_endpoints OBJECT api/endpoints.cpp)

add_executable(vela_modem cli/main.cpp $<TARGET_OBJECTS:vela_endpoints>)
add_library(vela_modem_plugin MODULE $<TARGET_OBJECTS:vela_endpoints>)
add_executable(vela_api
    tools/plugin.cpp
    tools/request.cpp
    tools/rpcd.cpp
    tools/rpcd_arguments.cpp
    tools/vela_api.cpp
)

target_include_directories(vela_core PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(vela_core PUBLIC vela_uci vela_ubus vela_jsonc)
target_link_libraries(vela_endpoints PUBLIC vela_core)
target_link_libraries(vela_modem PRIVATE vela_core)
target_link_libraries(vela_modem_plugin PRIVATE vela_core)
target_link_libraries(vela_api PRIVATE vela_core ${CMAKE_DL_LIBS})

set_target_properties(vela_modem PROPERTIES ENABLE_EXPORTS ON)
set_target_properties(vela_modem_plugin PROPERTIES PREFIX "" OUTPUT_NAME vela_modem)
# A plug-in may be linked with symbols missing; that would show on the router only.
target_link_options(vela_modem_plugin PRIVATE -Wl,-z,defs)

# The tables of the product are full of pointers, and as ordinary relocations these are a fifth of the file; packed
# (RELR) they are next to nothing. Linkers that know the flag belong to C libraries that know the format: glibc from
# 2.36 and musl from 1.2.4 on. With an older one, -DVELA_PACKED_RELOCATIONS=OFF.
include(CheckLinkerFlag)
# Where it is not for the processor, the linker warns and goes on.
check_linker_flag(C -Wl,--fatal-warnings,-z,pack-relative-relocs VELA_PACKED_RELOCATIONS)

# Where a processor may have pages of 64 KiB (ARM of 64 bits, MIPS), linkers align what is made read-only after the start
# to that, with as much nothing in the file. Most routers' kernels have pages of 4 KiB.
set(VELA_PAGE_SIZE "" CACHE STRING "The page size of the router's kernel; the linker's choice if empty")

# Optimised as one program when it is linked, the product is a tenth smaller; packages are built so, too. The objects can
# also be linked in the ordinary way, for tests: each of them would be optimised anew.
option(VELA_LTO "Optimise the product as a whole when it is linked (GCC)" OFF)

# How whatever ships is compiled and linked.
set(NO_UNWINDING -fno-unwind-tables -fno-asynchronous-unwind-tables)
if(NOT CMAKE_CXX_FLAGS MATCHES "-fno-omit-frame-pointer") # a packager may want them; sanitizers do
    list(APPEND NO_UNWINDING -fomit-frame-pointer)
endif()
function(vela_product target)
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINKER_LANGUAGE C)
    target_compile_options(${target} PRIVATE
        $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
        # Nothing unwinds the stack, and pages of its own for the code cost flash: a fifth of the file, both together.
        ${NO_UNWINDING}
        -ffunction-sections -fdata-sections
        $<$<BOOL:${VELA_LTO}>:-flto=auto -ffat-lto-objects>
        -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wundef)
    target_link_options(${target} PRIVATE -Wl,--gc-sections -Wl,--as-needed -Wl,-z,relro -Wl,-z,now
        -Wl,-z,noseparate-code $<$<BOOL:${VELA_PACKED_RELOCATIONS}>:-Wl,-z,pack-relative-relocs>
        $<$<BOOL:${VELA_PAGE_SIZE}>:-Wl,-z,max-page-size=${VELA_PAGE_SIZE},-z,common-page-size=${VELA_PAGE_SIZE}>
        $<IF:$<BOOL:${VELA_LTO}>,-flto=auto,-fno-lto> ${NO_UNWINDING})
endfunction()

# The C++ compiler's libraries would be added for the C++ objects; without them a stray need is a link error.
set(CMAKE_CXX_IMPLICIT_LINK_LIBRARIES "")
foreach(target vela_core vela_endpoints vela_modem vela_modem_plugin vela_api)
    vela_product(${target})
endforeach()
