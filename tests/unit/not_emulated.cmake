# Tests that cannot run under qemu-user, each with the reason. Everywhere else they are run.
set(VELA_NOT_EMULATED
    # TIOCGEXCL, by which a test asks whether a port is open exclusively, is unknown to the emulator.
    UartOpen.no_other_process_may_open_the_port
    UartOpen.a_baud_number_outside_the_table_fails_without_an_open
)
if(CMAKE_CXX_BYTE_ORDER STREQUAL BIG_ENDIAN)
    # Where the byte orders differ, the emulator has a list of routes of its own in place of any that a test writes.
    list(APPEND VELA_NOT_EMULATED
        Gateway.only_a_route_to_everywhere_that_is_up_counts_whatever_the_order)
endif()
