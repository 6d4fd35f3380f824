// The commands of vela_modem.
//
// Texts go to standard output as they stand, without a line end of their own; JSON documents end in one. A command
// whose operation fails prints nothing and still exits with 0; one whose operation the model does not support prints
// "Not support".
#pragma once

#include <span>

#include "modem/model.h"

// What a command works on: the detected modem and the arguments after the command's name.
struct CommandContext {
    const ModemModel &model;
    std::span<char *> arguments;
};

struct Command {
    const char *name;
    // Returns the exit status of the process. Null: this build does not carry the operation.
    int (*run)(const CommandContext &context);
};

// All commands, in the order in which their names are compared.
std::span<const Command> all_commands();

// Runs the command of this name; an unknown one prints the usage. Returns the exit status.
int run_command(const char *name, const CommandContext &context);
