// What a piece of code writes to its standard output or standard error, be it by stdio, by write() or by a command that
// it starts.
#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

// Redirects descriptor `fd` (1 or 2) into a file from construction until text() or the end of the scope.
class Capture {
public:
    explicit Capture(int fd) : fd_(fd), file_(tmpfile()) {
        EXPECT_NE(file_, nullptr);
        fflush(nullptr);
        saved_ = dup(fd_);
        EXPECT_GE(dup2(fileno(file_), fd_), 0);
    }
    ~Capture() {
        restore();
        fclose(file_);
    }
    Capture(const Capture &) = delete;
    Capture &operator=(const Capture &) = delete;

    // Ends the redirection and returns what was written.
    std::string text() {
        restore();
        std::string all;
        rewind(file_);
        for (int c = fgetc(file_); c != EOF; c = fgetc(file_)) {
            all += static_cast<char>(c);
        }
        return all;
    }

private:
    void restore() {
        if (saved_ >= 0) {
            fflush(nullptr);
            EXPECT_EQ(dup2(saved_, fd_), fd_);
            close(saved_);
            saved_ = -1;
        }
    }

    int fd_;
    FILE *file_;
    int saved_ = -1;
};
