// HttpRequest with a BodyStream: the body of a 200 response handed over piece by piece as it
// arrives and never kept in memory, a stream that refuses part-way failing the request and
// leaving no connection behind, and bodies the stream must never see (other statuses, a
// redirect's, chunked, refused at the head).
#include <gtest/gtest.h>
#include "http/request.h"
#include "http/responses.h"
#include "http/script_server.h"
#include "support/patience.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

// Keeps what it is handed, piece by piece; refuses once it holds `refuseAfter` bytes or more, and
// sets `reached` once it holds `signalAt` bytes or more.
class RecordedStream final : public BodyStream {
public:
    bool Take(const void* data, size_t count) override
    {
        if (refused)
            ++takenAfterRefusal;
        pieces.push_back(count);
        bytes.append(static_cast<const char*>(data), count);
        if (reached && bytes.size() >= signalAt)
            SetEvent(reached);
        refused = bytes.size() >= refuseAfter;
        return !refused;
    }

    std::string bytes;
    std::vector<size_t> pieces;
    size_t refuseAfter = SIZE_MAX;
    HANDLE reached = nullptr;
    size_t signalAt = 0;
    bool refused = false;
    int takenAfterRefusal = 0;
};

// Requests `response` from a scripted server, with `stream` taking the body.
void Fetch(HttpRequest& request, RecordedStream& stream, const std::string& response)
{
    ScriptServer server;
    server.Start({Send(response)});
    request.bodyStream = &stream;
    request.Execute(server.Url(L"/object"));
}

}  // namespace

TEST(HttpBodyStream, BodyIsHandedOverAsItArrives)
{
    // The second half is sent only once the stream holds the first: a client that kept the body
    // until it was whole would wait for it in vain.
    std::string body = RandomText(3 * 1024 * 1024 + 11);
    std::string response = Ok(body);
    size_t half = response.size() - body.size() / 2;
    HANDLE firstHalfTaken = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Script script;
    script.chunks.push_back(Chunk{response.substr(0, half), 0});
    script.chunks.push_back(Chunk{response.substr(half), 0, firstHalfTaken});
    ScriptServer server;
    server.Start({script});
    RecordedStream stream;
    stream.reached = firstHalfTaken;
    stream.signalAt = body.size() - body.size() / 2;
    HttpRequest request;
    request.receiveTimeoutMs = PatienceMs();
    request.bodyStream = &stream;
    uint64_t started = GetTickCount64();
    request.Execute(server.Url(L"/object"));
    EXPECT_LT(GetTickCount64() - started, PatienceMs());
    EXPECT_EQ(request.status, 200u);
    EXPECT_TRUE(stream.bytes == body);
    EXPECT_GE(stream.pieces.size(), 2u);
    // The body went to the stream only: no memory block, and the length counted.
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.responseBodyLength, static_cast<int64_t>(body.size()));
    CloseHandle(firstHalfTaken);
}

TEST(HttpBodyStream, BodiesOfEverySizeArriveWholeAndInOrder)
{
    for (size_t size : {size_t(0), size_t(1), size_t(32768), size_t(32769), size_t(1) << 20, (size_t(5) << 20) + 3}) {
        std::string body = RandomText(size);
        // Cut into uneven pieces with short pauses, and followed by bytes beyond the length.
        std::string response = Ok(body) + "trailing bytes that are no part of the body";
        Script script;
        for (size_t at = 0, piece = 1; at < response.size(); at += piece, piece = piece * 7 % 300001 + 1)
            script.chunks.push_back(Chunk{response.substr(at, piece), piece % 3 == 0 ? 1 : 0});
        ScriptServer server;
        server.Start({script});
        RecordedStream stream;
        HttpRequest request;
        request.bodyStream = &stream;
        request.Execute(server.Url(L"/sized"));
        EXPECT_EQ(request.status, 200u) << size;
        EXPECT_EQ(stream.bytes.size(), size);
        EXPECT_TRUE(stream.bytes == body) << size;
        EXPECT_EQ(stream.pieces.size() == 0, size == 0) << size;
        EXPECT_EQ(request.responseBody, nullptr) << size;
    }
}

