// HTTP status codes by name: for the client's log lines and the file server's status lines.
#pragma once
#include <cstdint>

// The name of a known status code ("OK", "NotFound", ...), "None" for any other code.
const wchar_t* GetHttpStatusName(uint32_t code);
// The reason phrase of a status line ("OK", "Not Found", ...), "Error" for a code not in the table.
const char* GetHttpReasonPhrase(uint32_t code);
