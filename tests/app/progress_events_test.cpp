// The launcher's events as whole lines, and the names a pipe may have.
#include <gtest/gtest.h>
#include "app/pipe_name.h"
#include "app/progress_events.h"

TEST(ProgressEvents, EveryEvent)
{
    JsonLine configuration;
    configuration.Strings("domains", {L"127.0.0.1:80"}).String("progressPipe", L"p");
    EXPECT_EQ(StartEvent(L"1.10", configuration),
              "{\"event\":\"start\",\"version\":\"1.10\",\"configuration\":{\"domains\":[\"127.0.0.1:80\"],"
              "\"progressPipe\":\"p\"}}");
    EXPECT_EQ(PlanEvent(2, 300), "{\"event\":\"plan\",\"files\":2,\"bytes\":300}");
    EXPECT_EQ(ItemEvent(L"dir\\a \"b\".dll", 100, true, L"h:1"),
              "{\"event\":\"item\",\"name\":\"dir\\\\a \\\"b\\\".dll\",\"size\":100,\"source\":\"server\","
              "\"host\":\"h:1\"}");
    EXPECT_EQ(ItemEvent(L"a", 1, false, L"10.0.0.2:8090"),
              "{\"event\":\"item\",\"name\":\"a\",\"size\":1,\"source\":\"peer\",\"host\":\"10.0.0.2:8090\"}");
    EXPECT_EQ(ProgressEvent(5, 300, 1000), "{\"event\":\"progress\",\"done\":5,\"total\":300,\"rate\":1000}");
    EXPECT_EQ(StepEvent(L"stopService", L"Svc"), "{\"event\":\"step\",\"step\":\"stopService\",\"name\":\"Svc\"}");
    EXPECT_EQ(EndEvent(L"updated", 2, 1, 200, 3),
              "{\"event\":\"end\",\"outcome\":\"updated\",\"files\":2,\"fetched\":1,\"bytes\":200,\"dropped\":3}");
}

TEST(PipePath, NamesOfThePipeFolderOnly)
{
    EXPECT_EQ(PipePath(L"launcher-42"), L"\\\\.\\pipe\\launcher-42");
    EXPECT_EQ(PipePath(L""), L"");
    EXPECT_EQ(PipePath(L"..\\..\\C:\\file"), L"");
    EXPECT_EQ(PipePath(L"../x"), L"");
    EXPECT_EQ(PipePath(std::wstring(L"a\0b", 3)), L"");
    EXPECT_EQ(PipePath(std::wstring(247, L'n')).size(), 256u);
    EXPECT_EQ(PipePath(std::wstring(248, L'n')), L"");
}
