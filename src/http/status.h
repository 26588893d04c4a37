// Names of HTTP status codes for log lines.
#pragma once
#include <cstdint>

// The name of a known status code ("OK", "NotFound", ...), "None" for any other code.
const wchar_t* GetHttpStatusName(uint32_t code);
