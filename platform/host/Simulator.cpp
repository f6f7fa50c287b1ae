#include "host/Simulator.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <sstream>

#include "Control/ScriptManager.h"
#include "Kernel/ScreenFunctions.h"
#include "Models/Global.h"
#include "Models/PlaySettings.h"
#include "Platform/EventRegistry.h"
#include "Platform/Languages.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Views/ControlPanelView.h"
#include "host/FileTail.h"
#include "host/MainLoop.h"

namespace tactora::host {

using nlohmann::json;

std::optional<json> pageEventFromTraceLine(const std::string& line, const DeviceProfile& profile) {
    json event = json::parse(line, nullptr, false);
    if (!event.is_object() || !event.contains("kind")) return std::nullopt;
    const double seconds = event.value("t_us", 0.0) / 1e6;
    const std::string kind = event.value("kind", "");
    if (kind == "keyboard") {
        // The home button is the consumer page's menu usage.
        if (event.value("usage_page", 0) != 12 || event.value("usage", 0) != 64) return std::nullopt;
        return json{{"kind", "key"}, {"time", seconds}, {"key", "home"}, {"down", event.value("down", false)}};
    }
    if (kind != "digitizer" || !event.contains("fingers") || !event["fingers"].is_array()) return std::nullopt;
    // The receiver reports fractions of the display in pixels, doubled on a 2x screen (as the
    // phone's own digitizer maths does); undo exactly that to get points back.
    const double factor = profile.scale == 2 ? 2.0 : 1.0;
    const double width = profile.pixelWidth() / factor, height = profile.pixelHeight() / factor;
    json fingers = json::array();
    for (const auto& finger : event["fingers"]) {
        if (!finger.is_object() || !finger.contains("x") || !finger.contains("y") || !finger["x"].is_number() ||
            !finger["y"].is_number())
            continue;
        const double x = finger["x"].get<double>() * width, y = finger["y"].get<double>() * height;
        // Finger numbers travel as unsigned 32-bit values; show the script's own (negative) number.
        const auto index = static_cast<std::int32_t>(finger.value("index", std::uint32_t{0}));
        fingers.push_back({{"index", index},
                           {"x", std::round(x * 100) / 100},
                           {"y", std::round(y * 100) / 100},
                           {"touch", finger.value("touch", false)}});
    }
    if (fingers.empty()) return std::nullopt;
    return json{{"kind", "touch"}, {"time", seconds}, {"fingers", fingers}};
}

FrameSource sceneFrames(SceneState& scene) {
    struct Cache {
        std::mutex mutex;
        std::map<std::string, std::shared_ptr<const Frame>> frames;
    };
    auto cache = std::make_shared<Cache>();
    return [&scene, cache]() -> std::shared_ptr<const Frame> {
        const std::string path = scene.currentImage();
        std::lock_guard lock(cache->mutex);
        auto& frame = cache->frames[path];
        if (!frame) {
            std::string error;
            frame = loadFrame(path, error);
        }
        return frame;
    };
}

bool playScriptOnce(const std::string& script) {
    namespace fs = std::filesystem;
    fs::path path = script;
    if (path.is_relative() && !fs::exists(path))
        path = fs::path(platform().paths->map(devicepaths::scriptsDirectory)) / script;
    Global& global = Global::sharedInstance();
    if (global.isPlaying() || global.isRecording()) return false;
    auto settings = std::make_shared<PlaySettings>();
    settings->setScriptTitle(path.filename().string());
    settings->setScriptPath(path.string());
    settings->setRepeatTime(1);
    settings->setRepeatInterval(0);
    settings->setPlaySpeed(1.0f);
    settings->setPlayType(0);
    settings->setPlayNowOrLater(0);
    global.setCurrentPlaySettings(settings);
    ScriptManager::runScript();
    return true;
}

Simulator::Simulator(MainLoop& loop, SceneState& scene, DeviceProfile profile, SimServer& server,
                     SimController controller, Options options)
    : loop_(loop),
      scene_(scene),
      profile_(std::move(profile)),
      server_(server),
      controller_(std::move(controller)),
      options_(std::move(options)) {
    server_.get("state", [this] {
        auto [status, body] = onMainLoop([this] { return std::pair{200, state()}; });
        if (status != 200) throw ApiError{status, body.value("error", "no state")};
        return body;
    });
    server_.getBlob("screen.png", [this] { return screenPng(); });
    server_.post("touch", [this](const json& body) { return touch(body); });
    server_.post("button", [this](const json& body) { return button(body); });

    // The controller's own requests pass through unchanged (see docs/control-api.md).
    for (const char* path : {"event", "panel/control/record", "panel/control/cancel", "panel/control/select",
                             "panel/settings/stepper", "panel/settings/count", "panel/settings/tap",
                             "panel/settings/button", "alert/button", "input"}) {
        server_.post(path, [this, path = std::string("/api/") + path](const json& body) {
            auto [status, answer] = onMainLoop([&] {
                if (!controller_.handle) return std::pair{503, json{{"error", "the controller is not running"}}};
                auto reply = controller_.handle("POST", path, body);
                publishStateIfChanged();
                return reply;
            });
            if (status != 200) throw ApiError{status, answer.value("error", "refused")};
            return answer;
        });
    }

    installAuthoring();

    scene_.setOnChange([this](const std::string& name) {
        // An opened picture stays in front until the page closes it; the scene moves on behind it.
        server_.publish("screen", {{"name", name}, {"version", screenVersion()}});
    });
    if (!options_.logPath.empty())
        logTail_ = std::make_unique<FileTail>(options_.logPath, [this](const std::vector<std::string>& lines) {
            server_.publish("log", {{"lines", lines}});
            for (const auto& line : lines)
                if (auto failure = scriptErrorFromLogLine(line, platform().paths->map(devicepaths::scriptsDirectory))) server_.publish("scriptError", *failure);
        });
    if (!options_.tracePath.empty())
        traceTail_ = std::make_unique<FileTail>(options_.tracePath,
                                                [this](const std::vector<std::string>& lines) { traceLines(lines); });
}

Simulator::~Simulator() {
    stopWatching();
    traceTail_.reset();
    logTail_.reset();
    scene_.setOnChange(nullptr);
}

std::pair<int, json> Simulator::onMainLoop(std::function<std::pair<int, json>()> work) {
    auto promise = std::make_shared<std::promise<std::pair<int, json>>>();
    auto result = promise->get_future();
    loop_.post([promise, work = std::move(work)] {
        try {
            promise->set_value(work());
        } catch (const std::exception& failure) {
            promise->set_value({500, json{{"error", failure.what()}}});
        }
    });
    if (result.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        return {503, json{{"error", "the simulator's main loop did not answer"}}};
    return result.get();
}

json Simulator::scriptList() {
    // The scripts directory and the store change rarely; a second's delay is fine for the pane.
    const auto now = std::chrono::steady_clock::now();
    if (now - scriptsReadAt_ < std::chrono::seconds(1)) return scripts_;
    scriptsReadAt_ = now;
    // The control panel's own list: the same files, order and markers as the phone shows.
    ControlPanelView list(nullptr);
    json scripts = json::array();
    for (std::size_t row = 0; row < list.numberOfRows(); ++row) {
        auto cell = list.cellForRow(row);
        scripts.push_back({{"title", cell.text},
                           {"trigger", !cell.activatorAssignedLabel.empty()},
                           {"playDirectly", !cell.playSettingsLabel.empty()}});
    }
    scripts_ = std::move(scripts);
    return scripts_;
}

std::uint64_t Simulator::screenVersion() const {
    std::lock_guard lock(openedMutex_);
    // Both counts only grow, so their sum changes with every change of either.
    return scene_.version() + openedChanges_;
}

double Simulator::secondsSinceStart() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
}

FrameSource Simulator::frames() {
    return [this, scene = sceneFrames(scene_)]() -> std::shared_ptr<const Frame> {
        {
            std::lock_guard lock(openedMutex_);
            if (opened_) return opened_->frame;
        }
        return scene();
    };
}

json Simulator::simState() {
    const auto languages = platform().languages->preferredLanguages();
    json opened = nullptr;
    {
        std::lock_guard lock(openedMutex_);
        if (opened_) opened = opened_->name;
    }
    return {{"device",
             {{"name", profile_.name},
              {"widthPoints", profile_.widthPoints},
              {"heightPoints", profile_.heightPoints},
              {"scale", profile_.scale},
              // Points per unit of touchDown and getColor: exactly-2x screens count in points,
              // every other screen in pixels.
              {"scriptUnit", get_screen_scale_factor() / profile_.scale}}},
            {"screen", {{"name", scene_.currentScreen()}, {"version", screenVersion()}, {"opened", opened}}},
            {"language", languages.empty() ? "en" : languages.front()},
            {"scripts", scriptList()},
            {"controller", static_cast<bool>(controller_.state)}};
}

json Simulator::state() {
    json state = controller_.state ? controller_.state() : json::object();
    state["sim"] = simState();
    return state;
}

void Simulator::publishStateIfChanged() {
    json now = state();
    std::string text = now.dump();
    if (text == lastPublished_) return;
    lastPublished_ = std::move(text);
    server_.publish("state", now);
}

void Simulator::startWatching() {
    if (watching_.exchange(true)) return;
    watcher_ = std::thread([this] {
        while (watching_) {
            // Runs ended, alerts opened by a script, recordings stopped: the page hears of them here.
            auto done = std::make_shared<std::promise<void>>();
            auto finished = done->get_future();
            loop_.post([this, done] {
                publishStateIfChanged();
                done->set_value();
            });
            // A loop that stopped answering (the process is ending) must not hold the watcher up.
            while (watching_ && finished.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
            }
            std::this_thread::sleep_for(options_.statePollInterval);
        }
    });
}

void Simulator::stopWatching() {
    if (!watching_.exchange(false)) return;
    watcher_.join();
}

void Simulator::traceLines(const std::vector<std::string>& lines) {
    for (const auto& line : lines) {
        auto event = pageEventFromTraceLine(line, profile_);
        if (!event) continue;
        if ((*event)["kind"] == "touch") {
            for (const auto& finger : (*event)["fingers"]) {
                const auto index = static_cast<std::uint32_t>(finger["index"].get<std::int32_t>());
                if (finger["touch"].get<bool>())
                    scene_.fingerDown(index, finger["x"], finger["y"]);  // a finger held down keeps its first region
                else
                    scene_.fingerUp(index, finger["x"], finger["y"]);
            }
            server_.publish("touch", *event);
        } else {
            if (!(*event)["down"].get<bool>()) scene_.home();
            server_.publish("key", *event);
        }
    }
}

json Simulator::touch(const json& body) {
    const std::string phase = body.value("phase", "");
    if (phase != "down" && phase != "move" && phase != "up")
        throw ApiError{400, "\"phase\" must be down, move or up"};
    auto touches = body.find("touches");
    if (touches == body.end() || !touches->is_array() || touches->empty() || touches->size() > 5)
        throw ApiError{400, "\"touches\" must list one to five fingers"};
    json fingers = json::array(), input = json::array();
    for (const auto& t : *touches) {
        // find, not [], on a const object: a missing key must be an answer, not a read past the map.
        auto field = [&t](const char* key) { return t.is_object() ? t.find(key) : t.end(); };
        auto fingerField = field("finger"), xField = field("x"), yField = field("y");
        if (!t.is_object() || fingerField == t.end() || xField == t.end() || yField == t.end() ||
            !fingerField->is_number_integer() || !xField->is_number() || !yField->is_number())
            throw ApiError{400, "each touch needs \"finger\", \"x\" and \"y\""};
        if (!fingerField->is_number_unsigned() && fingerField->get<std::int64_t>() < 1)
            throw ApiError{400, "\"finger\" must be 1 to 20"};
        if (fingerField->is_number_unsigned() && fingerField->get<std::uint64_t>() > 20)
            throw ApiError{400, "\"finger\" must be 1 to 20"};
        const int finger = static_cast<int>(fingerField->get<std::int64_t>());
        const double x = *xField, y = *yField;
        if (finger < 1 || finger > 20) throw ApiError{400, "\"finger\" must be 1 to 20"};
        fingers.push_back({{"index", finger}, {"x", x}, {"y", y}, {"touch", phase != "up"}});
        input.push_back({{"finger", finger}, {"phase", phase}, {"x", x}, {"y", y}});
    }
    for (const auto& f : fingers) {
        if (phase == "down") scene_.fingerDown(f["index"], f["x"], f["y"]);
        if (phase == "up") scene_.fingerUp(f["index"], f["x"], f["y"]);
    }
    server_.publish("touch", {{"kind", "touch"},
                              {"source", "hand"},
                              {"phase", phase},
                              {"time", secondsSinceStart()},
                              {"fingers", fingers}});
    // Real fingers reach the system as real HID events: the recorder hears them.
    auto [status, answer] = onMainLoop([&] {
        if (!controller_.handle) return std::pair{200, json{{"delivered", 0}}};
        return controller_.handle("POST", "/api/input", {{"t", 0}, {"touch", input}});
    });
    if (status != 200) throw ApiError{status, answer.value("error", "refused")};
    return answer;
}

json Simulator::button(const json& body) {
    const std::string which = body.value("button", ""), action = body.value("action", "press");
    std::pair<int, json> reply;
    if (which == "volume-down") {
        if (action != "press" && action != "hold") throw ApiError{400, "\"action\" must be press or hold"};
        const char* event = action == "hold" ? LAEventNameVolumeDownHoldShort : LAEventNameVolumeDownPress;
        reply = onMainLoop([&] {
            if (!controller_.handle) return std::pair{503, json{{"error", "the controller is not running"}}};
            auto answer = controller_.handle("POST", "/api/event", {{"name", event}});
            publishStateIfChanged();
            return answer;
        });
    } else if (which == "home") {
        // A press of about a tenth of a second, as a finger gives it.
        reply = onMainLoop([&] {
            if (!controller_.handle) return std::pair{200, json::object()};
            return controller_.handle("POST", "/api/input",
                                      {{"events", {{{"t", 0}, {"home", "down"}}, {{"t", 100000}, {"home", "up"}}}}});
        });
        scene_.home();
        server_.publish("key", {{"kind", "key"},
                                {"key", "home"},
                                {"down", false},
                                {"source", "hand"},
                                {"time", secondsSinceStart()}});
    } else {
        throw ApiError{400, "\"button\" must be volume-down or home"};
    }
    if (reply.first != 200) throw ApiError{reply.first, reply.second.value("error", "refused")};
    return reply.second;
}

std::optional<ApiBlob> Simulator::screenPng() {
    {
        std::lock_guard lock(openedMutex_);
        if (opened_) return ApiBlob{"image/png", opened_->png};
    }
    const std::string path = scene_.currentImage();
    std::lock_guard lock(pngMutex_);
    auto& cached = pngCache_[path];
    if (!cached) {
        std::ifstream in(path, std::ios::binary);
        if (!in) return std::nullopt;
        std::ostringstream bytes;
        bytes << in.rdbuf();
        cached = std::make_shared<const std::string>(bytes.str());
    }
    return ApiBlob{"image/png", *cached};
}

}  // namespace tactora::host
