// What the HTTP tests have the scripted loopback server send: reproducible bodies, a 200 response
// that announces its body, and a script that sends its bytes at once.
#pragma once
#include "http/script_server.h"
#include "support/random_bytes.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Reproducible bytes, different for every length.
inline std::string RandomText(size_t count)
{
    std::vector<uint8_t> bytes = RandomBytes(count);
    return std::string(bytes.begin(), bytes.end());
}

// A 200 response whose head announces `body` (after any further header lines), followed by it.
inline std::string Ok(const std::string& body, const std::string& headers = "")
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body;
}

inline Script Send(const std::string& bytes, bool hold = false)
{
    Script script;
    script.chunks.push_back(Chunk{bytes, 0});
    script.hold = hold;
    return script;
}
