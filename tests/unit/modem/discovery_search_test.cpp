// Searches by name from a start directory of the caller's.
#include "modem/discovery.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "discovery_fixture.h"
#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"
#include "support/tree.h"

namespace {

struct Found {
    int count;
    std::string where;
    int32_t opened;
};

Found search_bus(const std::string &start, const char *name) {
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 0;
    const int count = modem_search_bus(start.c_str(), name, out, &counter);
    return {count, out.data(), counter};
}

Found search_node(const std::string &start, const char *name) {
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 0;
    const int count = modem_search_usb_node(start.c_str(), name, out, &counter);
    return {count, out.data(), counter};
}

TEST_F(Discovery, the_directory_of_a_bus) {
    plug_in();
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, root / "soc/usb1/1-1/1-1.2");
}

TEST_F(Discovery, the_directory_of_an_interface) {
    plug_in();
    const Found found = search_bus(root.path(), "1-1.2:1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, root / "soc/usb1/1-1/1-1.2/1-1.2:1.2");
}

TEST_F(Discovery, a_bus_that_is_not_there) {
    plug_in();
    for (const char *name : {"1-1.3", "1-1.", "-1.2", "1-1.2:", "", ".", ".."}) {
        EXPECT_EQ(search_bus(root.path(), name).count, 0) << name;
    }
}

TEST_F(Discovery, the_start_itself_is_no_match) {
    make_tree(root, {"1-1.2"});
    EXPECT_EQ(search_bus(root / "1-1.2", "1-1.2").count, 0);
}

TEST_F(Discovery, a_file_or_link_of_that_name_is_no_match) {
    make_tree(root, {"real"});
    write_file(root / "1-1.2", "");
    ASSERT_EQ(symlink("real", (root / "1-1.3").c_str()), 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.3").count, 0);
}

TEST_F(Discovery, a_bus_behind_a_symbolic_link_is_not_found) {
    ScratchDirectory elsewhere;
    make_tree(elsewhere, {"1-1.2"});
    ASSERT_EQ(symlink(elsewhere.path().c_str(), (root / "devices").c_str()), 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 0);
}

TEST_F(Discovery, the_first_match_in_reading_order_wins_and_the_walk_goes_on) {
    make_tree(root, {"a/1-1.2", "b/1-1.2", "c/1-1.2"});
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 3);
    EXPECT_EQ(found.where, root / (in_reading_order(root.path()).front() + "/1-1.2"));
    EXPECT_EQ(found.opened, 4);
}

TEST_F(Discovery, a_match_ends_the_directory_that_it_stands_in) {
    make_tree(root, {"1-1.2/inside/1-1.2", "before", "behind"});
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 1) << "what is inside a match is not looked at";
    const auto order = in_reading_order(root.path());
    const auto position = std::find(order.begin(), order.end(), "1-1.2") - order.begin();
    EXPECT_EQ(found.opened, 1 + position) << "the start and what was read before the match";
}

TEST_F(Discovery, a_tree_of_more_than_1000_directories_fails_every_search) {
    make_tree(root, {"a/1-1.2"});
    for (int i = 0; i < 998; i++) {
        ASSERT_TRUE(std::filesystem::create_directory(root / ("d" + std::to_string(i))));
    }
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 1) << "1000 with the start";
    ASSERT_TRUE(std::filesystem::create_directory(root / "one-more"));
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, -1);
    EXPECT_EQ(search_bus(root.path(), "1-1.3").count, -1);
    EXPECT_EQ(search_node(root.path(), "1-1.2").count, -1);
}

TEST_F(Discovery, a_start_that_is_not_there_fails) {
    EXPECT_EQ(search_bus("/nonexistent/platform", "1-1.2").count, -1);
    EXPECT_EQ(search_node("/nonexistent/platform", "wwan0").count, -1);
}

TEST_F(Discovery, the_callers_counter_goes_on) {
    plug_in();
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 999;
    EXPECT_EQ(modem_search_bus(root.path().c_str(), "1-1.2", out, &counter), -1);
}

TEST_F(Discovery, nothing_is_printed_and_no_descriptor_stays) {
    plug_in();
    const int before = open_descriptors();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    search_bus(root.path(), "1-1.2");
    search_bus(root.path(), "none");
    search_bus("/nonexistent", "none");
    search_node(root.path(), "wwan0");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Discovery, a_path_that_does_not_fit_the_buffer_aborts) {
    const std::string name(200, 'd');
    std::filesystem::create_directories(root / (name + "/" + name + "/" + name));
    EXPECT_ABORT(search_bus(root.path(), "1-1.2"));
    EXPECT_ABORT(search_node(root.path(), "1-1.2"));
}

TEST_F(Discovery, the_node_of_a_network_device) {
    plug_in();
    const Found found = search_node(root.path(), "wwan0");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2:1.4");
}

TEST_F(Discovery, the_node_of_a_control_device) {
    plug_in();
    const Found found = search_node(root.path(), "cdc-wdm0");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2:1.4");
}

TEST_F(Discovery, the_node_of_a_serial_port) {
    plug_in();
    const Found found = search_node(root.path(), "ttyUSB2");
    EXPECT_EQ(found.count, 1) << "the second directory of that name is inside the first";
    EXPECT_EQ(found.where, "1-1.2:1.2");
}

TEST_F(Discovery, the_node_of_an_interface_is_its_device) {
    plug_in();
    const Found found = search_node(root.path(), "1-1.2:1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2");
}

TEST_F(Discovery, of_several_nodes_the_first_in_reading_order) {
    make_tree(root, {"1-1.2/net/wwan0", "1-1.3/net/wwan0"});
    const Found found = search_node(root.path(), "wwan0");
    EXPECT_EQ(found.count, 2);
    EXPECT_EQ(found.where, in_reading_order(root.path()).front());
}

TEST_F(Discovery, a_match_that_a_node_holds_itself) {
    make_tree(root, {"1-1.2/net"});
    EXPECT_EQ(search_node(root.path(), "net").where, "1-1.2");
    EXPECT_EQ(search_node(root / "1-1.2", "net").where, "1-1.2");
}

TEST_F(Discovery, a_node_above_the_start_counts) {
    make_tree(root, {"1-1.2/start/net/eth1"});
    const Found found = search_node(root / "1-1.2/start", "eth1");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2");
}

TEST_F(Discovery, the_root_hub_is_no_node) {
    make_tree(root, {"soc/usb1/net/eth1"});
    EXPECT_EQ(search_node(root.path(), "eth1").count, 0);
}

TEST_F(Discovery, a_device_below_no_usb_node_gives_0) {
    make_tree(root, {"soc/ethernet/net/eth0"});
    EXPECT_EQ(search_node(root.path(), "eth0").count, 0);
    EXPECT_EQ(search_node(root.path(), "eth1").count, 0);
}

} // namespace
