// The walk itself: which entries it meets in which order, how a search steers it, and where it ends.
#include "modem/sysfs_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/files.h"
#include "support/system_calls.h"
#include "support/tree.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Of a file system that does not tell what an entry is.
long without_types(long number, long first, long second, long third) {
    const long result = real_system_call(number, first, second, third);
    if (number == SYS_getdents64) {
        auto *const entries = reinterpret_cast<char *>(second);
        for (long position = 0; position < result;) {
            auto *const entry = reinterpret_cast<dirent64 *>(entries + position);
            entry->d_type = DT_UNKNOWN;
            position += entry->d_reclen;
        }
    }
    return result;
}

class SysfsWalk : public testing::Test {
protected:
    using Search = std::function<Visit(const std::string &directory, const std::string &name)>;

    // Walks the tree; what was met stays in `met`, as paths below the root.
    int walk(const Search &search) {
        met.clear();
        struct Context {
            SysfsWalk *test;
            const Search &search;
        } context = {this, search};
        return walk_directories(
            root.path().c_str(), &counter,
            [](const char *directory, const char *name, void *opaque) {
                auto *here = static_cast<Context *>(opaque);
                const std::string path = std::string(directory) + "/" + name;
                here->test->met.push_back(path.substr(here->test->root.path().size() + 1));
                return here->search(directory, name);
            },
            &context);
    }
    int walk_all() {
        return walk([](const auto &, const auto &) { return Visit::DESCEND; });
    }

    ScratchDirectory root;
    int32_t counter = 0;
    std::vector<std::string> met;
};

TEST_F(SysfsWalk, an_empty_directory) {
    EXPECT_EQ(walk_all(), 0);
    EXPECT_EQ(counter, 1);
    EXPECT_THAT(met, IsEmpty());
}

TEST_F(SysfsWalk, meets_every_directory_once_and_opens_it) {
    make_tree(root, {"a/b/c", "a/d", "e"});
    EXPECT_EQ(walk_all(), 0);
    EXPECT_THAT(met, UnorderedElementsAre("a", "a/b", "a/b/c", "a/d", "e"));
    EXPECT_EQ(counter, 6);
}

TEST_F(SysfsWalk, a_directory_comes_before_what_is_in_it_and_that_before_its_neighbours) {
    make_tree(root, {"a/x/1", "b/y/2", "c/z/3"});
    walk_all();
    std::vector<std::string> expected;
    for (const std::string &first : in_reading_order(root.path())) {
        expected.push_back(first);
        for (const std::string &second : in_reading_order(root / first)) {
            expected.push_back(first + "/" + second);
            for (const std::string &third : in_reading_order(root / (first + "/" + second))) {
                expected.push_back(first + "/" + second + "/" + third);
            }
        }
    }
    EXPECT_EQ(met, expected);
}

TEST_F(SysfsWalk, files_and_symbolic_links_are_not_met) {
    make_tree(root, {"real/inside"});
    write_file(root / "file", "");
    ASSERT_EQ(symlink("real", (root / "link").c_str()), 0);
    ASSERT_EQ(symlink("..", (root / "real/loop").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (root / "broken").c_str()), 0);
    ASSERT_EQ(mkfifo((root / "fifo").c_str(), 0600), 0);
    walk_all();
    EXPECT_THAT(met, UnorderedElementsAre("real", "real/inside"));
}

TEST_F(SysfsWalk, a_file_system_that_does_not_tell_what_an_entry_is_makes_no_difference) {
    make_tree(root, {"a/b/c", "a/d", "e"});
    write_file(root / "a/file", "");
    ASSERT_EQ(symlink("a", (root / "link").c_str()), 0);
    const SystemCalls untyped(without_types);
    EXPECT_EQ(walk([](const auto &, const auto &name) { return name == "c" ? Visit::FOUND_DESCEND : Visit::DESCEND; }),
              1);
    EXPECT_THAT(met, UnorderedElementsAre("a", "a/b", "a/b/c", "a/d", "e"));
    EXPECT_EQ(counter, 6);
}

