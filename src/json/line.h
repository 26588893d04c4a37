// JsonLine: one JSON object written compactly on one line, for programs that read what this one
// reports. Unlike the log's writer, the text is strict JSON: every string is escaped as the
// standard requires, so any JSON reader accepts the line.
#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class JsonLine {
public:
    JsonLine& String(const char* key, std::wstring_view text);
    JsonLine& Number(const char* key, uint64_t value);
    JsonLine& Strings(const char* key, const std::vector<std::wstring>& texts);
    // Another object as the member's value.
    JsonLine& Object(const char* key, const JsonLine& object);

    // The object as UTF-8, without a line end.
    std::string Text() const;

private:
    void Key(const char* key);

    std::wstring members;  // the members written so far, comma-separated, without braces
};

// The text in double quotes, escaped for any JSON reader: quote, backslash and every control
// character; the rest is kept as it is.
std::wstring EscapeJsonStrict(std::wstring_view text);
