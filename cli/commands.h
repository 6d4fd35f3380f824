// The commands of vela_modem.
//
// Texts go to standard output as they stand, without a line end of their own; JSON documents end in one. Where an
// operation fails its success text is missing and the exit status is still 0; where the model does not support it,
// "Not support" is printed.
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
    // Returns the exit status of the process.
    int (*run)(const CommandContext &context);
};

// All commands, in the order in which their names are compared.
std::span<const Command> all_commands();

// Runs the command of this name; an unknown one prints the usage. Returns the exit status.
int run_command(const char *name, const CommandContext &context);
