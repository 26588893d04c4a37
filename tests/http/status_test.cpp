// GetHttpStatusName: the full table and the fallback.
#include <gtest/gtest.h>
#include "http/status.h"

#include <string>

TEST(GetHttpStatusName, KnownAndUnknownCodes)
{
    EXPECT_EQ(std::wstring(GetHttpStatusName(200)), L"OK");
    EXPECT_EQ(std::wstring(GetHttpStatusName(418)), L"None");
    EXPECT_EQ(std::wstring(GetHttpStatusName(0)), L"None");
    EXPECT_EQ(std::wstring(GetHttpStatusName(999)), L"None");
}

TEST(GetHttpStatusName, FullTable)
{
    const struct {
        uint32_t code;
        const wchar_t* name;
    } table[] = {
        {100, L"Continue"}, {101, L"SwitchingProtocols"}, {200, L"OK"}, {201, L"Created"}, {202, L"Accepted"},
        {203, L"NonAuthoritativeInformation"}, {204, L"NoContent"}, {205, L"ResetContent"}, {206, L"PartialContent"},
        {300, L"MultipleChoices"}, {301, L"MovedPermanently"}, {302, L"Found"}, {303, L"SeeOther"},
        {304, L"NotModified"}, {305, L"UseProxy"}, {306, L"Unused"}, {307, L"TemporaryRedirect"},
        {400, L"BadRequest"}, {401, L"Unauthorized"}, {402, L"PaymentRequired"}, {403, L"Forbidden"},
        {404, L"NotFound"}, {405, L"MethodNotAllowed"}, {406, L"NotAcceptable"},
        {407, L"ProxyAuthenticationRequired"}, {408, L"RequestTimeout"}, {409, L"Conflict"}, {410, L"Gone"},
        {411, L"LengthRequired"}, {412, L"PreconditionFailed"}, {413, L"RequestEntityTooLarge"},
        {414, L"RequestUriTooLong"}, {415, L"UnsupportedMediaType"}, {416, L"RequestedRangeNotSatisfiable"},
        {417, L"ExpectationFailed"}, {426, L"UpgradeRequired"}, {500, L"InternalServerError"},
        {501, L"NotImplemented"}, {502, L"BadGateway"}, {503, L"ServiceUnavailable"}, {504, L"GatewayTimeout"},
        {505, L"HttpVersionNotSupported"},
    };
    int named = 0;
    for (const auto& entry : table)
        EXPECT_EQ(std::wstring(GetHttpStatusName(entry.code)), entry.name) << entry.code;
    for (uint32_t code = 0; code < 1000; ++code)
        named += std::wstring(GetHttpStatusName(code)) != L"None";
    EXPECT_EQ(named, 42);
}
