// The status line: one line at the foot of the console that is rewritten in place (a carriage
// return, the text, blanks over what is left of the longer text before), and cleared before each
// log line is echoed, so that the screen ends holding the log lines only. Nothing is written when
// the standard output is not a console: redirected output stays the log lines alone.
#pragma once
#include <string>

// Whether `handle` is a console (the answer for the last handle asked about is kept).
bool IsConsoleHandle(void* handle);
// Shows `text` as the status line, cut to the console's width.
void ShowStatusLine(const std::wstring& text);
// Clears the status line when one is shown.
void ClearStatusLine();
// Writes an echoed log line to the console `out`, the status line cleared before it.
void WriteConsoleEntry(void* out, const std::wstring& line);
