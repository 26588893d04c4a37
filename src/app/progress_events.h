// The lines the updater writes to a launcher's progress pipe: one JSON object per event, each
// with "event" first. Byte counts are for the whole update.
#pragma once
#include "json/line.h"

#include <cstdint>
#include <string>

// {"event":"start","version":V,"configuration":{...}}
std::string StartEvent(const std::wstring& version, const JsonLine& configuration);
// {"event":"plan","files":N,"bytes":N}: the files to fetch and their bytes in all.
std::string PlanEvent(uint64_t files, uint64_t bytes);
// {"event":"item","name":N,"size":N,"source":"peer"|"server","host":H}: a transfer begins.
std::string ItemEvent(const std::wstring& name, uint64_t size, bool isServer, const std::wstring& host);
// {"event":"progress","done":N,"total":N,"rate":N}: bytes, and bytes per second.
std::string ProgressEvent(uint64_t done, uint64_t total, uint64_t rate);
// {"event":"step","step":S,"name":N}: an action on the machine begins.
std::string StepEvent(const wchar_t* step, const std::wstring& name);
// {"event":"end","outcome":"updated"|"current"|"failed","files":N,"fetched":N,"bytes":N,"dropped":N}:
// the files planned, those fetched and their bytes, and the lines the pipe dropped before this one.
std::string EndEvent(const wchar_t* outcome, uint64_t files, uint64_t fetched, uint64_t bytes, uint64_t dropped);
