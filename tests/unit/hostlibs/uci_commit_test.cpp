// Commits: several processes at once, failures half way, and processes killed in the middle.
#include "uci_fixture.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <random>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace uci_test {
namespace {

class UciCommit : public UciTest {
protected:
    // Runs in a child for which every file ends at `limit` bytes, as on a full disk.
    template <typename Function> int with_files_limited_to(rlim_t limit, Function function) {
        return wait_for(start([&] {
            const rlimit value = {limit, limit};
            signal(SIGXFSZ, SIG_IGN);
            return setrlimit(RLIMIT_FSIZE, &value) == 0 ? function() : 99;
        }));
    }
};

TEST_F(UciCommit, changes_of_others_survive) {
    write_config("pkg", "config a 'b'\n\toption x '0'\n\toption y '0'\n");
    const Context first = open();
    const Context second = open();
    ASSERT_EQ(set(first, "pkg.b.x=1"), UCI_OK);
    ASSERT_EQ(set(second, "pkg.b.y=1"), UCI_OK);
    ASSERT_EQ(commit(first, "pkg"), UCI_OK);
    EXPECT_EQ(get(second, "pkg.b.x"), "0") << "loaded before";
    ASSERT_EQ(commit(second, "pkg"), UCI_OK);
    EXPECT_EQ(get(second, "pkg.b.x"), "1") << "read again by the commit";
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '1'\n\toption y '1'\n");
}

TEST_F(UciCommit, staged_changes_are_seen_and_committed_by_others) {
    write_config("pkg", "config a 'b'\n");
    const Context stager = open();
    ASSERT_EQ(set(stager, "pkg.b.x=1"), UCI_OK);
    EXPECT_EQ(get(open(), "pkg.b.x"), "(absent)");
    ASSERT_EQ(save(stager, "pkg"), UCI_OK);
    ASSERT_EQ(save(stager, "pkg"), UCI_OK) << "nothing more to save";
    EXPECT_EQ(delta("pkg"), "pkg.b.x='1'\n");
    const Context other = open();
    EXPECT_EQ(get(other, "pkg.b.x"), "1");
    ASSERT_EQ(set(other, "pkg.b.y=2"), UCI_OK);
    ASSERT_EQ(commit(other, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '1'\n\toption y '2'\n");
    EXPECT_EQ(delta("pkg"), "");
    const std::string before = config("pkg");
    ASSERT_EQ(commit(stager, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), before);
}

TEST_F(UciCommit, the_package_pointer_is_the_package_read_again) {
    write_config("pkg", "config a 'b'\n");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    uci_package *package = Place(context, "pkg").ptr.p;
    ASSERT_EQ(uci_commit(context.get(), &package, false), UCI_OK);
    EXPECT_EQ(package, Place(context, "pkg").ptr.p);
    ASSERT_EQ(set(context, "pkg.b.x=2"), UCI_OK);
    ASSERT_EQ(uci_commit(context.get(), &package, false), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '2'\n");
}

TEST_F(UciCommit, without_changes_the_file_is_left_alone) {
    write_config("pkg", "config  a b # with a comment\n");
    const Context context = open();
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "config  a b # with a comment\n");
    EXPECT_FALSE(std::filesystem::exists(savedir_));
}

TEST_F(UciCommit, overwriting_writes_what_is_in_memory) {
    write_config("pkg", "config a 'b'\n");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    write_config("pkg", "config other 'o'\n");
    uci_package *package = Place(context, "pkg").ptr.p;
    ASSERT_EQ(uci_commit(context.get(), &package, true), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '1'\n");
}

TEST_F(UciCommit, mode_and_owner_are_kept) {
    write_config("pkg", "config a 'b'\n");
    ASSERT_EQ(chmod(config_path("pkg").c_str(), 0640), 0);
    const bool root = geteuid() == 0;
    if (root) {
        ASSERT_EQ(chown(config_path("pkg").c_str(), 12, 34), 0);
    }
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    struct stat status = {};
    ASSERT_EQ(stat(config_path("pkg").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    if (root) {
        EXPECT_EQ(status.st_uid, 12u);
        EXPECT_EQ(status.st_gid, 34u);
    }
}

TEST_F(UciCommit, a_symbolic_link_stays_one) {
    std::filesystem::create_directory(root_ + "/elsewhere");
    write_file(root_ + "/elsewhere/real", "config a 'b'\n");
    std::filesystem::create_symlink(root_ + "/elsewhere/real", config_path("pkg"));
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_TRUE(std::filesystem::is_symlink(config_path("pkg")));
    EXPECT_EQ(read_file(root_ + "/elsewhere/real"), "\nconfig a 'b'\n\toption x '1'\n");
}

TEST_F(UciCommit, a_file_that_is_gone) {
    write_config("pkg", "config a 'b'\n");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    std::filesystem::remove(config_path("pkg"));
    EXPECT_EQ(commit(context, "pkg"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(files_in_confdir(), 0u);
}

TEST_F(UciCommit, no_place_for_the_delta) {
    write_config("pkg", "config a 'b'\n");
    write_file(savedir_, "a file where the directory should be");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    EXPECT_EQ(save(context, "pkg"), UCI_ERR_IO);
    EXPECT_EQ(commit(context, "pkg"), UCI_ERR_IO);
    EXPECT_EQ(config("pkg"), "config a 'b'\n");
    EXPECT_EQ(files_in_confdir(), 1u);
    EXPECT_EQ(get(context, "pkg.b.x"), "1") << "the package is as it was";
    std::filesystem::remove(savedir_);
    EXPECT_EQ(commit(context, "pkg"), UCI_OK) << "and can be committed when there is room again";
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '1'\n");
}

TEST_F(UciCommit, the_delta_is_full) {
    write_config("pkg", "config a 'b'\n");
    write_delta("pkg", "pkg.b.staged='1'\n");
    const int failed = with_files_limited_to(100, [&] {
        const Context context = open();
        const int error = set(context, "pkg.b.x=" + std::string(200, 'x'));
        return error == UCI_OK ? commit(context, "pkg") : error;
    });
    EXPECT_EQ(failed, UCI_ERR_IO);
    EXPECT_EQ(config("pkg"), "config a 'b'\n");
    EXPECT_EQ(delta("pkg"), "pkg.b.staged='1'\n") << "nothing half-written stays behind";
    EXPECT_EQ(files_in_confdir(), 1u);
}

TEST_F(UciCommit, the_configuration_directory_is_full) {
    const std::string before = "config a 'b'\n\toption long '" + std::string(300, 'x') + "'\n";
    write_config("pkg", before);
    const int failed = with_files_limited_to(100, [&] {
        const Context context = open();
        const int error = set(context, "pkg.b.x=1");
        return error == UCI_OK ? commit(context, "pkg") : error;
    });
    EXPECT_EQ(failed, UCI_ERR_IO);
    EXPECT_EQ(config("pkg"), before);
    EXPECT_EQ(files_in_confdir(), 1u) << "no temporary file stays behind";
    const Context context = open();
    EXPECT_EQ(get(context, "pkg.b.x"), "1") << "the change is still staged";
    EXPECT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_EQ(delta("pkg"), "");
}

TEST_F(UciCommit, a_record_that_was_cut_short_spoils_nothing) {
    write_config("pkg", "config a 'b'\n\toption x '0'\n");
    for (const char *torn : {"-pkg.b", "-pkg.b.x", "pkg.b.y='open\n", "pkg.b.y='1'", "|"}) {
        write_delta("pkg", std::string("pkg.b.z='1'\n") + torn);
        const Context context = open();
        EXPECT_EQ(get(context, "pkg.b.z"), "1") << torn;
        ASSERT_EQ(set(context, "pkg.b.w=1"), UCI_OK);
        ASSERT_EQ(save(context, "pkg"), UCI_OK);
        EXPECT_EQ(delta("pkg"), "pkg.b.z='1'\npkg.b.w='1'\n") << torn;
    }
    ASSERT_EQ(commit(open(), "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '0'\n\toption z '1'\n\toption w '1'\n");
}

TEST_F(UciCommit, stale_temporary_files_do_not_disturb) {
    write_config("pkg", "config a 'b'\n");
    write_config(".pkg.uci-abcdef", "half a fi");
    write_config(".pkg.uci-000000", "");
    const Context context = open();
    ASSERT_EQ(set(context, "pkg.b.x=1"), UCI_OK);
    ASSERT_EQ(commit(context, "pkg"), UCI_OK);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption x '1'\n");
    EXPECT_EQ(files_in_confdir(), 3u);
}

// A process is waiting for the lock while the file it opened is replaced; it has to go on with the new one.
TEST_F(UciCommit, a_file_replaced_while_waiting_for_its_lock) {
    write_config("pkg", "config a 'b'\n");
    std::array<int, 2> changed = {};
    std::array<int, 2> locked = {};
    ASSERT_EQ(pipe(changed.data()), 0);
    ASSERT_EQ(pipe(locked.data()), 0);
    const pid_t child = start([&] {
        char byte;
        const Context context = open();
        if (const int error = set(context, "pkg.b.x=1"); error != UCI_OK)
            return error;
        if (write(changed[1], "x", 1) != 1 || read(locked[0], &byte, 1) != 1)
            return 98;
        return commit(context, "pkg");
    });
    char byte;
    ASSERT_EQ(read(changed[0], &byte, 1), 1);
    const int fd = ::open(config_path("pkg").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    ASSERT_EQ(write(locked[1], "x", 1), 1);
    // The child waits for the lock by now, or comes too late to see the old file; the outcome has to be the same.
    usleep(50000);
    write_file(root_ + "/new", "config a 'b'\n\toption y '2'\n");
    ASSERT_EQ(rename((root_ + "/new").c_str(), config_path("pkg").c_str()), 0);
    close(fd);
    EXPECT_EQ(wait_for(child), UCI_OK);
    for (const int end : {changed[0], changed[1], locked[0], locked[1]})
        close(end);
    EXPECT_EQ(config("pkg"), "\nconfig a 'b'\n\toption y '2'\n\toption x '1'\n");
}

constexpr int PROCESSES = 4;
constexpr int COMMITS = 100;

std::string writer_name(int i) {
    return std::string("w").append(std::to_string(i));
}

int commit_a_hundred_times(const Context &first, const std::string &me, const std::string &confdir,
                           const std::string &savedir) {
    const std::string last = "pkg." + me + ".last=";
    const std::string all = "pkg." + me + ".all=";
    const std::string common = "pkg.common.all=" + me + "_";
    for (int i = 1; i <= COMMITS; i++) {
        // Every other commit in a context of its own, as separate runs of a program would.
        Context fresh(uci_alloc_context(), &uci_free_context);
        uci_set_confdir(fresh.get(), confdir.c_str());
        uci_set_savedir(fresh.get(), savedir.c_str());
        const Context &context = i % 2 == 0 ? first : fresh;
        const std::string number = std::to_string(i);
        int error = set(context, last + number);
        if (error == UCI_OK)
            error = add_list(context, all + number);
        if (error == UCI_OK)
            error = add_list(context, common + number);
        if (error == UCI_OK)
            error = commit(context, "pkg");
        if (error != UCI_OK)
            return error;
    }
    return 0;
}

// Reads the raw file, without any lock, until told to stop: it has to be complete at every moment.
int read_until_removed(const std::string &config, const std::string &while_exists) {
    while (access(while_exists.c_str(), F_OK) == 0) {
        const std::string text = read_file(config);
        if (text.find("config mark 'end'\n\toption complete 'yes'\n") == std::string::npos)
            return 1;
    }
    return 0;
}

TEST_F(UciCommit, four_processes_lose_nothing) {
    std::string text = "config list 'common'\n";
    for (int i = 0; i < PROCESSES; i++)
        text.append("\nconfig writer '").append(writer_name(i)).append("'\n");
    write_config("pkg", text + "\nconfig mark 'end'\n\toption complete 'yes'\n");
    write_file(root_ + "/writing", "");

    const pid_t reader = start([&] { return read_until_removed(config_path("pkg"), root_ + "/writing"); });
    std::array<pid_t, PROCESSES> writers = {};
    for (int i = 0; i < PROCESSES; i++)
        writers[static_cast<std::size_t>(i)] =
            start([&] { return commit_a_hundred_times(open(), writer_name(i), confdir_, savedir_); });
    for (const pid_t writer : writers)
        EXPECT_EQ(wait_for(writer), UCI_OK);
    std::filesystem::remove(root_ + "/writing");
    EXPECT_EQ(wait_for(reader), 0) << "a half-written file was seen";

    const Context context = open();
    std::string all = "[1";
    for (int i = 2; i <= COMMITS; i++)
        all.append(",").append(std::to_string(i));
    for (int i = 0; i < PROCESSES; i++) {
        EXPECT_EQ(get(context, "pkg." + writer_name(i) + ".last"), std::to_string(COMMITS));
        EXPECT_EQ(get(context, "pkg." + writer_name(i) + ".all"), all + "]");
    }
    const std::string common = get(context, "pkg.common.all");
    EXPECT_EQ(std::count(common.begin(), common.end(), ',') + 1, PROCESSES * COMMITS);
    EXPECT_EQ(delta("pkg"), "");
    EXPECT_EQ(files_in_confdir(), 1u);
}

// Commits pairs of equal options until it is killed, and says so after each.
int commit_until_killed(const Context &context, int report) {
    for (unsigned i = 1;; i++) {
        const std::string number = std::to_string(i);
        for (const char *option : {"first", "second"})
            if (const int error = set(context, "pkg.b." + std::string(option) + "=" + number); error != UCI_OK)
                return error;
        if (const int error = commit(context, "pkg"); error != UCI_OK)
            return error;
        if (write(report, "x", 1) != 1)
            return 98;
    }
}

TEST_F(UciCommit, killed_in_the_middle) {
    write_config("pkg", "\nconfig a 'b'\n\toption first '0'\n\toption second '0'\n\nconfig filler\n\toption long '" +
                            std::string(20000, 'x') + "'\n");
    std::minstd_rand random(1);
    for (int round = 0; round < 40; round++) {
        std::array<int, 2> reports = {};
        ASSERT_EQ(pipe(reports.data()), 0);
        const pid_t child = start([&] { return commit_until_killed(open(), reports[1]); });
        close(reports[1]);
        char byte;
        ASSERT_EQ(read(reports[0], &byte, 1), 1) << "the commit after a kill works, no lock is stuck";
        usleep(static_cast<useconds_t>(random() % 3000));
        kill(child, SIGKILL);
        EXPECT_EQ(wait_for(child), -1);
        close(reports[0]);

        // The file itself, without what may be left staged: an old or a new one, and whole.
        Context bare(uci_alloc_context(), &uci_free_context);
        uci_set_confdir(bare.get(), confdir_.c_str());
        uci_set_savedir(bare.get(), (root_ + "/nothing-staged").c_str());
        const std::string first = get(bare, "pkg.b.first");
        EXPECT_NE(first, "(absent)");
        EXPECT_EQ(first, get(bare, "pkg.b.second"));
        EXPECT_EQ(get(bare, "pkg.@filler[0].long"), std::string(20000, 'x'));

        const Context context = open();
        ASSERT_EQ(set(context, "pkg.b.mine=" + std::to_string(round)), UCI_OK);
        ASSERT_EQ(commit(context, "pkg"), UCI_OK);
        EXPECT_EQ(get(open(), "pkg.b.mine"), std::to_string(round));
        EXPECT_EQ(delta("pkg"), "");
    }
}

} // namespace
} // namespace uci_test
