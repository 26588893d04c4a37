// ProgressMeter: the numbers of a whole update's downloads, for the console line and the events:
// bytes done and in all, the rate over the last two seconds, the time left, and how long the
// current transfer has run. Time comes in as milliseconds from the caller, so the meter is plain
// arithmetic.
#pragma once
#include <cstdint>
#include <deque>
#include <string>

class ProgressMeter {
public:
    // The bytes of every file the update fetches.
    void Plan(uint64_t totalBytes) { total = totalBytes; }
    // A transfer begins; its bytes count as done until it ends invalid.
    void Attempt(uint64_t nowMs);
    // The transfer's bytes so far are void (its file was created anew).
    void Restart() { attemptBytes = 0; }
    void Received(uint64_t count, uint64_t nowMs);
    // The transfer is over: a valid one's bytes stay done and count as fetched.
    void Ended(bool valid);
    // A file that needed no transfer (it was already staged) is done.
    void Passed(uint64_t size) { completed += size; }

    uint64_t Done() const { return completed + attemptBytes; }
    uint64_t Total() const { return total; }
    uint64_t Fetched() const { return fetched; }
    // Bytes per second over the last two seconds; 0 before a tenth of a second has passed.
    uint64_t Rate(uint64_t nowMs) const;
    // Whole seconds until Total at the current rate; -1 while the rate is 0.
    int64_t SecondsLeft(uint64_t nowMs) const;
    // How long the current transfer has run; 0 when none runs.
    uint64_t TransferMs(uint64_t nowMs) const { return running ? nowMs - attemptStart : 0; }

private:
    struct Sample {
        uint64_t ms;
        uint64_t bytes;  // everything received so far, failed transfers included
    };
    // Adds a sample every tenth of a second and forgets those the window no longer needs.
    void Note(uint64_t nowMs);

    uint64_t total = 0;
    uint64_t completed = 0;  // bytes of files done
    uint64_t attemptBytes = 0;
    uint64_t fetched = 0;
    uint64_t received = 0;
    uint64_t attemptStart = 0;
    bool running = false;
    std::deque<Sample> samples;
};

// "12.5 MB of 200.0 MB, 30.0 MB/s, 0:06 left, big.bin from server 127.0.0.1:8080".
std::wstring FormatProgressLine(uint64_t done, uint64_t total, uint64_t rate, int64_t secondsLeft,
                                const std::wstring& name, const wchar_t* source, const std::wstring& host);
