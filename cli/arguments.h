// The command line of vela_modem, taken apart: options, bus, command and its arguments.
#pragma once

#include <span>

struct Arguments {
    bool debug;             // "-D" was the very first argument
    const char *bus;        // "1-1.2" unless the arguments name another
    const char *command;    // the first argument after the options
    std::span<char *> rest; // the arguments after the command
};

// Reads `[-D] [-B] [bus] command [argument...]`, strictly in this order. "-B" is only dropped: what counts is that the
// next argument contains "1-1" or "2-1", and so is a bus. False where nothing is left to be the command;
// `arguments->debug` is set even then.
bool parse_arguments(int argc, char **argv, Arguments *arguments);
