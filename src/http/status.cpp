// The one table of HTTP status codes: the name the client's log lines show and the reason phrase
// the file server sends.
#include "http/status.h"

namespace {

struct Status {
    uint32_t code;
    const wchar_t* name;  // none for a code the log shows as "None"
    const char* reason;
};

const Status kStatuses[] = {
    {100, L"Continue",                     "Continue"},
    {101, L"SwitchingProtocols",           "Switching Protocols"},
    {200, L"OK",                           "OK"},
    {201, L"Created",                      "Created"},
    {202, L"Accepted",                     "Accepted"},
    {203, L"NonAuthoritativeInformation",  "Non-Authoritative Information"},
    {204, L"NoContent",                    "No Content"},
    {205, L"ResetContent",                 "Reset Content"},
    {206, L"PartialContent",               "Partial Content"},
    {300, L"MultipleChoices",              "Multiple Choices"},
    {301, L"MovedPermanently",             "Moved Permanently"},
    {302, L"Found",                        "Found"},
    {303, L"SeeOther",                     "See Other"},
    {304, L"NotModified",                  "Not Modified"},
    {305, L"UseProxy",                     "Use Proxy"},
    {306, L"Unused",                       "Unused"},
    {307, L"TemporaryRedirect",            "Temporary Redirect"},
    {400, L"BadRequest",                   "Bad Request"},
    {401, L"Unauthorized",                 "Unauthorized"},
    {402, L"PaymentRequired",              "Payment Required"},
    {403, L"Forbidden",                    "Forbidden"},
    {404, L"NotFound",                     "Not Found"},
    {405, L"MethodNotAllowed",             "Method Not Allowed"},
    {406, L"NotAcceptable",                "Not Acceptable"},
    {407, L"ProxyAuthenticationRequired",  "Proxy Authentication Required"},
    {408, L"RequestTimeout",               "Request Timeout"},
    {409, L"Conflict",                     "Conflict"},
    {410, L"Gone",                         "Gone"},
    {411, L"LengthRequired",               "Length Required"},
    {412, L"PreconditionFailed",           "Precondition Failed"},
    {413, L"RequestEntityTooLarge",        "Content Too Large"},
    {414, L"RequestUriTooLong",            "URI Too Long"},
    {415, L"UnsupportedMediaType",         "Unsupported Media Type"},
    {416, L"RequestedRangeNotSatisfiable", "Range Not Satisfiable"},
    {417, L"ExpectationFailed",            "Expectation Failed"},
    {426, L"UpgradeRequired",              "Upgrade Required"},
    {431, nullptr,                         "Request Header Fields Too Large"},
    {500, L"InternalServerError",          "Internal Server Error"},
    {501, L"NotImplemented",               "Not Implemented"},
    {502, L"BadGateway",                   "Bad Gateway"},
    {503, L"ServiceUnavailable",           "Service Unavailable"},
    {504, L"GatewayTimeout",               "Gateway Timeout"},
    {505, L"HttpVersionNotSupported",      "HTTP Version Not Supported"},
};

const Status* Find(uint32_t code)
{
    for (const auto& entry : kStatuses) {
        if (entry.code == code)
            return &entry;
    }
    return nullptr;
}

}  // namespace

const wchar_t* GetHttpStatusName(uint32_t code)
{
    const Status* status = Find(code);
    return status && status->name ? status->name : L"None";
}

const char* GetHttpReasonPhrase(uint32_t code)
{
    const Status* status = Find(code);
    return status ? status->reason : "Error";
}
