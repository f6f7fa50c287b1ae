#include "host/SimServer.h"

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <deque>

#include "host/WebAssets.h"

namespace tactora::host {

using nlohmann::json;

// One open event stream: events wait here until the connection's thread writes them.
struct SimServer::Stream {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<std::string> pending;
    bool closed = false;
};

namespace {

bool isLoopbackName(const std::string& host) {
    return host == "127.0.0.1" || host == "localhost" || host == "::1" || host == "[::1]";
}

void sendJson(httplib::Response& response, int status, const json& body) {
    response.status = status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(body.dump(), "application/json");
}

}  // namespace

SimServer::SimServer(Options options) : options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {
    // Every open page holds one thread for its event stream; leave room for the API beside them.
    server_->new_task_queue = [] { return new httplib::ThreadPool(24); };
    server_->set_keep_alive_max_count(1000);
    // Address reuse only: a second simulator on a taken port must fail, not share the port.
    server_->set_socket_options([](int sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    installRoutes();
}

SimServer::~SimServer() { stop(); }

bool SimServer::fromOwnPage(const std::string& hostHeader, const std::string& origin,
                            const std::string& fetchSite, const std::string& boundHost, int port) {
    const std::string suffix = ":" + std::to_string(port);
    if (hostHeader.size() <= suffix.size() || hostHeader.compare(hostHeader.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    const std::string name = hostHeader.substr(0, hostHeader.size() - suffix.size());
    // A page served under another name that resolves to us (DNS rebinding) is not ours.
    if (isLoopbackName(boundHost) && !isLoopbackName(name)) return false;
    if (!origin.empty()) return origin == "http://" + hostHeader;
    return fetchSite == "same-origin";
}

void SimServer::installRoutes() {
    for (const auto& asset : webAssets()) {
        std::string path(asset.path);
        auto serve = [&asset](const httplib::Request&, httplib::Response& response) {
            response.set_header("Cache-Control", "no-store");
            response.set_header("X-Content-Type-Options", "nosniff");
            response.set_content(std::string(asset.body), std::string(asset.contentType).c_str());
        };
        server_->Get(path, serve);
        if (path == "/index.html") server_->Get("/", serve);
    }

    // Every API request passes the origin check before it reaches a route.
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        if (request.path.rfind("/api/", 0) != 0) return httplib::Server::HandlerResponse::Unhandled;
        if (!fromOwnPage(request.get_header_value("Host"), request.get_header_value("Origin"),
                         request.get_header_value("Sec-Fetch-Site"), options_.host, port_)) {
            sendJson(response, 403, {{"error", "requests must come from the simulator's own page"}});
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });

    server_->Get("/api/events", [this](const httplib::Request&, httplib::Response& response) {
        auto stream = std::make_shared<Stream>();
        {
            std::lock_guard lock(streamsMutex_);
            streams_.push_back(stream);
        }
        response.set_header("Cache-Control", "no-store");
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, stream](std::size_t, httplib::DataSink& sink) {
                std::unique_lock lock(stream->mutex);
                stream->ready.wait_for(lock, std::chrono::seconds(2),
                                       [&] { return !stream->pending.empty() || stream->closed || stopping_; });
                if (stream->closed || stopping_) return false;
                std::string chunk;
                if (stream->pending.empty()) chunk = ": still here\n\n";  // keeps proxies and the peer honest
                while (!stream->pending.empty()) {
                    chunk += stream->pending.front();
                    stream->pending.pop_front();
                }
                lock.unlock();
                return sink.write(chunk.data(), chunk.size());
            },
            [this, stream](bool) {
                std::lock_guard lock(streamsMutex_);
                std::erase(streams_, stream);
            });
    });
}

void SimServer::get(const std::string& name, GetRoute route) {
    server_->Get("/api/" + name, [route = std::move(route)](const httplib::Request&, httplib::Response& response) {
        try {
            sendJson(response, 200, route());
        } catch (const ApiError& error) {
            sendJson(response, error.status, {{"error", error.message}});
        }
    });
}

void SimServer::getBlob(const std::string& name, BlobRoute route) {
    server_->Get("/api/" + name, [route = std::move(route)](const httplib::Request&, httplib::Response& response) {
        auto blob = route();
        if (!blob) {
            sendJson(response, 404, {{"error", "nothing to show"}});
            return;
        }
        response.set_header("Cache-Control", "no-store");
        response.set_content(std::move(blob->body), blob->contentType.c_str());
    });
}

void SimServer::post(const std::string& name, PostRoute route) {
    posts_[name] = std::move(route);
    server_->Post("/api/" + name, [this, name](const httplib::Request& request, httplib::Response& response) {
        auto [status, answer] = answerPost(name, request.body);
        sendJson(response, status, answer);
    });
}

std::pair<int, json> SimServer::answerPost(const std::string& name, const std::string& body) const {
    auto route = posts_.find(name);
    if (route == posts_.end()) return {404, {{"error", "no such request"}}};
    json parsed = body.empty() ? json::object() : json::parse(body, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return {400, {{"error", "the body must be a JSON object"}}};
    try {
        return {200, route->second(parsed)};
    } catch (const ApiError& error) {
        return {error.status, {{"error", error.message}}};
    } catch (const json::exception& error) {
        return {400, {{"error", std::string("bad request: ") + error.what()}}};
    }
}

bool SimServer::start(std::string& error) {
    if (options_.port == 0) {
        port_ = server_->bind_to_any_port(options_.host);
    } else {
        port_ = server_->bind_to_port(options_.host, options_.port) ? options_.port : -1;
    }
    if (port_ <= 0) {
        error = "cannot listen on " + options_.host + ":" + std::to_string(options_.port);
        port_ = 0;
        return false;
    }
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() only reaches a server that already runs: wait for it, so a quick stop cannot be lost.
    while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void SimServer::stop() {
    if (stopping_.exchange(true)) return;
    {
        std::lock_guard lock(streamsMutex_);
        for (auto& stream : streams_) {
            std::lock_guard streamLock(stream->mutex);
            stream->closed = true;
            stream->ready.notify_all();
        }
    }
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

std::string SimServer::url() const {
    std::string host = options_.host == "0.0.0.0" || options_.host == "::" ? "127.0.0.1" : options_.host;
    if (host.find(':') != std::string::npos) host = "[" + host + "]";
    return "http://" + host + ":" + std::to_string(port_) + "/";
}

void SimServer::publish(const std::string& event, const json& data) {
    std::string message = "event: " + event + "\ndata: " + data.dump() + "\n\n";
    std::lock_guard lock(streamsMutex_);
    for (auto& stream : streams_) {
        std::lock_guard streamLock(stream->mutex);
        // A page that stopped reading must not make the simulator hoard its events.
        if (stream->pending.size() > 10000) stream->pending.pop_front();
        stream->pending.push_back(message);
        stream->ready.notify_all();
    }
}

std::size_t SimServer::streamCount() const {
    std::lock_guard lock(streamsMutex_);
    return streams_.size();
}

}  // namespace tactora::host
