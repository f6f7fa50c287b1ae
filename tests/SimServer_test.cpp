#include <gtest/gtest.h>
#include <httplib.h>

#include <atomic>
#include <future>
#include <thread>

#include "host/SimServer.h"

using namespace tactora::host;
using nlohmann::json;

namespace {

struct RunningServer {
    SimServer server{SimServer::Options{}};
    std::string origin;
    RunningServer() {
        server.get("state", [] { return json{{"status", "idle"}}; });
        server.post("echo", [](const json& body) -> json {
            if (body.contains("refuse")) throw ApiError{409, "refused on purpose"};
            return {{"got", body}};
        });
        std::string error;
        if (!server.start(error)) ADD_FAILURE() << error;
        origin = "http://127.0.0.1:" + std::to_string(server.port());
    }
    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server.port());
        c.set_read_timeout(5, 0);
        return c;
    }
};

}  // namespace

TEST(SimServer, ServesItsPageAndAnswersItsOwnOriginOnly) {
    RunningServer running;
    auto client = running.client();
    auto page = client.Get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->body.find("<script src=\"/sim.js\">"), std::string::npos);
    EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(client.Get("/sim.js")->status, 200);

    EXPECT_EQ(client.Get("/api/state")->status, 403);  // no origin at all
    EXPECT_EQ(client.Get("/api/state", {{"Origin", "http://evil.example"}})->status, 403);
    EXPECT_EQ(client.Get("/api/state", {{"Sec-Fetch-Site", "cross-site"}})->status, 403);
    auto own = client.Get("/api/state", {{"Origin", running.origin}});
    EXPECT_EQ(own->status, 200);
    EXPECT_EQ(json::parse(own->body)["status"], "idle");
    EXPECT_EQ(client.Get("/api/state", {{"Sec-Fetch-Site", "same-origin"}})->status, 200);

    EXPECT_EQ(client.Post("/api/echo", {{"Origin", "http://evil.example"}}, R"({"a":1})", "text/plain")->status, 403);
    auto echoed = client.Post("/api/echo", {{"Origin", running.origin}}, R"({"a":1})", "application/json");
    EXPECT_EQ(echoed->status, 200);
    EXPECT_EQ(json::parse(echoed->body)["got"]["a"], 1);
    EXPECT_EQ(client.Post("/api/echo", {{"Origin", running.origin}}, "[1]", "application/json")->status, 400);
    EXPECT_EQ(client.Post("/api/echo", {{"Origin", running.origin}}, "{oops", "application/json")->status, 400);
    auto refused = client.Post("/api/echo", {{"Origin", running.origin}}, R"({"refuse":true})", "application/json");
    EXPECT_EQ(refused->status, 409);
    EXPECT_EQ(json::parse(refused->body)["error"], "refused on purpose");
    EXPECT_EQ(client.Get("/api/none", {{"Origin", running.origin}})->status, 404);
}

TEST(SimServer, StreamsPublishedEventsToEveryOpenPageAndClosesThemOnStop) {
    RunningServer running;
    std::atomic<int> streamsSeeingTouch{0};
    auto reader = [&] {
        auto client = running.client();
        std::string received;
        client.Get("/api/events", {{"Origin", running.origin}}, [&](const char* data, std::size_t size) {
            received.append(data, size);
            if (received.find("event: touch\ndata: {\"x\":3}\n\n") != std::string::npos) {
                ++streamsSeeingTouch;
                received.clear();
            }
            return true;
        });
    };
    std::thread first(reader), second(reader);
    for (int i = 0; i < 200 && running.server.streamCount() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(running.server.streamCount(), 2u);
    running.server.publish("touch", json{{"x", 3}});
    for (int i = 0; i < 200 && streamsSeeingTouch < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(streamsSeeingTouch.load(), 2);

    // Stopping ends both streams, so the readers return rather than hang.
    auto stopped = std::async(std::launch::async, [&] { running.server.stop(); });
    EXPECT_EQ(stopped.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    first.join();
    second.join();
    EXPECT_FALSE(running.client().Get("/"));  // the process no longer answers
}