TEST(HttpBodyStream, StreamRefusingPartWayFailsTheRequestAndClosesTheConnection)
{
    std::string body = RandomText(2 * 1024 * 1024);
    std::string again = RandomText(70000);
    // The whole response, in pieces; the server then holds the connection until the client closes it.
    std::string response = Ok(body);
    Script refused;
    for (size_t at = 0; at < response.size(); at += 65536)
        refused.chunks.push_back(Chunk{response.substr(at, 65536), 1});
    refused.hold = true;
    ScriptServer server;
    server.Start({refused, Send(Ok(again))});

    RecordedStream stream;
    stream.refuseAfter = 300000;
    HttpRequest request;
    request.receiveTimeoutMs = PatienceMs();
    request.bodyStream = &stream;
    request.Execute(server.Url(L"/first"));
    EXPECT_EQ(request.status, 0u);
    EXPECT_TRUE(stream.refused);
    EXPECT_EQ(stream.takenAfterRefusal, 0);
    EXPECT_LT(stream.bytes.size(), body.size());
    EXPECT_TRUE(stream.bytes == body.substr(0, stream.bytes.size()));
    EXPECT_EQ(request.responseBody, nullptr);
    EXPECT_EQ(request.Connection().Socket(), static_cast<uintptr_t>(INVALID_SOCKET));

    // The next request opens a connection of its own: the server, still holding the first until
    // the client closes it, answers it only on a second one.
    RecordedStream next;
    request.bodyStream = &next;
    request.Execute(server.Url(L"/second"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_TRUE(next.bytes == again);
    const std::vector<std::string>& requests = server.Finish();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].rfind("GET /first ", 0), 0u);
    EXPECT_EQ(requests[1].rfind("GET /second ", 0), 0u);
}

TEST(HttpBodyStream, BodiesOfOtherStatusesAreNotHandedOver)
{
    for (const char* status : {"404 Not Found", "500 Internal Server Error", "206 Partial Content", "303 See Other"}) {
        std::string body = "the body of a " + std::string(status) + " answer";
        RecordedStream stream;
        HttpRequest request;
        Fetch(request, stream, "HTTP/1.1 " + std::string(status) + "\r\nContent-Length: " +
                                   std::to_string(body.size()) + "\r\n\r\n" + body);
        EXPECT_EQ(request.status, static_cast<uint32_t>(std::stoul(status))) << status;
        EXPECT_TRUE(stream.pieces.empty()) << status;
        EXPECT_EQ(request.responseBodyLength, static_cast<int64_t>(body.size())) << status;
    }
}

TEST(HttpBodyStream, OnlyTheFinalBodyOfARedirectIsHandedOver)
{
    std::string body = RandomText(100000);
    ScriptServer server;
    std::string moved = "HTTP/1.1 302 Found\r\nLocation: " + WideToUtf8(server.Url(L"/final")) +
                        "\r\nContent-Length: 26\r\n\r\nabcdefghijklmnopqrstuvwxyz";
    server.Start({Send(moved), Send(Ok(body))});
    RecordedStream stream;
    HttpRequest request;
    request.bodyStream = &stream;
    request.Execute(server.Url(L"/moved"));
    EXPECT_EQ(request.status, 200u);
    EXPECT_TRUE(stream.bytes == body);
}

TEST(HttpBodyStream, RefusedResponsesHandNothingOver)
{
    const std::string refusals[] = {
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nContent-Encoding: deflate\r\n\r\nabcde",
        "HTTP/1.1 200 OK\r\nContent-Length: 2000\r\n\r\n" + RandomText(2000),  // beyond the body limit
    };
    for (const std::string& response : refusals) {
        RecordedStream stream;
        HttpRequest request;
        request.bodyLimit = 1000;
        Fetch(request, stream, response);
        EXPECT_EQ(request.status, 0u) << response.substr(0, 60);
        EXPECT_TRUE(stream.pieces.empty()) << response.substr(0, 60);
    }
}

TEST(HttpBodyStream, BodyCutShortOrWithoutLengthFailsTheRequest)
{
    std::string body = RandomText(200000);
    const std::string cut[] = {
        Ok(body).substr(0, 100000),                            // the server closes part-way
        "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body,  // no length: the end is unknown
    };
    for (const std::string& response : cut) {
        RecordedStream stream;
        HttpRequest request;
        Fetch(request, stream, response);
        EXPECT_EQ(request.status, 0u);
        // What was handed over is the body's start, never more than arrived.
        EXPECT_TRUE(stream.bytes == body.substr(0, stream.bytes.size()));
    }
}
