// The logger: entry format, daily files, byte-order mark, overflow, and the final flush.
#include <gtest/gtest.h>
#include "runtime/logger.h"
#include "runtime/text.h"
#include "support/patience.h"

#include <windows.h>
#include <shlobj.h>
#include <regex>
#include <sstream>
#include <thread>
#include <vector>

namespace {

SYSTEMTIME fakeNow;

void FakeLocalTime(SYSTEMTIME* time)
{
    *time = fakeNow;
}

SYSTEMTIME Day(WORD year, WORD month, WORD day)
{
    SYSTEMTIME time = {};
    time.wYear = year;
    time.wMonth = month;
    time.wDay = day;
    time.wHour = 13;
    time.wMinute = 4;
    time.wSecond = 5;
    time.wMilliseconds = 6;
    return time;
}

std::wstring LogDirectory()
{
    return GetDirectoryPart(GetModulePath()) + L"\\_logs\\";
}

std::wstring LogFile(const SYSTEMTIME& day)
{
    return FormatW(L"%sruntime_tests.exe %04d-%02d-%02d.log", LogDirectory().c_str(), day.wYear, day.wMonth, day.wDay);
}

std::string ReadAll(const std::wstring& path)
{
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return "<missing>";
    std::string data;
    char buffer[65536];
    DWORD read;
    while (ReadFile(file, buffer, sizeof(buffer), &read, nullptr) && read > 0)
        data.append(buffer, read);
    CloseHandle(file);
    return data;
}

// Every line of the file after the byte-order mark, each checked for its prefix and CRLF end.
std::vector<std::string> Messages(const std::string& text)
{
    std::vector<std::string> messages;
    static const std::regex line("(\\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\d{4}\\.\\d{3}\\.\\d{3} )(.*)");
    size_t start = 3;
    while (start < text.size()) {
        size_t end = text.find("\r\n", start);
        if (end == std::string::npos) {
            messages.push_back("<unterminated>");
            break;
        }
        std::string entry = text.substr(start, end - start);
        std::smatch match;
        messages.push_back(std::regex_match(entry, match, line) ? match[2].str() : "<raw>" + entry);
        start = end + 2;
    }
    return messages;
}

class LoggerTest : public testing::Test {
protected:
    void SetUp() override
    {
        wLogger::localTime = FakeLocalTime;
        fakeNow = Day(2031, 1, 2);
    }
    void TearDown() override { wLogger::localTime = GetLocalTime; }

    void Start(const SYSTEMTIME& day)
    {
        fakeNow = day;
        DeleteFileW(LogFile(day).c_str());
        wLogger::Create();
    }
};

}  // namespace

TEST(LogPrefix, ElapsedFieldAndClamp)
{
    SYSTEMTIME time = Day(2024, 5, 6);
    EXPECT_EQ(FormatLogPrefix(time, 0), "13:04:05.006 0000.000.000 ");
    EXPECT_EQ(FormatLogPrefix(time, 3600000000ull), "13:04:05.006 3600.000.000 ");
    EXPECT_EQ(FormatLogPrefix(time, 1234567ull), "13:04:05.006 0001.234.567 ");
    EXPECT_EQ(FormatLogPrefix(time, 9999999999ull), "13:04:05.006 9999.999.999 ");
    EXPECT_EQ(FormatLogPrefix(time, 10000000000ull), "13:04:05.006 9999.999.999 ");
    EXPECT_EQ(FormatLogPrefix(time, ~0ull), "13:04:05.006 9999.999.999 ");
}

TEST_F(LoggerTest, EntriesAreStampedUtf8CrlfLines)
{
    SYSTEMTIME day = Day(2031, 1, 2);
    Start(day);
    LogA("narrow %d %s", 5, "\xC3\xA9");
    LogW(L"wide %s %I64u", L"\u00E9\u20AC", 18446744073709551615ull);
    LogA("%s", "");
    wLogger::Stop();
    std::string text = ReadAll(LogFile(day));
    ASSERT_GE(text.size(), 3u);
    EXPECT_EQ(text.substr(0, 3), "\xEF\xBB\xBF");
    EXPECT_EQ(Messages(text), (std::vector<std::string>{"narrow 5 \xC3\xA9", "wide \xC3\xA9\xE2\x82\xAC 18446744073709551615", ""}));
    EXPECT_EQ(text.substr(3, 26).substr(0, 13), "13:04:05.006 ");
}

