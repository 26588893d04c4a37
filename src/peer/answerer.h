// The answerer: a UDP socket on the wildcard address and the discovery port that hears every
// query broadcast on any local network and answers, unicast to the sender, for the records that
// match a shared file.
#pragma once
#include "discovery/socket.h"

#include <cstdint>
#include <string>

class Catalogue;
class QueryLog;

class Answerer : public wSocketUdp {
public:
    Answerer(Catalogue& catalogue, QueryLog& log);
    // Binds 0.0.0.0:port, sharing the port with updaters on this machine; 0 or the error code.
    uint32_t Open(uint16_t port);
    void OnReceive(IoRequest* request) override;

private:
    Catalogue& catalogue;
    QueryLog& log;
    uint16_t port = 0;
    std::string prefix;
};
