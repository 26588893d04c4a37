// Native fuzzing of the code that reads outside input, built for Linux with the address and
// undefined-behaviour sanitizers: the JSON parser (and the writer and release of what it
// accepts), the URL parser, the response-head parser, the reader of peer answers, SHA-1, and
// the share peer's readers: peer queries, request heads and the names in request targets.
// Inputs are generated and mutated from small seed sets with a fixed, printed seed; every input
// sits in a buffer of exactly its size, so any read past it is reported.
//   fuzz_parsers [INPUTS_PER_TARGET [SEED]]
#include "app/config.h"
#include "http/request_head.h"
#include "http/response_head.h"
#include "http/url.h"
#include "json/value.h"
#include "runtime/pool.h"
#include "share/peer_query.h"
#include "share/peers.h"
#include "share/safe_name.h"
#include "share/sha1.h"
#include "share/target_name.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

class Random {
public:
    explicit Random(uint64_t seed) : engine(seed) {}
    uint32_t Below(uint32_t n) { return n ? static_cast<uint32_t>(engine() % n) : 0; }
    bool OneIn(uint32_t n) { return Below(n) == 0; }
    uint8_t Byte() { return static_cast<uint8_t>(engine()); }

private:
    std::mt19937_64 engine;
};

// A mutation of `seed`: flips, insertions, deletions, truncation, repeats and splices.
std::string Mutate(Random& random, const std::vector<std::string>& seeds)
{
    std::string text = seeds[random.Below(static_cast<uint32_t>(seeds.size()))];
    uint32_t steps = 1 + random.Below(8);
    for (uint32_t i = 0; i < steps; ++i) {
        size_t at = random.Below(static_cast<uint32_t>(text.size() + 1));
        switch (random.Below(7)) {
        case 0:
            if (!text.empty())
                text[at % text.size()] ^= static_cast<char>(1 << random.Below(8));
            break;
        case 1:
            text.insert(at, 1, static_cast<char>(random.Byte()));
            break;
        case 2:
            text.erase(at, random.Below(16));
            break;
        case 3:
            text.resize(at);
            break;
        case 4:
            text.insert(at, text.substr(at, random.Below(64)));
            break;
        case 5: {
            const std::string& other = seeds[random.Below(static_cast<uint32_t>(seeds.size()))];
            size_t from = random.Below(static_cast<uint32_t>(other.size() + 1));
            text.insert(at, other.substr(from, random.Below(64)));
            break;
        }
        default:
            for (uint32_t n = random.Below(32); n > 0; --n)
                text.insert(text.begin() + static_cast<ptrdiff_t>(random.Below(static_cast<uint32_t>(text.size() + 1))),
                            static_cast<char>(random.Byte()));
        }
    }
    return text;
}

// Bytes as UTF-16 code units, one per byte or, at random, two bytes per unit.
std::wstring Units(Random& random, const std::string& bytes)
{
    std::wstring units;
    if (random.OneIn(4)) {
        for (size_t i = 0; i + 1 < bytes.size(); i += 2)
            units.push_back(static_cast<wchar_t>(static_cast<uint8_t>(bytes[i]) | static_cast<uint8_t>(bytes[i + 1]) << 8));
    } else {
        for (char c : bytes)
            units.push_back(static_cast<wchar_t>(static_cast<uint8_t>(c)));
    }
    return units;
}

long FuzzJson(Random& random, long inputs)
{
    const std::vector<std::string> seeds = {
        "{}", "{ }", "{\"a\":1}", "{'a':'b' \"c\":[1 2 3]}", "{\"a\":{\"b\":{\"c\":[[],{}]}}}",
        "{\"n\":-.5,\"m\":5.,\"t\":true,\"f\":false,\"z\":null}", "{\"s\":\"\\u0041\\u00e9\\n\\t\\\\\\/\\'\"}",
        "{\"files\":[{\"n\":\"bin/a.dll\",\"h\":\"DA39A3EE5E6B4B0D3255BFEF95601890AFD80709\",\"s\":0}]}",
        "{\"a\":1,\"a\":2,\"a\":[3]}", std::string(600, '[') + "1" + std::string(600, ']'),
        "{\"x\":" + std::string(700, '[') + std::string(700, ']') + "}"};
    long accepted = 0;
    long long baseline = PoolOutstanding();
    for (long i = 0; i < inputs; ++i) {
        std::wstring units = Units(random, Mutate(random, seeds));
        auto text = std::make_unique<wchar_t[]>(units.size() + 1);
        std::memcpy(text.get(), units.data(), units.size() * sizeof(wchar_t));
        text[units.size()] = 0;
        const wchar_t* cursor = text.get();
        if (wJsonObject* root = wJsonObject::Parse(cursor)) {
            ++accepted;
            if (root->Serialize(0, L"\r\n").empty())
                std::abort();
            root->Release();
        }
        if (PoolOutstanding() != baseline) {
            std::fprintf(stderr, "json: pool blocks not returned after input %ld\n", i);
            std::abort();
        }
    }
    return accepted;
}

