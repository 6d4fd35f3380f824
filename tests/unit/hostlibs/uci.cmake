# The tests of the bundled libuci; included where hostlibs/uci was added and GTest was found.
add_executable(uci_test
    ${CMAKE_CURRENT_LIST_DIR}/uci_change_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_commit_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_format_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_header_test.c)
target_compile_features(uci_test PRIVATE cxx_std_20)
target_link_libraries(uci_test PRIVATE hostlibs_uci GTest::gtest_main)
vela_program_under_test(uci_test UCI_CLI_PATH uci_cli)
vela_tests_of(uci_test)
