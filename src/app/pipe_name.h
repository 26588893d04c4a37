// The path of a named pipe from the name a launcher gives.
#pragma once
#include <string>

// "\\.\pipe\NAME", or empty when the name could not be a pipe's: empty, longer than the system
// allows, or holding "\" or "/" (the system would read ".." and drive names in the path, so such a
// name could lead out of the pipe folder).
std::wstring PipePath(const std::wstring& name);
