// Scratch directories and small files for tests.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

// A new directory under the system's directory for temporary files; removed with all it holds at the end of its scope.
class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "vela-unit-XXXXXX").string();
        const char *made = mkdtemp(name.data());
        EXPECT_NE(made, nullptr) << name;
        path_ = name;
    }
    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDirectory(const ScratchDirectory &) = delete;
    ScratchDirectory &operator=(const ScratchDirectory &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

private:
    std::string path_;
};

inline void write_file(const std::string &path, std::string_view text) {
    std::ofstream out(path, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    ASSERT_TRUE(out) << path;
}

// All of the file; nothing where there is none.
inline std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// How many descriptors this process has open.
inline int open_descriptors() {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count++;
    }
    return count;
}
