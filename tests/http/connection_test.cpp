// HttpConnection: the socket it opens is non-blocking and cannot be inherited by a program that
// the updater starts. Every connection goes to 127.0.0.1.
#include <gtest/gtest.h>
#include "http/connection.h"
#include "http/script_server.h"

#include <winsock2.h>

namespace {

class ConnectionTest : public testing::Test {
protected:
    void SetUp() override
    {
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    }
    void TearDown() override { WSACleanup(); }
};

}  // namespace

TEST_F(ConnectionTest, SocketIsNotInheritableAndDoesNotBlock)
{
    // Listening is enough: the connect completes in the listener's backlog.
    ScriptServer server;
    HttpConnection connection;
    ASSERT_TRUE(connection.Open(L"127.0.0.1", server.Port()));
    DWORD flags = 0;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(connection.Socket()), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);

    ASSERT_TRUE(connection.Connect(5000));
    char buffer[16];
    // Nothing has been sent, so nothing has come back: a blocking socket would wait here.
    EXPECT_EQ(connection.Receive(buffer, sizeof(buffer)), -1);
    connection.Close();
    EXPECT_EQ(connection.Socket(), INVALID_SOCKET);
}
