// wThread: a named thread with a begin, loop, end life, stopped through a flag and a wake event.
#pragma once
#include "runtime/handles.h"

#include <atomic>
#include <cstdint>

class wThread {
public:
    wThread();
    // Stops the thread if it runs.
    ~wThread();
    wThread(const wThread&) = delete;
    wThread& operator=(const wThread&) = delete;

    // Starts the thread; a thread already running ends the process with runningCode, a thread
    // that cannot be created with createCode.
    void Start(const char* name, uint32_t runningCode, uint32_t createCode);
    // Sets the stop flag, wakes the thread and waits for it to end, then closes the wake event.
    void Stop();
    bool Running() const { return thread.load() != nullptr; }

protected:
    // Called once on the new thread; false ends it at once.
    virtual bool Begin();
    // Called while the stop flag is clear; false ends the loop.
    virtual bool Loop();
    // Called once after the loop when Begin returned true.
    virtual void End();

    UniqueHandle wakeEvent;  // auto-reset
    // Taken out with an exchange by Stop or by the ending thread, whichever comes first.
    std::atomic<void*> thread{nullptr};
    uint32_t threadId = 0;
    std::atomic<bool> stopFlag{false};
    char name[64] = {};

private:
    static unsigned long __stdcall Procedure(void* self);
};

// Announces the calling thread's name to an attached debugger.
void SetThreadName(const char* name);
