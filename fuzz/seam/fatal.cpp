// FatalError for the native build: the code on standard error, then abort.
#include "runtime/fatal.h"

#include <cstdio>
#include <cstdlib>

void FatalError(uint32_t code)
{
    std::fprintf(stderr, "FatalError 0x%08X\n", code);
    std::abort();
}

void InstallTerminateHandler() {}
