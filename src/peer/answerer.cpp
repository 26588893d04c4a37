// The answerer: each query read, matched against the catalogue, answered and logged.
#include "peer/answerer.h"
#include "peer/catalogue.h"
#include "peer/query_log.h"
#include "runtime/io_request.h"
#include "discovery/peer_query.h"
#include "discovery/datagrams.h"

namespace {

// Receives kept posted: a burst of query datagrams waits in the socket's buffer meanwhile.
constexpr uint32_t kReceiveCount = 16;
constexpr uint32_t kReceiveSize = 2048;

}  // namespace

Answerer::Answerer(Catalogue& catalogue, QueryLog& log) : catalogue(catalogue), log(log) {}

uint32_t Answerer::Open(uint16_t sharePort)
{
    port = sharePort;
    prefix = PeerPrefix(port);
    return wSocketUdp::Open(INADDR_ANY, port, kReceiveCount, kReceiveSize, true);
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
    // Sent at once rather than as an overlapped send: no completion has to come back through the
    // port for it, which saves a round trip through the Wine server for every answer.
    for (const std::string& answer : BuildPeerAnswers(answered, port))
        sendto(socket.load(), answer.data(), static_cast<int>(answer.size()), 0, reinterpret_cast<const sockaddr*>(from),
               sizeof(sockaddr_in));
    log.Add(from->sin_addr.s_addr, ntohs(from->sin_port), static_cast<uint32_t>(asked.size()),
            static_cast<uint32_t>(answered.size()));
}
