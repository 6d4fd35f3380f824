// Runs part of a test in a forked child: for what may not happen to the test process itself, such as closed standard
// streams or other mounts, and for what happens once in a process' life.
#pragma once

#include <functional>
#include <initializer_list>

// Runs `body` in a child and waits for it. Not for a process that has a second thread (a ModemPeer): what that one holds
// at the moment stays locked in the child. Expectations that fail in the child fail the test here, as does a child that
// a signal ends.
void in_child(const std::function<void()> &body);

// The same with a root of its own: private mounts, with empty file systems over `hidden` directories (such as "/tmp"),
// so that files at fixed paths can be made there and are gone with the child. Skips the test where the machine does not
// allow it.
void in_child_with_empty(const std::initializer_list<const char *> &hidden, const std::function<void()> &body);

// The same with an empty network besides: only a loopback interface, which is down.
void in_child_with_empty_network(const std::function<void()> &body);
