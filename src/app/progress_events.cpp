// The events' members, in the order a launcher's reader sees them.
#include "app/progress_events.h"

namespace {

JsonLine Event(const wchar_t* name)
{
    JsonLine line;
    line.String("event", name);
    return line;
}

}  // namespace

std::string StartEvent(const std::wstring& version, const JsonLine& configuration)
{
    return Event(L"start").String("version", version).Object("configuration", configuration).Text();
}

std::string PlanEvent(uint64_t files, uint64_t bytes)
{
    return Event(L"plan").Number("files", files).Number("bytes", bytes).Text();
}

std::string ItemEvent(const std::wstring& name, uint64_t size, bool isServer, const std::wstring& host)
{
    return Event(L"item")
        .String("name", name)
        .Number("size", size)
        .String("source", isServer ? L"server" : L"peer")
        .String("host", host)
        .Text();
}

std::string ProgressEvent(uint64_t done, uint64_t total, uint64_t rate)
{
    return Event(L"progress").Number("done", done).Number("total", total).Number("rate", rate).Text();
}

std::string StepEvent(const wchar_t* step, const std::wstring& name)
{
    return Event(L"step").String("step", step).String("name", name).Text();
}

std::string EndEvent(const wchar_t* outcome, uint64_t files, uint64_t fetched, uint64_t bytes, uint64_t dropped)
{
    return Event(L"end")
        .String("outcome", outcome)
        .Number("files", files)
        .Number("fetched", fetched)
        .Number("bytes", bytes)
        .Number("dropped", dropped)
        .Text();
}
