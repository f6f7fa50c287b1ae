#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>

namespace httplib {
class Server;
}

namespace tactora::host {

class SpringBoardHost;

// The reply to one request: an HTTP status and a JSON body.
struct ApiReply {
    int status = 200;
    nlohmann::json body;
};

// The local control API of a running system: the state (flags, open panels, open alerts) and the
// user's actions (events, panel buttons, alert buttons, real input), as JSON over HTTP on
// 127.0.0.1. Requests are carried out on the main loop, one at a time, like a user's touches.
class ControlApi {
public:
    explicit ControlApi(SpringBoardHost& springBoard);
    ~ControlApi();

    // Serves on `host`:`port` (0: any free port) from a thread of its own. False when the port
    // cannot be bound.
    bool start(const std::string& host, int port);
    int port() const { return port_; }
    void stop();

    // Carries out one request (main loop only). `path` starts with /api/.
    ApiReply handle(const std::string& method, const std::string& path, const nlohmann::json& body);
    // The whole visible state (main loop only).
    nlohmann::json state() const;

private:
    ApiReply handleOnMainLoop(const std::string& method, const std::string& path, const std::string& body);

    SpringBoardHost& springBoard_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
};

}  // namespace tactora::host
