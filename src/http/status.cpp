// The fixed table of HTTP status names.
#include "http/status.h"

namespace {

struct StatusName {
    uint32_t code;
    const wchar_t* name;
};

const StatusName kNames[] = {
    {100, L"Continue"},
    {101, L"SwitchingProtocols"},
    {200, L"OK"},
    {201, L"Created"},
    {202, L"Accepted"},
    {203, L"NonAuthoritativeInformation"},
    {204, L"NoContent"},
    {205, L"ResetContent"},
    {206, L"PartialContent"},
    {300, L"MultipleChoices"},
    {301, L"MovedPermanently"},
    {302, L"Found"},
    {303, L"SeeOther"},
    {304, L"NotModified"},
    {305, L"UseProxy"},
    {306, L"Unused"},
    {307, L"TemporaryRedirect"},
    {400, L"BadRequest"},
    {401, L"Unauthorized"},
    {402, L"PaymentRequired"},
    {403, L"Forbidden"},
    {404, L"NotFound"},
    {405, L"MethodNotAllowed"},
    {406, L"NotAcceptable"},
    {407, L"ProxyAuthenticationRequired"},
    {408, L"RequestTimeout"},
    {409, L"Conflict"},
    {410, L"Gone"},
    {411, L"LengthRequired"},
    {412, L"PreconditionFailed"},
    {413, L"RequestEntityTooLarge"},
    {414, L"RequestUriTooLong"},
    {415, L"UnsupportedMediaType"},
    {416, L"RequestedRangeNotSatisfiable"},
    {417, L"ExpectationFailed"},
    {426, L"UpgradeRequired"},
    {500, L"InternalServerError"},
    {501, L"NotImplemented"},
    {502, L"BadGateway"},
    {503, L"ServiceUnavailable"},
    {504, L"GatewayTimeout"},
    {505, L"HttpVersionNotSupported"},
};

}  // namespace

const wchar_t* GetHttpStatusName(uint32_t code)
{
    for (const auto& entry : kNames) {
        if (entry.code == code)
            return entry.name;
    }
    return L"None";
}
