// What must end the process: a text that does not fit its buffer.
#pragma once

#include <csignal>

#include <gtest/gtest.h>

#define EXPECT_ABORT(statement) EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), "")
