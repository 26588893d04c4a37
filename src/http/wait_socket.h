// One select() wait on a socket, for the HTTP client and the file server alike.
#pragma once
#include <cstdint>

// One select() on `socket` for each condition whose pointer is given; each is set to whether the
// socket is in that set. False only when select() fails, so a time-out gives true with nothing ready.
bool WaitSocket(uintptr_t socket, uint32_t timeoutMs, bool* readable, bool* writable, bool* failed);
