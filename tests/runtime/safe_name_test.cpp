// The name check for names from outside: every rule, with both separators and device names in
// every form.
#include <gtest/gtest.h>
#include "runtime/safe_name.h"
#include "runtime/text.h"

#include <string>

TEST(SafeName, PlainNamesAndBothSeparators)
{
    for (const wchar_t* name : {L"a.txt", L"dir\\sub file.txt", L"dir/sub/x.bin", L"a\\b/c", L"\u00e9t\u00e9.dat",
                                L".hidden", L"..a", L"a..b", L"con1", L"coms", L"nul1.txt", L"xcon", L"com",
                                L"lpt10", L"con-1.txt", L"~$x", L"a b", L"CONIN", L"a%2e"})
        EXPECT_TRUE(IsSafeRelativeName(name)) << WideToUtf8(name);
}

TEST(SafeName, NamesThatLeaveTheFolderOrAreNoFile)
{
    for (const wchar_t* name :
         {L"", L"..", L".", L"..\\a", L"a\\..", L"a/../b", L"a\\.\\b", L"\\a", L"/a", L"\\\\server\\share\\a",
          L"\\\\?\\C:\\a", L"\\\\.\\COM1", L"a\\", L"a/", L"a\\\\b", L"a//b", L"C:", L"C:a", L"C:\\a", L"c:/a",
          L"a:b", L"a.txt:stream", L"a.txt::$DATA", L"a\\b.", L"a\\b ", L"a.", L"a ", L"...", L"a\u0001b",
          L"a\tb", L"a\nb", L"a\u007fb", L"a<b", L"a>b", L"a\"b", L"a|b", L"a?b", L"a*b"})
        EXPECT_FALSE(IsSafeRelativeName(name)) << WideToUtf8(name);
    EXPECT_FALSE(IsSafeRelativeName(std::wstring(L"a\0b", 3)));
}

TEST(SafeName, DeviceNamesInAnyCaseWithExtensionOrBlanks)
{
    for (const wchar_t* device : {L"CON", L"PRN", L"AUX", L"NUL", L"COM0", L"COM1", L"COM9", L"LPT0", L"LPT1",
                                  L"LPT9", L"CONIN$", L"CONOUT$", L"COM\u00b9", L"LPT\u00b2", L"COM\u00b3"}) {
        std::wstring name = device;
        for (const std::wstring& form : {name, LowerAscii(name), name.substr(0, 1) + LowerAscii(name.substr(1)), name + L".txt",
                                         name + L".tar.gz", name + L" .txt", name + L"  ", name + L".",
                                         L"dir\\" + name, L"dir/" + name + L".log", name + L"\\a"}) {
            EXPECT_FALSE(IsSafeRelativeName(form)) << WideToUtf8(form);
        }
    }
}
