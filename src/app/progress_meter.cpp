// ProgressMeter: counts, the sliding window of the rate, and the console line's text.
#include "app/progress_meter.h"
#include "runtime/text.h"

namespace {

constexpr uint64_t kRateWindowMs = 2000;
constexpr uint64_t kSampleMs = 100;

}  // namespace

void ProgressMeter::Attempt(uint64_t nowMs)
{
    attemptBytes = 0;
    attemptStart = nowMs;
    running = true;
    Note(nowMs);
}

void ProgressMeter::Received(uint64_t count, uint64_t nowMs)
{
    attemptBytes += count;
    received += count;
    Note(nowMs);
}

void ProgressMeter::Ended(bool valid)
{
    if (valid) {
        completed += attemptBytes;
        fetched += attemptBytes;
    }
    attemptBytes = 0;
    running = false;
}

void ProgressMeter::Note(uint64_t nowMs)
{
    if (samples.empty() || nowMs - samples.back().ms >= kSampleMs)
        samples.push_back({nowMs, received});
    else
        samples.back().bytes = received;
    // The oldest sample kept is the last one at or before the window's start.
    while (samples.size() > 2 && nowMs - samples[1].ms >= kRateWindowMs)
        samples.pop_front();
}

uint64_t ProgressMeter::Rate(uint64_t nowMs) const
{
    if (samples.empty())
        return 0;
    const Sample& oldest = samples.front();
    uint64_t span = nowMs - oldest.ms;
    if (span < kSampleMs)
        return 0;
    return (received - oldest.bytes) * 1000 / span;
}

int64_t ProgressMeter::SecondsLeft(uint64_t nowMs) const
{
    uint64_t rate = Rate(nowMs);
    if (rate == 0)
        return -1;
    uint64_t left = total > Done() ? total - Done() : 0;
    return static_cast<int64_t>((left + rate - 1) / rate);
}

std::wstring FormatProgressLine(uint64_t done, uint64_t total, uint64_t rate, int64_t secondsLeft,
                                const std::wstring& name, const wchar_t* source, const std::wstring& host)
{
    std::wstring left = L"-:--";
    if (secondsLeft >= 3600)
        left = FormatW(L"%lld:%02lld:%02lld", secondsLeft / 3600, secondsLeft / 60 % 60, secondsLeft % 60);
    else if (secondsLeft >= 0)
        left = FormatW(L"%lld:%02lld", secondsLeft / 60, secondsLeft % 60);
    return FormatW(L"%s of %s, %s/s, %s left, %s from %s %s", FormatByteSize(done).c_str(),
                   FormatByteSize(total).c_str(), FormatByteSize(rate).c_str(), left.c_str(), name.c_str(), source,
                   host.c_str());
}
