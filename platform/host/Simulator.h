// The browser simulator: a phone drawn by the page, driven through the same controller as on the
// device. This joins the pieces: the scene (what the screen shows and which app is in front), the
// controller's JSON API (panels, alerts, events, real input), the receiver's touch trace (the
// fingers a playing script puts down), the script log, and the page's HTTP server.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "host/DeviceProfiles.h"
#include "host/SceneFile.h"
#include "host/SimServer.h"
#include "host/SimulatedDisplay.h"

namespace tactora::host {

class FileTail;
class MainLoop;

// What the simulator asks of the running controller (the control API's request handler). Both
// are called on the main loop.
struct SimController {
    // Carries out one control API request (method, path under /api/, JSON body) and gives the
    // HTTP status and JSON body of its answer.
    std::function<std::pair<int, nlohmann::json>(const std::string& method, const std::string& path,
                                                 const nlohmann::json& body)>
        handle;
    // The controller's whole visible state (flags, panels, alerts).
    std::function<nlohmann::json()> state;
};

// A trace line of the receiver as the page draws it: {"kind": "touch", "time": seconds,
// "fingers": [{"index", "x", "y", "touch"}]} with positions in screen points, or {"kind": "key",
// "time", "key": "home", "down"}. None for a line that is not an event.
std::optional<nlohmann::json> pageEventFromTraceLine(const std::string& line, const DeviceProfile& profile);

// A frame source for the simulated display that shows the scene's current screen (each picture
// decoded once, when first shown). A picture that cannot be read shows black.
FrameSource sceneFrames(SceneState& scene);

// Plays `script` (a title in the scripts directory or a path) once, at normal speed, as a chosen
// script with "play now" would (main loop). False while something plays or records.
bool playScriptOnce(const std::string& script);

// A line of the script log that reports the error of a script in `scriptsDirectory`, as
// {"title", "line", "message"}; none for any other line.
std::optional<nlohmann::json> scriptErrorFromLogLine(const std::string& line, const std::string& scriptsDirectory);

// The picture a person opened on the page in place of the scene's screen.
struct OpenedPicture {
    std::shared_ptr<const Frame> frame;
    std::string png;   // the file as it came, for the page to show
    std::string name;  // its file name, for the status line
};

class Simulator {
public:
    struct Options {
        std::string tracePath;  // the receiver's HID trace to follow; empty: none
        std::string logPath;    // the script log to follow; empty: none
        std::chrono::milliseconds statePollInterval{150};
        // How long the search for the loosest fuzziness that still finds a template once may take;
        // past it the answer is the best value found so far.
        std::chrono::milliseconds safeFuzzyBudget{3000};
    };

    // Registers the API routes on `server` (before it starts) and follows the files. The scene
    // must outlive the simulator.
    Simulator(MainLoop& loop, SceneState& scene, DeviceProfile profile, SimServer& server, SimController controller,
              Options options);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // The state the page draws (main loop): the controller's, with "sim" added.
    nlohmann::json state();
    // What the display shows: a picture opened on the page while there is one, else the scene's
    // current screen. Give it to the simulated display.
    FrameSource frames();
    // Starts pushing state changes to the page (call once the main loop runs).
    void startWatching();
    void stopWatching();

private:
    // Runs `work` on the main loop and waits for it (at most 10 s).
    std::pair<int, nlohmann::json> onMainLoop(std::function<std::pair<int, nlohmann::json>()> work);
    nlohmann::json simState();
    nlohmann::json scriptList();
    void publishStateIfChanged();
    void traceLines(const std::vector<std::string>& lines);
    nlohmann::json touch(const nlohmann::json& body);
    nlohmann::json button(const nlohmann::json& body);
    std::optional<ApiBlob> screenPng();
    std::uint64_t screenVersion() const;
    double secondsSinceStart() const;

    // The authoring tools (SimAuthoring.cpp): open a screenshot, pick, cut, search, edit and run.
    void installAuthoring();
    nlohmann::json openPicture(const nlohmann::json& body);
    nlohmann::json closePicture();
    nlohmann::json pick(const nlohmann::json& body);
    nlohmann::json cutTemplate(const nlohmann::json& body);
    nlohmann::json listTemplates();
    nlohmann::json search(const nlohmann::json& body);
    nlohmann::json readScript(const nlohmann::json& body);
    nlohmann::json saveScript(const nlohmann::json& body);
    nlohmann::json runScript(const nlohmann::json& body);
    nlohmann::json stopScript();

    MainLoop& loop_;
    SceneState& scene_;
    DeviceProfile profile_;
    SimServer& server_;
    SimController controller_;
    Options options_;

    const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    mutable std::mutex openedMutex_;
    std::shared_ptr<const OpenedPicture> opened_;
    std::uint64_t openedChanges_ = 0;
    std::mutex searchMutex_;  // the matcher's limit, tolerance and ignore list are process-wide

    std::mutex pngMutex_;
    std::map<std::string, std::shared_ptr<const std::string>> pngCache_;

    // Main loop only.
    std::string lastPublished_;
    nlohmann::json scripts_ = nlohmann::json::array();
    std::chrono::steady_clock::time_point scriptsReadAt_{};

    std::atomic<bool> watching_{false};
    std::thread watcher_;
    std::unique_ptr<FileTail> traceTail_;
    std::unique_ptr<FileTail> logTail_;
};

}  // namespace tactora::host
