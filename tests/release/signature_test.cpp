// Tests of the readers of signed-release texts: the exact forms pass, every other length,
// character or surrounding fails, and a SHA-256 digest reads back from its own text.
#include <gtest/gtest.h>

#include <string>

#include "runtime/text.h"
#include "release/signature.h"

namespace {

const wchar_t kKeyText[] = L"d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a";
const char kSignatureText[] =
    "e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e065224901555fb8821590a33bacc61e39701cf9b46bd25bf5f0595bbe24655141438e7a100b";

bool ReadBody(const std::string& body, uint8_t signature[kEd25519SignatureSize])
{
    return ReadSignatureBody(body.data(), body.size(), signature);
}

}  // namespace

TEST(Signature, PublicKeyHex)
{
    uint8_t key[kEd25519PublicKeySize];
    ASSERT_TRUE(ReadPublicKeyHex(kKeyText, key));
    EXPECT_EQ(BytesToHex(key, sizeof key), L"D75A980182B10AB7D54BFED3C964073A0EE172F3DAA62325AF021A68F707511A");
    uint8_t upper[kEd25519PublicKeySize];
    ASSERT_TRUE(ReadPublicKeyHex(L"D75A980182B10AB7D54BFED3C964073A0EE172F3DAA62325AF021A68F707511a", upper));
    EXPECT_EQ(BytesToHex(upper, sizeof upper), BytesToHex(key, sizeof key));

    const std::wstring text = kKeyText;
    for (const std::wstring& bad : {std::wstring(), text.substr(0, 62), text.substr(0, 63), text + L"0", text + L"00",
                                    L" " + text, text + L" ", text + L"\n", L"0x" + text.substr(2),
                                    text.substr(0, 30) + L" " + text.substr(31), text.substr(0, 63) + L"g",
                                    text.substr(0, 63) + L"\xFF10" /* fullwidth 0 */, text.substr(0, 10) + L'\0' + text.substr(11)}) {
        EXPECT_FALSE(ReadPublicKeyHex(bad, key)) << WideToUtf8(bad);
    }
}

TEST(Signature, SignatureBody)
{
    uint8_t signature[kEd25519SignatureSize];
    ASSERT_TRUE(ReadBody(kSignatureText, signature));
    EXPECT_EQ(LowerAscii(BytesToHex(signature, sizeof signature)), Utf8ToWide(kSignatureText));

    const std::string text = kSignatureText;
    for (const std::string& good : {text + "\n", text + "\r\n", " \t\r\n" + text + " \t\r\n", "\n\n" + text}) {
        uint8_t again[kEd25519SignatureSize] = {};
        EXPECT_TRUE(ReadBody(good, again)) << good;
        EXPECT_EQ(BytesToHex(again, sizeof again), BytesToHex(signature, sizeof signature));
    }
    for (const std::string& bad : {std::string(), std::string(" \r\n"), text.substr(0, 126), text.substr(0, 127), text + "0",
                                   text + "00", text + text, text.substr(0, 64) + " " + text.substr(64),
                                   text.substr(0, 64) + "\n" + text.substr(64), "\v" + text, text + "\f",
                                   "\xEF\xBB\xBF" + text, text.substr(0, 127) + "\xC3", text + std::string(1, '\0'),
                                   "0x" + text.substr(2), "\"" + text + "\""}) {
        EXPECT_FALSE(ReadBody(bad, signature)) << bad;
    }
    // The body need not end in a NUL: a buffer of exactly the digits.
    const std::string exact(text);
    EXPECT_TRUE(ReadSignatureBody(exact.data(), 128, signature));
    EXPECT_FALSE(ReadSignatureBody(exact.data(), 127, signature));
    EXPECT_FALSE(ReadSignatureBody(nullptr, 0, signature));
}

TEST(Signature, Sha256Text)
{
    uint8_t digest[kSha256DigestSize];
    Sha256Buffer("abc", 3, digest);
    const std::wstring text = Sha256ToText(digest);
    EXPECT_EQ(text, L"BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");

    uint8_t read[kSha256DigestSize];
    ASSERT_TRUE(ReadSha256Hex(text, read));
    EXPECT_EQ(Sha256ToText(read), text);
    ASSERT_TRUE(ReadSha256Hex(LowerAscii(text), read));
    EXPECT_EQ(Sha256ToText(read), text);

    for (const std::wstring& bad : {std::wstring(), text.substr(0, 63), text + L"0", text.substr(0, 40), L" " + text,
                                    text + L"\r", text.substr(0, 63) + L"G", text.substr(0, 63) + L"\x0100"}) {
        EXPECT_FALSE(ReadSha256Hex(bad, read)) << WideToUtf8(bad);
    }
}
