// Update item execution: downloads into the staging folder, then the manifest's actions.
#pragma once
#include <string>

class wJsonObject;

// Always true: the run sequence stops after it, whatever happened.
bool ExecuteUpdateItems(const std::wstring& stagingDirectory, const wJsonObject& manifest);
