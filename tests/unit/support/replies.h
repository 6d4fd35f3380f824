// The recorded replies of tests/replies as the bytes that a modem sends.
#pragma once

#include <string>
#include <vector>

struct RecordedReply {
    std::string name; // "quectel-ec25/qcsq--lte-positive-rssi"
    std::string wire; // modem files: CR LF for each LF, CR for each "<CR>"; other files as they are
};

// The reply of one file, by its name without ".txt". Fails the test where there is no such file.
std::string recorded_reply(const std::string &name);

// All replies, of modems and of other programs, by name.
const std::vector<RecordedReply> &recorded_replies();
