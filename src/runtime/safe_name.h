// The one check that a relative file name stays inside the folder it is joined to, for names
// that come from outside: manifest entries and the paths that peers are asked for.
#pragma once
#include <string>

// True when `name` is one or more components separated by '\' or '/' that, joined to a folder,
// name something inside it. Refused: an empty name, a leading or doubled or trailing separator
// (absolute, UNC and device paths among them), the components "." and "..", a component ending
// in a dot or a blank (Windows drops those, so it would name another file), any ':' (drive
// letters, streams), control characters and the characters < > " | ? *, and the device names
// CON, PRN, AUX, NUL, COM0-COM9, LPT0-LPT9 (also with the superscript digits 1-3), CONIN$ and
// CONOUT$ in any case, with or without an extension or blanks before it.
bool IsSafeRelativeName(const std::wstring& name);
