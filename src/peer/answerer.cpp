// The answerer: each query read, matched against the catalogue, answered and logged.
#include "peer/answerer.h"
#include "peer/catalogue.h"
#include "runtime/io_request.h"
#include "runtime/logger.h"
#include "runtime/text.h"
#include "share/peer_query.h"
#include "share/peers.h"

namespace {

// Receives kept posted: a burst of query datagrams waits in the socket's buffer meanwhile.
constexpr uint32_t kReceiveCount = 4;
constexpr uint32_t kReceiveSize = 2048;

}  // namespace

Answerer::Answerer(Catalogue& catalogue) : catalogue(catalogue) {}

uint32_t Answerer::Open(uint16_t sharePort)
{
    port = sharePort;
    prefix = PeerPrefix(port);
    return wSocketUdp::Open(INADDR_ANY, port, kReceiveCount, kReceiveSize);
}

void Answerer::OnReceive(IoRequest* request)
{
    const auto* from = reinterpret_cast<const sockaddr_in*>(request->address);
    if (request->error != 0 || request->addressLength < static_cast<int32_t>(sizeof(sockaddr_in)) ||
        from->sin_family != AF_INET)
        return;
    std::vector<PeerRecord> asked =
        ReadPeerQuery(static_cast<const unsigned char*>(request->buffer), request->transferred, prefix);
    if (asked.empty())
        return;
    std::vector<PeerRecord> answered;
    for (PeerRecord& record : asked) {
        if (catalogue.Matches(record.name, record.hash.data(), record.size))
            answered.push_back(std::move(record));
    }
    for (const std::string& answer : BuildPeerAnswers(answered, port))
        SendTo(answer.data(), static_cast<uint32_t>(answer.size()), *from);
    LogW(L"Query from %s:%u: %u records asked, %u answered", FormatIPv4(from->sin_addr.s_addr).c_str(),
         static_cast<unsigned>(ntohs(from->sin_port)), static_cast<unsigned>(asked.size()),
         static_cast<unsigned>(answered.size()));
}