TEST_F(SysfsWalk, names_that_begin_with_dots_are_directories_as_others) {
    make_tree(root, {".hidden", "...", "..a"});
    walk_all();
    EXPECT_THAT(met, UnorderedElementsAre(".hidden", "...", "..a"));
}

TEST_F(SysfsWalk, found_entries_are_counted) {
    make_tree(root, {"a/b", "c/b", "b"});
    EXPECT_EQ(walk([](const auto &, const auto &name) { return name == "b" ? Visit::FOUND_DESCEND : Visit::DESCEND; }),
              3);
}

TEST_F(SysfsWalk, found_descend_goes_into_what_it_counts) {
    make_tree(root, {"b/b/b"});
    EXPECT_EQ(walk([](const auto &, const auto &) { return Visit::FOUND_DESCEND; }), 3);
    EXPECT_EQ(counter, 4);
}

TEST_F(SysfsWalk, found_leave_leaves_the_rest_of_the_directory_and_goes_on_above_it) {
    make_tree(root, {"one/a/x", "one/b/x", "two/a/x", "two/b/x"});
    const int found = walk([](const auto &, const auto &name) {
        return name == "a" || name == "b" ? Visit::FOUND_LEAVE : Visit::DESCEND;
    });
    EXPECT_EQ(found, 2);
    EXPECT_EQ(met.size(), 4u) << "in each of two directories the first entry";
    EXPECT_EQ(counter, 3);
}

TEST_F(SysfsWalk, leave_leaves_the_rest_of_the_directory_without_counting) {
    make_tree(root, {"one/a/x", "one/b/x", "two/a/x", "two/b/x"});
    const int found =
        walk([](const auto &, const auto &name) { return name == "a" || name == "b" ? Visit::LEAVE : Visit::DESCEND; });
    EXPECT_EQ(found, 0);
    EXPECT_EQ(met.size(), 4u);
}

TEST_F(SysfsWalk, leave_at_the_top_ends_the_walk) {
    make_tree(root, {"a/x", "b/x", "c/x"});
    EXPECT_EQ(walk([](const auto &, const auto &) { return Visit::LEAVE; }), 0);
    EXPECT_EQ(met.size(), 1u);
    EXPECT_EQ(counter, 1);
}

TEST_F(SysfsWalk, found_end_ends_the_whole_walk) {
    make_tree(root, {"one/a/x", "two/a/x", "three/a/x"});
    EXPECT_EQ(walk([](const auto &, const auto &name) { return name == "x" ? Visit::FOUND_END : Visit::DESCEND; }), 1);
    EXPECT_EQ(met.size(), 3u);
    EXPECT_EQ(counter, 3);
}

TEST_F(SysfsWalk, found_end_keeps_what_was_counted_before) {
    make_tree(root, {"a/b/c"});
    EXPECT_EQ(
        walk([](const auto &, const auto &name) { return name == "c" ? Visit::FOUND_END : Visit::FOUND_DESCEND; }), 3);
}

TEST_F(SysfsWalk, the_search_gets_the_directory_and_the_name) {
    make_tree(root, {"a/b"});
    std::vector<std::string> seen;
    walk([&](const auto &directory, const auto &name) {
        seen.push_back(directory + " " + name);
        return Visit::DESCEND;
    });
    EXPECT_THAT(seen, ElementsAre(root.path() + " a", root / "a" + " b"));
}

TEST_F(SysfsWalk, a_start_that_cannot_be_opened_fails) {
    int32_t opened = 0;
    const auto never = [](const char *, const char *, void *) { return Visit::DESCEND; };
    EXPECT_EQ(walk_directories("/nonexistent/tree", &opened, never, nullptr), -1);
    write_file(root / "file", "");
    opened = 0;
    EXPECT_EQ(walk_directories((root / "file").c_str(), &opened, never, nullptr), -1);
}

