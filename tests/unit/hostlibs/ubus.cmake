# The tests of hostlibs/ubus. The client's talk to the simulated router's bus daemon, a Python program.
add_executable(ubus_test
    ${CMAKE_CURRENT_LIST_DIR}/blob_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/blobmsg_json_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/blobmsg_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ubus_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ubus_client_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ubus_daemon.cpp
)
target_compile_definitions(ubus_test PRIVATE
    PYTHON="/usr/bin/python3"
    SIM_DIR="${CMAKE_CURRENT_LIST_DIR}/../../../sim"
)
target_compile_features(ubus_test PRIVATE cxx_std_20)
target_link_libraries(ubus_test PRIVATE hostlibs_ubus GTest::gtest_main)
vela_program_under_test(ubus_test UBUS_CLI ubus_cli)
vela_tests_of(ubus_test)
