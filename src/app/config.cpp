// Reads UpdaterConfig from the parsed command-line argument and logs it.
#include "app/config.h"
#include "json/value.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "release/signature.h"

UpdaterConfig* updaterConfig = nullptr;
std::wstring ProgramDirectory;

namespace {

// A JSON number as the port: converted to an integer, then cut to 16 bits. Values outside the
// 64-bit range (and NaN) convert to the integer that the processor gives them, whose low 16
// bits are 0.
uint16_t PortFromNumber(double value)
{
    if (!(value > -9223372036854775808.0 && value < 9223372036854775808.0))
        return 0;
    return static_cast<uint16_t>(static_cast<int64_t>(value));
}

}  // namespace

UpdaterConfig* ReadConfig(const wJsonObject& argument, std::wstring& pathAndQuery)
{
    auto* config = new UpdaterConfig;
    std::wstring joined;
    const wJsonArray* domains = argument.GetArray(L"domains");
    std::wstring path = argument.GetString(L"pathAndQuery");
    if (domains && domains->Count() > 0 && !path.empty()) {
        for (uint32_t i = 0; i < domains->Count(); ++i) {
            std::wstring domain = domains->GetString(i);
            if (domain.empty())
                continue;
            joined += FormatW(L" %s", domain.c_str());
            config->domains.push_back(std::move(domain));
        }
        pathAndQuery = path;
    } else {
        pathAndQuery.clear();
    }
    config->argOrg = argument.GetString(L"argOrg");
    const wJsonValue* port = argument.Get(L"httpSharePort");
    if (port && port->type == wJsonType::number)
        config->httpSharePort = PortFromNumber(static_cast<const wJsonNumber*>(port)->Value());

    LogW(L"domains:%s", joined.c_str());
    LogW(L"pathAndQuery: %s", pathAndQuery.c_str());
    LogW(L"argOrg: %s", config->argOrg.c_str());
    LogW(L"httpSharePort: %u", static_cast<unsigned>(config->httpSharePort));

    // A key that is given must be usable: falling back to the unsigned mode would hand the
    // installation to whoever can answer its requests.
    if (const wJsonValue* key = argument.Get(L"publicKey")) {
        std::wstring text = key->type == wJsonType::string ? argument.GetString(L"publicKey") : std::wstring();
        static_assert(sizeof(config->publicKeyBytes) == kEd25519PublicKeySize, "an Ed25519 public key");
        if (ReadPublicKeyHex(text, config->publicKeyBytes) && Ed25519PublicKeyUsable(config->publicKeyBytes)) {
            config->publicKey = text;
            LogW(L"publicKey: %s", text.c_str());
        } else {
            LogW(L"Unusable publicKey, the update does not run: "
                 L"not 64 hexadecimal digits of a usable Ed25519 key. (%s)",
                 text.c_str());
            pathAndQuery.clear();
        }
    }
    return config;
}

std::wstring ComputeProgramDirectory()
{
    std::wstring path = GetModulePath();
    size_t slash = path.rfind(L'\\');
    return (slash == std::wstring::npos ? path : path.substr(0, slash)) + L"\\";
}
