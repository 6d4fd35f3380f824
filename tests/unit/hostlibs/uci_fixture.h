// What the tests of configuration files share: a private configuration and delta directory, and short ways to read
// and change what is in them.
#pragma once

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>
#include <uci.h>

namespace uci_test {

using Context = std::unique_ptr<uci_context, decltype(&uci_free_context)>;

inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void write_file(const std::string &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    ASSERT_TRUE(out) << path;
}

// A path and what it leads to in a context; keeps the text that libuci cuts.
struct Place {
    Place(const Context &context, const std::string &path, bool extended = true)
        : text(strdup(path.c_str()), &std::free) {
        error = uci_lookup_ptr(context.get(), &ptr, text.get(), extended);
    }
    bool complete() const { return error == UCI_OK && (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0; }

    std::unique_ptr<char, decltype(&std::free)> text;
    uci_ptr ptr = {};
    int error;
};

// "value", "[item,item]", "<type>" of a section, or "(absent)".
inline std::string get(const Context &context, const std::string &path) {
    const Place place(context, path);
    if (!place.complete())
        return "(absent)";
    if (place.ptr.o == nullptr)
        return place.ptr.s == nullptr ? "(package)" : std::string("<").append(place.ptr.s->type).append(">");
    if (place.ptr.o->type == UCI_TYPE_STRING)
        return place.ptr.o->v.string;
    std::string items = "[";
    uci_element *item;
    uci_foreach_element(&place.ptr.o->v.list, item) {
        items.append(items.size() > 1 ? "," : "").append(item->name);
    }
    return items.append("]");
}

using Change = int (*)(uci_context *, uci_ptr *);

inline int change(Change call, const Context &context, const std::string &path) {
    Place place(context, path);
    return place.error != UCI_OK ? place.error : call(context.get(), &place.ptr);
}
inline int set(const Context &context, const std::string &path) {
    return change(uci_set, context, path);
}
inline int add_list(const Context &context, const std::string &path) {
    return change(uci_add_list, context, path);
}
inline int remove(const Context &context, const std::string &path) {
    return change(uci_delete, context, path);
}

inline int commit(const Context &context, const std::string &package) {
    Place place(context, package);
    return place.error != UCI_OK ? place.error : uci_commit(context.get(), &place.ptr.p, false);
}

inline int save(const Context &context, const std::string &package) {
    const Place place(context, package);
    return place.error != UCI_OK ? place.error : uci_save(context.get(), place.ptr.p);
}

class UciTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "uci-test-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        root_ = name;
        confdir_ = root_ + "/config";
        savedir_ = root_ + "/delta";
        std::filesystem::create_directory(confdir_);
    }
    void TearDown() override { std::filesystem::remove_all(root_); }

    Context open() const {
        Context context(uci_alloc_context(), &uci_free_context);
        EXPECT_NE(context, nullptr);
        EXPECT_EQ(uci_set_confdir(context.get(), confdir_.c_str()), UCI_OK);
        EXPECT_EQ(uci_set_savedir(context.get(), savedir_.c_str()), UCI_OK);
        return context;
    }
    std::string config_path(const std::string &package) const { return confdir_ + "/" + package; }
    std::string delta_path(const std::string &package) const { return savedir_ + "/" + package; }
    std::string config(const std::string &package) const { return read_file(config_path(package)); }
    std::string delta(const std::string &package) const { return read_file(delta_path(package)); }
    void write_config(const std::string &package, const std::string &text) const {
        write_file(config_path(package), text);
    }
    void write_delta(const std::string &package, const std::string &text) const {
        std::filesystem::create_directory(savedir_);
        write_file(delta_path(package), text);
    }
    std::size_t files_in_confdir() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(confdir_), {}));
    }

    // Runs a function that returns an exit status in a child process.
    template <typename Function> static pid_t start(Function function) {
        const pid_t child = fork();
        if (child == 0)
            _exit(function());
        return child;
    }
    // The exit status, or -1 for a child that was killed.
    static int wait_for(pid_t child) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string root_, confdir_, savedir_;
};

} // namespace uci_test
