// Progress: what a person at the console and a launcher see of an update while it runs. It is
// handed down the run, which tells it the plan, the steps and the end; the downloads tell it of
// their transfers and bytes. At most ten times a second it rewrites the console's status line
// (once a transfer has run for half a second) and writes a progress event to the launcher's pipe.
#pragma once
#include "app/progress_meter.h"
#include "app/progress_pipe.h"
#include "json/line.h"
#include "release/download_progress.h"

#include <cstdint>
#include <list>
#include <string>

struct UpdateItem;

class Progress final : public DownloadProgress {
public:
    // Outcomes of the end event.
    static constexpr const wchar_t* kUpdated = L"updated";
    static constexpr const wchar_t* kCurrent = L"current";
    static constexpr const wchar_t* kFailed = L"failed";

    // Connects to the launcher's pipe `name` and writes the start event; a pipe that cannot be
    // opened gets one log line, and the update goes on without it.
    void Start(const std::wstring& name, const std::wstring& version, const JsonLine& configuration);
    void Plan(const std::list<UpdateItem>& items);
    // A file of the plan was found already staged.
    void Passed(const UpdateItem& item);
    // Every file is fetched: the last count goes out even within a tenth of a second of the one
    // before, so that a launcher's bar ends where the downloads did.
    void Fetched();
    // An action on the machine begins: "stopService", "close", "signal", "kill", "delete",
    // "replace", "startService", "startProgram".
    void Step(const wchar_t* step, const std::wstring& name);
    // The update's outcome; "failed" unless told otherwise.
    void Outcome(const wchar_t* text) { outcome = text; }
    // Clears the status line, writes the end event (waiting at most a second for room) and
    // closes the pipe; one log line tells how many lines were dropped, when any were.
    void Finish();

    void Attempt(const UpdateItem& item, const std::wstring& host, bool isServer) override;
    void Restart() override;
    void Received(uint64_t count) override;
    void Ended(bool valid) override;

private:
    // The status line and a progress event, when a tenth of a second has passed since the last.
    void Report(uint64_t nowMs, bool force);

    ProgressMeter meter;
    ProgressPipe pipe;
    const wchar_t* outcome = kFailed;
    uint64_t files = 0;
    uint64_t fetchedFiles = 0;
    uint64_t lastReportMs = 0;
    uint64_t lastReportDone = ~uint64_t(0);
    std::wstring current;     // the file being fetched
    std::wstring currentHost;
    bool currentFromServer = true;
};
