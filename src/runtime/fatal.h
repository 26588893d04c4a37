// The single way the program gives up: an exception nothing catches, carrying a 32-bit code
// that names the call site, so that the unhandled-exception filter records it.
#pragma once
#include <cstdint>

// Exception code raised by FatalError; the call site's code is its first parameter.
constexpr uint32_t kFatalErrorException = 0xE0564559;

// Every code the programs give up with, in one table so that none is used for two things
// (fatal.cpp checks that they differ). A new call site takes a new code here.
// Memory refused: the pool, a JSON array or a socket's receive buffers could not have a block.
constexpr uint32_t kFatalOutOfMemory = 0x10353175;
constexpr uint32_t kFatalPoolClass = 0x10353176;          // a pool class beyond the largest
constexpr uint32_t kFatalUnknownThrow = 0xE4E7E4E7;       // an escaped exception that is no code
constexpr uint32_t kFatalIocpPort = 0x02085247;           // the completion port cannot be created
constexpr uint32_t kFatalIocpWorker = 0x12389597;         // a worker thread cannot be created
constexpr uint32_t kFatalIocpPost = 0x54378157;           // a completion cannot be queued
constexpr uint32_t kFatalIoRequestReleased = 0x09529457;  // a request completed once too often
constexpr uint32_t kFatalSystemFunction = 0x5F4C4F41;     // a system function is missing
constexpr uint32_t kFatalCrashPath = 0x89534242;          // the program's own path cannot be read
constexpr uint32_t kFatalLogBuffer = 0x72395974;          // the logger's write buffer
constexpr uint32_t kFatalLogRing = 0x72344256;            // the logger's ring
constexpr uint32_t kFatalLogger = 0x84734722;             // the logger itself
constexpr uint32_t kFatalSocketCount = 0x84013483;        // a socket's operations counted below zero
constexpr uint32_t kFatalSocketOutstanding = 0x98489224;  // a socket released with operations pending
constexpr uint32_t kFatalSocketReopened = 0x89501355;     // a socket opened while open
constexpr uint32_t kFatalUpdaterWinsock = 0x89437291;     // the updater cannot start Winsock
constexpr uint32_t kFatalShareWinsock = 0x53484101;       // the share peer cannot start Winsock
// Threads: started while running, or not created.
constexpr uint32_t kFatalLoggerRunning = 0x75323543;
constexpr uint32_t kFatalLoggerThread = 0x85822357;
constexpr uint32_t kFatalBroadcasterRunning = 0x62401937;
constexpr uint32_t kFatalBroadcasterThread = 0x62401938;
constexpr uint32_t kFatalRefresherRunning = 0x53484102;
constexpr uint32_t kFatalRefresherThread = 0x53484103;
constexpr uint32_t kFatalQueryLogRunning = 0x53484104;
constexpr uint32_t kFatalQueryLogThread = 0x53484105;
constexpr uint32_t kFatalRehasherRunning = 0x53484106;
constexpr uint32_t kFatalRehasherThread = 0x53484107;
constexpr uint32_t kFatalServerRunning = 0x53485201;
constexpr uint32_t kFatalServerThread = 0x53485202;

[[noreturn]] void FatalError(uint32_t code);

// Routes C++ exceptions that escape (std::terminate) to the same filter as FatalError.
void InstallTerminateHandler();