TEST_F(SysfsWalk, an_entry_that_cannot_be_opened_fails_the_walk) {
    make_tree(root, {"gone"});
    EXPECT_EQ(walk([](const auto &directory, const auto &name) {
                  EXPECT_EQ(rmdir((directory + "/" + name).c_str()), 0);
                  return Visit::DESCEND;
              }),
              -1);
}

TEST_F(SysfsWalk, an_entry_that_cannot_be_opened_fails_the_walk_whatever_was_found) {
    make_tree(root, {"a", "b", "c"});
    EXPECT_EQ(walk([&](const auto &directory, const auto &name) {
                  if (met.size() == 3) {
                      EXPECT_EQ(rmdir((directory + "/" + name).c_str()), 0);
                  }
                  return Visit::FOUND_DESCEND;
              }),
              -1);
}

class ManyDirectories : public SysfsWalk {
protected:
    void make(int count) {
        for (int i = 0; i < count; i++) {
            ASSERT_TRUE(std::filesystem::create_directory(root / ("d" + std::to_string(i))));
        }
    }
};

TEST_F(ManyDirectories, a_thousand_with_the_start_are_walked) {
    make(999);
    EXPECT_EQ(walk_all(), 0);
    EXPECT_EQ(counter, 1000);
    EXPECT_EQ(met.size(), 999u);
}

TEST_F(ManyDirectories, one_more_fails) {
    make(1000);
    EXPECT_EQ(walk_all(), -1);
}

TEST_F(ManyDirectories, one_more_fails_whatever_was_found) {
    make(1000);
    EXPECT_EQ(walk([](const auto &, const auto &) { return Visit::FOUND_DESCEND; }), -1);
}

TEST_F(ManyDirectories, only_those_that_are_opened_count) {
    make(1000);
    int left = 1000;
    EXPECT_EQ(walk([&](const auto &, const auto &) { return --left == 0 ? Visit::LEAVE : Visit::DESCEND; }), 0);
    EXPECT_EQ(counter, 1000);
}

TEST_F(ManyDirectories, the_count_goes_on_from_the_callers_start_value) {
    make(9);
    counter = 990;
    EXPECT_EQ(walk_all(), 0);
    EXPECT_EQ(counter, 1000);
    counter = 991;
    EXPECT_EQ(walk_all(), -1);
    counter = 1000;
    EXPECT_EQ(walk_all(), -1);
}

TEST_F(ManyDirectories, a_chain_of_as_many_levels_is_walked) {
    std::string chain = root.path();
    for (int i = 0; i < 200; i++) {
        chain += "/1";
        ASSERT_TRUE(std::filesystem::create_directory(chain));
    }
    EXPECT_EQ(walk_all(), 0);
    EXPECT_EQ(counter, 201);
}

TEST_F(SysfsWalk, leaves_no_descriptor_open) {
    make_tree(root, {"a/b/c", "d/e/f"});
    const int before = open_descriptors();
    walk_all();
    walk([](const auto &, const auto &name) { return name == "b" ? Visit::FOUND_END : Visit::DESCEND; });
    walk([](const auto &, const auto &) { return Visit::FOUND_LEAVE; });
    counter = 999;
    walk_all();
    EXPECT_EQ(open_descriptors(), before);
}

// The longest path with its terminator takes the whole buffer.
std::string directory_of_length(const ScratchDirectory &root, size_t length) {
    std::string path = root.path();
    while (path.size() < length) {
        const size_t left = length - path.size() - 1;
        path += "/" + std::string(left > 255 ? 200 : left, 'd');
    }
    EXPECT_EQ(path.size(), length);
    std::filesystem::create_directories(path);
    return path;
}

TEST_F(SysfsWalk, the_longest_path_that_fits) {
    directory_of_length(root, SYSFS_PATH_SIZE - 1);
    EXPECT_EQ(walk_all(), 0);
}

TEST_F(SysfsWalk, a_longer_path_aborts) {
    directory_of_length(root, SYSFS_PATH_SIZE);
    EXPECT_ABORT(walk_all());
}

} // namespace
