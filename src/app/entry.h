// The program's entry routine and run sequence.
#pragma once
#include <string>

// Sets up, reads the one argument, runs the update and tears down; always 0.
int UpdaterMain(int argc, wchar_t** argv);
// Tries the shuffled domains in ring order until one has been dealt with.
void RunUpdate(const std::wstring& pathAndQuery);
