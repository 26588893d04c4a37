// How long a unit test waits for something it expects (a helper program to be ready, a thread or
// a process to finish, a datagram or a connection to arrive) before it fails: the
// VEY_TEST_PATIENCE setting in seconds, shared with the Python-driven tests. Generous, because on
// a loaded machine Wine can take many seconds to start a process; an event that comes is never
// waited for longer than it takes.
#pragma once
#include <cstdint>
#include <functional>

uint32_t PatienceMs();

// Polls `done` every 10 ms until it holds (true) or the patience has run out (false).
bool WaitUntil(const std::function<bool()>& done);
