// Fuzz target of the reader of peer answers: the input is one received datagram, read against two
// items under the prefix of port 8090. Every datagram sits in a block of exactly its size, so a
// read past it is reported; an item that takes an answer must have its sender as a peer and, from
// version 2 on, a 40-digit hash.
#include "app/config.h"
#include "discovery/datagrams.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string prefix = PeerPrefix(8090);
    constexpr uint32_t sender = 0x0100007F;
    std::list<UpdateItem> items(2);
    items.front().name = L"a.txt";
    items.back().name = L"dir\\b.bin";
    auto exact = std::make_unique<unsigned char[]>(size);
    if (size)
        std::memcpy(exact.get(), data, size);
    bool answer = ApplyPeerAnswer(exact.get(), size, sender, prefix, items);
    for (const UpdateItem& item : items) {
        bool changed = !item.peers.empty() || !item.hash.empty();
        bool consistent = item.peers.size() <= 1 && (item.peers.empty() || *item.peers.begin() == sender) &&
                          (item.hash.empty() || item.hash.size() == 40);
        if ((changed && !answer) || !consistent) {
            std::fprintf(stderr, "peer answer: an item left in an impossible state\n");
            std::abort();
        }
    }
    return 0;
}
