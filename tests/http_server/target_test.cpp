// The request target turned back into a name: every rule of the name check, raw and
// percent-encoded, and the round trip through the URL that updaters ask peers with.
#include <gtest/gtest.h>
#include "http_server/target.h"
#include "release/download.h"
#include "runtime/safe_name.h"
#include "runtime/text.h"

#include <string>

TEST(TargetName, InvertsThePeerUrl)
{
    for (const wchar_t* name : {L"a.txt", L"dir\\sub file.txt", L"\u00e9t\u00e9\\\U0001F600 (1).dat",
                                L"a+b=c&d;e,f!g'h~i_j-k*l", L"%41.txt", L"a#b", L"q?x", L"100%"}) {
        std::wstring url = DownloadUrl(L"192.168.0.7:8090", false, L"", name);
        std::string target = WideToUtf8(url.substr(std::wstring(L"http://192.168.0.7:8090").size()));
        std::wstring expected = name;
        if (!IsSafeRelativeName(expected))
            expected.clear();
        EXPECT_EQ(NameFromTarget(target), expected) << target;
    }
    EXPECT_EQ(NameFromTarget("/dir/sub%20file.txt"), L"dir\\sub file.txt");
    EXPECT_EQ(NameFromTarget("/%C3%A9t%c3%a9"), L"\u00e9t\u00e9");
    EXPECT_EQ(NameFromTarget("/a+b"), L"a+b");
}

TEST(TargetName, TheQueryIsIgnored)
{
    EXPECT_EQ(NameFromTarget("/a.txt?v=2"), L"a.txt");
    EXPECT_EQ(NameFromTarget("/a.txt?../../x"), L"a.txt");
    EXPECT_EQ(NameFromTarget("/a.txt?"), L"a.txt");
    EXPECT_EQ(NameFromTarget("/?a.txt"), L"");
}

TEST(TargetName, RefusedRawAndEncoded)
{
    for (const char* target :
         {"", "a.txt", "http://h/a.txt", "*", "/", "//a", "/a//b", "/a/", "/..", "/../a", "/a/../b", "/%2e%2e/a",
          "/%2E%2E", "/.", "/%2e", "/a/./b", "/a%2f..%2fb", "/%2F", "/a%2Fb", "/a%5Cb", "/..%5Ca", "/a\\b",
          "/C:", "/C%3A", "/c:/windows", "/C%3a%5Cwindows", "/a.txt:s", "/a.txt%3A%3A%24DATA", "/a%00b", "/a%00",
          "/a%01", "/a%0D%0A", "/a%7F", "/CON", "/con.txt", "/dir/nul", "/%43ON", "/C%4FN.log", "/NUL%20.txt",
          "/lpt1", "/COM%C2%B9", "/CONIN$", "/conout%24", "/a%", "/a%4", "/a%zz", "/a%%41", "/a%G0", "/a#b",
          "/a.txt.", "/a.txt%2E", "/a%20", "/%C3", "/%C3%28", "/%ED%A0%80", "/%C0%AF", "/%FF", "/a%2a",
          "/a%3Fb", "/a%7Cb", "/a%3Cb"})
        EXPECT_EQ(NameFromTarget(target), L"") << target;
}
