// The single way the program gives up: an exception nothing catches, carrying a 32-bit code
// that names the call site, so that the unhandled-exception filter records it.
#pragma once
#include <cstdint>

// Exception code raised by FatalError; the call site's code is its first parameter.
constexpr uint32_t kFatalErrorException = 0xE0564559;

[[noreturn]] void FatalError(uint32_t code);

// Routes C++ exceptions that escape (std::terminate) to the same filter as FatalError.
void InstallTerminateHandler();