long FuzzUrl(Random& random, long inputs)
{
    const std::vector<std::string> seeds = {
        "http://Some.HOST/A?x=1", "http://host", "host:8080/x", "http://host:70000/", "HTTPS://h/",
        "http://h/?a=1&&b=2", "http://h/?a", "http://h/?A=1&a=2", "/only/path", "http://h:/?a= 1 ",
        "ftp://x:21/p?q=r&s=t=u"};
    long accepted = 0;
    for (long i = 0; i < inputs; ++i) {
        HttpUrl url;
        if (url.Parse(Units(random, Mutate(random, seeds))))
            ++accepted;
    }
    return accepted;
}

long FuzzHead(Random& random, long inputs)
{
    const std::vector<std::string> seeds = {
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello",
        "HTTP/1.1 301 Moved\r\nLocation: http://x/\r\nContent-Length: 0\r\n\r\n",
        "HTTP/1.0 404 Not Found\r\ncontent-length: 03\r\n\r\n", "HTTP/1.1 0x1F4 X\r\nA:b\r\n\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 200\r\nContent-Encoding: DEFLATE\r\n\r\n",
        "HTTP/1.1 200 OK\n\n", "HTTP/1.1 200 OK\r\nX: \xC3\xA9\xFF\r\n\r\n"};
    long complete = 0;
    for (long i = 0; i < inputs; ++i) {
        std::string bytes = Mutate(random, seeds);
        auto exact = std::make_unique<char[]>(bytes.size());
        std::memcpy(exact.get(), bytes.data(), bytes.size());
        ResponseHead head;
        int64_t used = ParseResponseHead(exact.get(), bytes.size(), head);
        if (used > static_cast<int64_t>(bytes.size()))
            std::abort();
        if (used > 0)
            ++complete;
    }
    return complete;
}

long FuzzPeerAnswers(Random& random, long inputs)
{
    const std::string prefix = PeerPrefix(8090);
    auto answer = [&](uint8_t version, const std::vector<std::string>& names) {
        std::string body;
        uint32_t count = static_cast<uint32_t>(names.size());
        for (int i = 3; i >= 0; --i)
            body += static_cast<char>(count >> (8 * i));
        for (const std::string& name : names) {
            if (version >= 2)
                body += std::string(1, '\x14') + std::string(20, '\xAB');
            body += static_cast<char>(name.size()) + name;
            if (version >= 2)
                body += std::string(7, '\0') + '\x07';
        }
        std::string datagram = prefix + static_cast<char>(version) + '\x02';
        uint32_t length = static_cast<uint32_t>(datagram.size() + 4 + body.size());
        for (int i = 3; i >= 0; --i)
            datagram += static_cast<char>(length >> (8 * i));
        return datagram + body;
    };
    const std::vector<std::string> seeds = {answer(1, {"a.txt"}), answer(2, {"a.txt", "dir\\b.bin"}),
                                            answer(2, {"zzz"}), answer(3, {"a.txt", "a.txt", "dir\\b.bin"})};
    long accepted = 0;
    for (long i = 0; i < inputs; ++i) {
        std::list<UpdateItem> items(2);
        items.front().name = L"a.txt";
        items.back().name = L"dir\\b.bin";
        std::string bytes = Mutate(random, seeds);
        auto exact = std::make_unique<unsigned char[]>(bytes.size());
        std::memcpy(exact.get(), bytes.data(), bytes.size());
        if (ApplyPeerAnswer(exact.get(), bytes.size(), 0x0100007F, prefix, items))
            ++accepted;
    }
    return accepted;
}

long FuzzSha1(Random& random, long inputs)
{
    long checked = 0;
    Sha1Compress hardware = Sha1HardwareCompress();
    for (long i = 0; i < inputs; ++i) {
        std::string bytes(random.Below(600), '\0');
        for (auto& c : bytes)
            c = static_cast<char>(random.Byte());
        uint8_t portable[kSha1DigestSize], other[kSha1DigestSize];
        Sha1Buffer(bytes.data(), bytes.size(), portable, Sha1CompressPortable);
        Sha1Context context;
        Sha1Init(context, hardware ? hardware : Sha1CompressPortable);
        size_t split = random.Below(static_cast<uint32_t>(bytes.size() + 1));
        Sha1Update(context, bytes.data(), split);
        Sha1Update(context, bytes.data() + split, bytes.size() - split);
        Sha1Final(context, other);
        if (std::memcmp(portable, other, sizeof(portable)) != 0) {
            std::fprintf(stderr, "sha1: paths disagree on input %ld\n", i);
            std::abort();
        }
        ++checked;
    }
    return checked;
}