// LogWideText makes the entry that LogW(L"%s", text) makes: the text up to its first NUL, in UTF-8.
TEST_F(LoggerTest, WideTextEntryEqualsTheFormattedOne)
{
    SYSTEMTIME day = Day(2031, 2, 14);
    Start(day);
    const std::wstring texts[] = {L"plain", std::wstring(L"cut\0here", 8), L"\u00E9 \U0001F600 100% %s", L""};
    for (const std::wstring& text : texts) {
        LogW(L"%s", text.c_str());
        LogWideText(text);
    }
    wLogger::Stop();
    std::string smile = "\xC3\xA9 \xF0\x9F\x98\x80 100% %s";
    EXPECT_EQ(Messages(ReadAll(LogFile(day))),
              (std::vector<std::string>{"plain", "plain", "cut", "cut", smile, smile, "", ""}));
}

TEST_F(LoggerTest, ByteOrderMarkOnlyOnANewFile)
{
    SYSTEMTIME day = Day(2031, 1, 3);
    Start(day);
    LogA("first");
    wLogger::Stop();
    wLogger::Create();
    LogA("second");
    wLogger::Stop();
    std::string text = ReadAll(LogFile(day));
    EXPECT_EQ(text.substr(0, 3), "\xEF\xBB\xBF");
    EXPECT_EQ(text.find("\xEF\xBB\xBF", 3), std::string::npos);
    EXPECT_EQ(Messages(text), (std::vector<std::string>{"first", "second"}));
}

TEST_F(LoggerTest, StopWritesEverythingAppendedBeforeIt)
{
    SYSTEMTIME day = Day(2031, 1, 4);
    Start(day);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                LogA("thread %d entry %d", t, i);
        });
    for (auto& thread : threads)
        thread.join();
    wLogger::Stop();
    std::vector<std::string> messages = Messages(ReadAll(LogFile(day)));
    ASSERT_EQ(messages.size(), 2000u);
    std::vector<int> next(4, 0);
    for (const auto& message : messages) {
        int t, i;
        ASSERT_EQ(sscanf(message.c_str(), "thread %d entry %d", &t, &i), 2) << message;
        // Entries of one thread keep their order.
        ASSERT_EQ(i, next[t]++);
    }
}

TEST_F(LoggerTest, NewDayGoesToANewFile)
{
    SYSTEMTIME first = Day(2031, 12, 31), second = Day(2032, 1, 1);
    DeleteFileW(LogFile(second).c_str());
    Start(first);
    LogA("old day");
    WaitUntil([&] { return ReadAll(LogFile(first)).find("old day") != std::string::npos; });
    fakeNow = second;
    LogA("new day");
    wLogger::Stop();
    EXPECT_EQ(Messages(ReadAll(LogFile(first))), std::vector<std::string>{"old day"});
    EXPECT_EQ(Messages(ReadAll(LogFile(second))), std::vector<std::string>{"new day"});
}

TEST_F(LoggerTest, FullRingDropsWholeEntriesAndMarksOncePerPass)
{
    SYSTEMTIME day = Day(2031, 1, 5);
    std::wstring path = LogFile(day);
    DeleteFileW(path.c_str());
    // A folder in the file's place keeps the writer from opening it, so the ring only fills.
    SHCreateDirectoryExW(nullptr, LogDirectory().c_str(), nullptr);
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    Start(day);
    // Each entry takes 26 bytes of prefix, the message and CRLF: 254 entries of 1000 leave 1032 free.
    std::string block(1000, 'a');
    for (int i = 0; i < 254; ++i)
        LogA("%s", block.c_str());
    LogA("%s", std::string(1005, 'b').c_str());
    LogA("%s", std::string(1004, 'c').c_str());
    LogA("d");
    ASSERT_TRUE(RemoveDirectoryW(path.c_str()));
    wLogger::Stop();
    std::string text = ReadAll(path);
    std::vector<std::string> messages = Messages(text);
    ASSERT_EQ(messages.size(), 256u);
    EXPECT_EQ(messages[253], block);
    EXPECT_EQ(messages[254], std::string(1004, 'c'));
    EXPECT_EQ(messages[255], "<raw>[Buffer Overflow]");
    EXPECT_EQ(text.size(), 3u + 0x40000u + 19u);
}
