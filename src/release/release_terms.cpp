// The version, expiry and applied-version readers of signed releases.
#include "release/release_terms.h"

namespace {

// `count` decimal digits from text[at]; false when any is not a digit.
bool ReadDigits(const std::wstring& text, size_t at, size_t count, int& value)
{
    value = 0;
    for (size_t i = at; i < at + count; ++i) {
        if (text[i] < L'0' || text[i] > L'9')
            return false;
        value = value * 10 + (text[i] - L'0');
    }
    return true;
}

bool IsLeapYear(int year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysInMonth(int year, int month)
{
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1970-01-01 to the first day of the month.
int64_t DaysBefore(int year, int month)
{
    int64_t days = 0;
    for (int y = 1970; y < year; ++y)
        days += IsLeapYear(y) ? 366 : 365;
    for (int m = 1; m < month; ++m)
        days += DaysInMonth(year, m);
    return days;
}

}  // namespace

bool ReadReleaseVersion(double value, uint64_t& version)
{
    if (!(value >= 1.0 && value <= double(kMaxReleaseVersion)) || value != double(uint64_t(value)))
        return false;
    version = uint64_t(value);
    return true;
}

bool ReadExpiryTime(const std::wstring& text, int64_t& seconds)
{
    static const wchar_t kForm[] = L"0000-00-00T00:00:00Z";
    if (text.size() != 20)
        return false;
    for (size_t i = 0; i < 20; ++i)
        if (kForm[i] != L'0' && text[i] != kForm[i])
            return false;
    int year, month, day, hour, minute, second;
    if (!ReadDigits(text, 0, 4, year) || !ReadDigits(text, 5, 2, month) || !ReadDigits(text, 8, 2, day) ||
        !ReadDigits(text, 11, 2, hour) || !ReadDigits(text, 14, 2, minute) || !ReadDigits(text, 17, 2, second))
        return false;
    if (year < 1970 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(year, month) || hour > 23 ||
        minute > 59 || second > 59)
        return false;
    int64_t days = DaysBefore(year, month) + day - 1;
    seconds = ((days * 24 + hour) * 60 + minute) * 60 + second;
    return true;
}

bool ReadAppliedVersion(const void* bytes, size_t length, uint64_t& version)
{
    const auto* text = static_cast<const unsigned char*>(bytes);
    if (length >= 2 && text[length - 2] == '\r' && text[length - 1] == '\n')
        length -= 2;
    if (length == 0 || length > 16 || text[0] == '0')
        return false;
    uint64_t value = 0;
    for (size_t i = 0; i < length; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        value = value * 10 + (text[i] - '0');
    }
    if (value > kMaxReleaseVersion)
        return false;
    version = value;
    return true;
}

std::string FormatAppliedVersion(uint64_t version)
{
    return std::to_string(version) + "\r\n";
}

std::wstring SignaturePath(const std::wstring& pathAndQuery)
{
    size_t query = pathAndQuery.find(L'?');
    if (query == std::wstring::npos)
        return pathAndQuery + L".sig";
    return pathAndQuery.substr(0, query) + L".sig" + pathAndQuery.substr(query);
}
