// Update item execution: downloads into the staging folder, then the manifest's actions.
#pragma once
#include <string>

class wJsonObject;

// True when every file was downloaded and replaced and no action of the manifest was refused.
bool ExecuteUpdateItems(const std::wstring& stagingDirectory, const wJsonObject& manifest);
// True when the default mode runs, or when the name stays inside the program folder; otherwise
// false after one log line: "Refused to <use> <name>: ...".
bool AcceptName(const wchar_t* use, const std::wstring& name);
