// Shell commands: the way this program drives the rest of the router.
//
// Each command is one line run by /bin/sh with its full syntax (pipes, redirections, lists). The child gets a clean
// start, since it may run inside somebody else's server: no descriptor of the host above standard error, /dev/null as
// standard input, an empty signal mask and the default SIGPIPE. Standard error is the caller's, so what a command
// complains of is never captured. A command that cannot be started yields empty output.
#pragma once

#include <span>
#include <string_view>

// Runs the command, waits for it and puts its whole standard output, newlines included, into `out`.
// Output beyond the buffer is read and dropped, so that the command runs to its end. No output: an empty text.
void getShellCommandReturn(const char *command, std::span<char> out);

// The same with only the first line of the output, without its line end.
void getShellCommandReturnLine(const char *command, std::span<char> out);

// Runs the command and returns its whole output as a NUL-terminated text that the caller releases with free();
// null when the command could not be run or printed nothing. `known` tells these two apart, for who goes on to write
// what was read: false where there was no shell, its output could not be read whole, or it did not find the command.
char *getShellCommandReturnDynamic(const char *command, bool *known = nullptr);

// Same as getShellCommandReturn. The name is historic: it is given ordinary commands.
void getUciReturn(const char *command, std::span<char> out);

// Runs the command and waits; its output is dropped. Returns its exit status, 128 and the signal's number where a
// signal ended it, -1 when it could not be run or, in a host that ignores SIGCHLD, when its status is lost.
int execCommand(const char *command);

// The same for a command that may hang: after `seconds` it is killed, with all that it started in its process group.
int execCommandWithin(const char *command, unsigned seconds);

// Starts the command in the background and returns at once: 0, or -1 when it could not be started. The command is
// nobody's child but init's (no zombie stays in a long-lived host), leads a session of its own and has /dev/null for
// its three standard streams, so that a pipe the host writes to does not stay open behind it.
int fork_exec2(const char *command);

// Non-zero when the file exists.
int cmm_check_file_is_exist(const char *path);

// Whether a shell takes the text for itself and nothing else: letters, digits and "._:/-" only. An empty text is one. For
// names that a client or the configuration gives and that need no more.
bool is_shell_word(std::string_view text);
