// The name of a shared file from the target of an HTTP request: the inverse of the URL form in
// which updaters ask peers for files ("/" and each name component percent-encoded as UTF-8).
#pragma once
#include <string>

// The relative name, components joined with '\', for a target "/" + components separated by
// '/'. A query ("?" and what follows) is ignored. Empty when the target does not start with '/',
// holds '#', a broken escape ('%' without two hexadecimal digits), a component that is not valid
// UTF-8 once decoded or that decodes to a text holding '/' or '\', or when the joined name is not
// a safe relative name (IsSafeRelativeName): "/" alone, empty components, ".", "..", drive
// letters, streams, control characters and device names all give an empty name.
std::wstring NameFromTarget(const std::string& target);