long FuzzPeerQueries(Random& random, long inputs)
{
    const std::string prefix = PeerPrefix(8090);
    auto query = [&](const std::vector<std::string>& names, uint8_t version) {
        std::string body;
        for (const std::string& name : names)
            body += std::string(1, '\x01') + static_cast<char>(name.size()) + name + '\x14' + std::string(20, '\xCD') +
                    '\x01' + std::string(7, '\0') + '\x09';
        body += '\0';
        std::string datagram = prefix + static_cast<char>(version) + '\x01';
        uint32_t length = static_cast<uint32_t>(datagram.size() + 4 + body.size());
        for (int i = 3; i >= 0; --i)
            datagram += static_cast<char>(length >> (8 * i));
        return datagram + body;
    };
    const std::vector<std::string> seeds = {query({"a.txt"}, 2), query({"a.txt", "dir\\b c.bin", "caf\xC3\xA9"}, 2),
                                            query({}, 2), query({"a.txt"}, 1), query({std::string(254, 'n')}, 3)};
    long read = 0;
    for (long i = 0; i < inputs; ++i) {
        std::string bytes = Mutate(random, seeds);
        auto exact = std::make_unique<unsigned char[]>(bytes.size());
        std::memcpy(exact.get(), bytes.data(), bytes.size());
        std::vector<PeerRecord> records = ReadPeerQuery(exact.get(), bytes.size(), prefix);
        if (records.size() > kMaxQueryRecords)
            std::abort();
        // Whatever was read, the answers made of it are packed to at most 1200 bytes each.
        for (const std::string& answer : BuildPeerAnswers(records, 8090)) {
            if (answer.size() > 1200)
                std::abort();
        }
        read += !records.empty();
    }
    return read;
}

long FuzzRequestHeads(Random& random, long inputs)
{
    const std::vector<std::string> seeds = {
        "GET /a.txt HTTP/1.1\r\nHost: h\r\n\r\n", "HEAD /dir/b%20c.txt HTTP/1.1\r\nHost: 10.0.0.1:8090\r\n\r\n",
        "GET / HTTP/1.0\r\n\r\n", "POST /x HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\nabc",
        "GET /a HTTP/1.1\r\nHost: h\r\nX: \xC3\xA9\r\nY:z\r\n\r\n", "GET /%2e%2e/%5C HTTP/1.1\r\nHost: h\r\n\r\n",
        "GET /" + std::string(300, 'a') + " HTTP/1.1\r\nHost: h\r\n\r\n"};
    long complete = 0;
    for (long i = 0; i < inputs; ++i) {
        std::string bytes = Mutate(random, seeds);
        auto exact = std::make_unique<char[]>(bytes.size());
        std::memcpy(exact.get(), bytes.data(), bytes.size());
        RequestHead head;
        int64_t used = ParseRequestHead(exact.get(), bytes.size(), head);
        if (used > static_cast<int64_t>(bytes.size()))
            std::abort();
        if (used > 0) {
            ++complete;
            // A name decoded from a target is safe by construction.
            std::wstring name = NameFromTarget(head.target);
            if (!name.empty() && !IsSafeRelativeName(name))
                std::abort();
        }
    }
    return complete;
}

}  // namespace

int main(int argc, char** argv)
{
    long inputs = argc > 1 ? std::atol(argv[1]) : 200000;
    uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : 0x5EEDF022;
    std::printf("seed 0x%llX, %ld inputs per target\n", static_cast<unsigned long long>(seed), inputs);
    Random random(seed);
    std::printf("json: %ld accepted\n", FuzzJson(random, inputs));
    std::printf("url: %ld accepted\n", FuzzUrl(random, inputs));
    std::printf("response head: %ld complete\n", FuzzHead(random, inputs));
    std::printf("peer answers: %ld accepted\n", FuzzPeerAnswers(random, inputs));
    std::printf("sha1: %ld agreed\n", FuzzSha1(random, inputs / 10));
    std::printf("peer queries: %ld read\n", FuzzPeerQueries(random, inputs));
    std::printf("request heads: %ld complete\n", FuzzRequestHeads(random, inputs));
    std::printf("no finding\n");
    return 0;
}
