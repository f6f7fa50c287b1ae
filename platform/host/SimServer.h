// The browser simulator's HTTP side: serves the page compiled into the binary, a small JSON API
// under /api/ and a stream of server-sent events (/api/events). What the API does is given by the
// routes that the simulator registers; this class only carries requests, guards the origin and
// fans events out to every open page.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace tactora::host {

// A failed API request: HTTP status and a message for the page.
struct ApiError {
    int status;
    std::string message;
};

// A response that is not JSON (the screen as PNG).
struct ApiBlob {
    std::string contentType;
    std::string body;
};

class SimServer {
public:
    struct Options {
        std::string host = "127.0.0.1";
        int port = 0;  // 0: any free port
    };

    using GetRoute = std::function<nlohmann::json()>;
    using BlobRoute = std::function<std::optional<ApiBlob>()>;
    // Gets the request body (an object; {} when empty). Throws ApiError to refuse.
    using PostRoute = std::function<nlohmann::json(const nlohmann::json& body)>;

    explicit SimServer(Options options);
    ~SimServer();
    SimServer(const SimServer&) = delete;
    SimServer& operator=(const SimServer&) = delete;

    // Register routes before start(). `name` is the part after /api/.
    void get(const std::string& name, GetRoute route);
    void getBlob(const std::string& name, BlobRoute route);
    void post(const std::string& name, PostRoute route);
    // Carries one POST to /api/`name` with `body` as the page sent it, without the network (the
    // origin check is the caller's business): the HTTP status and the JSON answer.
    std::pair<int, nlohmann::json> answerPost(const std::string& name, const std::string& body) const;

    // Binds and serves on a thread of its own; false (with `error`) when the address is taken.
    bool start(std::string& error);
    void stop();
    int port() const { return port_; }
    // http://HOST:PORT/
    std::string url() const;

    // Sends one event to every open event stream (any thread).
    void publish(const std::string& event, const nlohmann::json& data);
    std::size_t streamCount() const;

    // True when a request with these headers comes from the simulator's own page: its Host names
    // this server, and its Origin is the page's origin (or, without an Origin, the browser says
    // the request is same-origin). Anything else is refused, so another site open in the same
    // browser cannot drive the simulator.
    static bool fromOwnPage(const std::string& hostHeader, const std::string& origin,
                            const std::string& fetchSite, const std::string& boundHost, int port);

private:
    struct Stream;
    void installRoutes();

    Options options_;
    std::unique_ptr<httplib::Server> server_;
    std::map<std::string, PostRoute> posts_;
    std::thread thread_;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    mutable std::mutex streamsMutex_;
    std::vector<std::shared_ptr<Stream>> streams_;
};

}  // namespace tactora::host
