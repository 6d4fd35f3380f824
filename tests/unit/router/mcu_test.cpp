// What the microcontroller is told when memory is short. All else needs a modem, and is tested with one.
#include "router/mcu.h"

#include <dlfcn.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/child.h"
#include "support/system_log.h"

namespace {

bool memory_is_short = false;

TEST(Mcu, nothing_is_told_when_memory_is_short) {
    in_child_with_empty({"/dev"}, [] {
        SystemLog log;
        const Json reply(json_object_new_object());
        memory_is_short = true;
        EXPECT_EQ(modem_mcu_interface("1-1.2", reply.get()), -1);
        memory_is_short = false;
        EXPECT_EQ(json_object_object_length(reply.get()), 0);
        EXPECT_THAT(log.line(), testing::AllOf(testing::StartsWith("<15>"), // user, debug
                                               testing::EndsWith(": MCU ALLOCAL MEMORY FAILED\n")));
        EXPECT_EQ(log.line(), "");
    });
}

} // namespace

// In place of json-c's own.
extern "C" json_object *json_object_new_object() {
    static const auto make = reinterpret_cast<json_object *(*)()>(dlsym(RTLD_NEXT, "json_object_new_object"));
    return memory_is_short ? nullptr : make();
}
