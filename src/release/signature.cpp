// The hexadecimal readers of the signed-release texts.
#include "release/signature.h"

#include "runtime/text.h"

namespace {

// `digits` hexadecimal digits, two per byte; characters are taken one per unit, so a byte or a
// code unit outside the digits fails.
template <class Unit>
bool ReadHexBytes(const Unit* text, size_t digits, uint8_t* bytes)
{
    for (size_t i = 0; i < digits; i += 2) {
        const int high = HexDigitValue(wchar_t(text[i]));
        const int low = HexDigitValue(wchar_t(text[i + 1]));
        if (high < 0 || low < 0) {
            return false;
        }
        bytes[i / 2] = uint8_t(high * 16 + low);
    }
    return true;
}

bool IsBlank(unsigned char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

}  // namespace

bool ReadPublicKeyHex(const std::wstring& text, uint8_t key[kEd25519PublicKeySize])
{
    return text.size() == 2 * kEd25519PublicKeySize && ReadHexBytes(text.data(), text.size(), key);
}

bool ReadSignatureBody(const void* body, size_t length, uint8_t signature[kEd25519SignatureSize])
{
    const unsigned char* begin = static_cast<const unsigned char*>(body);
    const unsigned char* end = begin + length;
    while (begin != end && IsBlank(*begin)) {
        ++begin;
    }
    while (end != begin && IsBlank(end[-1])) {
        --end;
    }
    return size_t(end - begin) == 2 * kEd25519SignatureSize && ReadHexBytes(begin, 2 * kEd25519SignatureSize, signature);
}

bool ReadSha256Hex(const std::wstring& text, uint8_t digest[kSha256DigestSize])
{
    return text.size() == 2 * kSha256DigestSize && ReadHexBytes(text.data(), text.size(), digest);
}

std::wstring Sha256ToText(const uint8_t digest[kSha256DigestSize])
{
    return BytesToHex(digest, kSha256DigestSize);
}
