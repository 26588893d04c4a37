// Progress: the meter fed by the downloads, shown on the console and written to the pipe.
#include "app/progress.h"
#include "app/pipe_name.h"
#include "app/progress_events.h"
#include "runtime/clock.h"
#include "runtime/logger.h"
#include "runtime/status_line.h"
#include "release/update_item.h"

#include <windows.h>

namespace {

constexpr uint64_t kReportMs = 100;
// A transfer shows on the console only once it has run this long: short ones would only flicker.
constexpr uint64_t kShowAfterMs = 500;
// How long the end event may wait for room in a launcher's pipe.
constexpr uint32_t kEndWaitMs = 1000;

}  // namespace

void Progress::Start(const std::wstring& name, const std::wstring& version, const JsonLine& configuration)
{
    if (name.empty())
        return;
    std::wstring path = PipePath(name);
    uint32_t error = path.empty() ? ERROR_INVALID_NAME : pipe.Open(path);
    if (error != 0) {
        LogW(L"Failed to open the progress pipe. (0x%08X) %s", error, name.c_str());
        return;
    }
    pipe.Send(StartEvent(version, configuration));
}

void Progress::Plan(const std::list<UpdateItem>& items)
{
    uint64_t bytes = 0;
    for (const UpdateItem& item : items)
        bytes += item.size;
    files = items.size();
    meter.Plan(bytes);
    pipe.Send(PlanEvent(files, bytes));
}

void Progress::Passed(const UpdateItem& item)
{
    meter.Passed(item.size);
}

void Progress::Fetched()
{
    Report(PerformanceMilliseconds(), true);
}

void Progress::Step(const wchar_t* step, const std::wstring& name)
{
    pipe.Send(StepEvent(step, name));
}

void Progress::Attempt(const UpdateItem& item, const std::wstring& host, bool isServer)
{
    current = item.name;
    currentHost = host;
    currentFromServer = isServer;
    meter.Attempt(PerformanceMilliseconds());
    pipe.Send(ItemEvent(item.name, item.size, isServer, host));
}

void Progress::Restart()
{
    meter.Restart();
}

void Progress::Received(uint64_t count)
{
    uint64_t now = PerformanceMilliseconds();
    meter.Received(count, now);
    Report(now, false);
}

void Progress::Ended(bool valid)
{
    meter.Ended(valid);
    if (valid)
        ++fetchedFiles;
    ClearStatusLine();
}

void Progress::Report(uint64_t nowMs, bool force)
{
    if (!force && nowMs - lastReportMs < kReportMs)
        return;
    if (meter.Done() == lastReportDone)
        return;
    lastReportMs = nowMs;
    lastReportDone = meter.Done();
    uint64_t rate = meter.Rate(nowMs);
    if (meter.TransferMs(nowMs) > kShowAfterMs)
        ShowStatusLine(FormatProgressLine(meter.Done(), meter.Total(), rate, meter.SecondsLeft(nowMs), current,
                                          currentFromServer ? L"server" : L"peer", currentHost));
    pipe.Send(ProgressEvent(meter.Done(), meter.Total(), rate));
}

void Progress::Finish()
{
    ClearStatusLine();
    if (!pipe.IsOpen())
        return;
    pipe.Finish(EndEvent(outcome, files, fetchedFiles, meter.Fetched(), pipe.Dropped()), kEndWaitMs);
    if (pipe.Dropped() > 0)
        LogW(L"The progress pipe dropped %u of %u lines: the launcher did not read them in time.", pipe.Dropped(),
             pipe.Lines());
}
