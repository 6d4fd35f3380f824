# The tests of the bundled libuci; included where hostlibs/uci was added and GTest was found.
add_executable(uci_test
    ${CMAKE_CURRENT_LIST_DIR}/uci_change_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_cli_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_commit_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_format_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_header_test.c)
target_compile_features(uci_test PRIVATE cxx_std_20)
target_compile_definitions(uci_test PRIVATE UCI_CLI_PATH="$<TARGET_FILE:uci_cli>")
target_link_libraries(uci_test PRIVATE hostlibs_uci GTest::gtest_main)
add_dependencies(uci_test uci_cli)
include(GoogleTest)
# A lock that is never released would show as a test that never ends.
gtest_discover_tests(uci_test DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
