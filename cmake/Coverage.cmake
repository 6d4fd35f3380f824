# Counts which lines and branches of the product are run, for ./run coverage. Needs clang.
#
# The counters of a program are a file that is mapped into each of its processes: so what a process has run is known also
# where it was killed, called abort() or became another program, and processes that run side by side lose nothing. Only
# the product is counted. The tests that are linked with it have their counters, too.
option(VELA_COVERAGE "Count what is run of the product (needs clang)" OFF)

if(VELA_COVERAGE)
    foreach(target vela_core vela_endpoints vela_modem vela_modem_plugin vela_api)
        # Lines and branches are those of the source, however it is optimised; and without any optimisation the product
        # would need the C++ run-time library. Counting is atomic, as a difference of two counts is a count, too, and must
        # not be wrong by one.
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:
            -O1 -fprofile-instr-generate -fcoverage-mapping "SHELL:-mllvm -runtime-counter-relocation"
            -fprofile-update=atomic -Dfork=counted_fork>)
    endforeach()
    # Whatever is linked with the product has a file of counters that is called as the target is.
    set(linked $<IN_LIST:$<TARGET_PROPERTY:TYPE>,EXECUTABLE$<SEMICOLON>MODULE_LIBRARY>)
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/counters)
    target_sources(vela_core INTERFACE $<${linked}:${CMAKE_CURRENT_SOURCE_DIR}/tests/coverage/counters.c>)
    target_compile_definitions(vela_core INTERFACE
        $<${linked}:VELA_COUNTERS="${CMAKE_BINARY_DIR}/counters/$<TARGET_PROPERTY:NAME>-%m%c.profraw">)
    target_link_options(vela_core INTERFACE -fprofile-instr-generate)
endif()
