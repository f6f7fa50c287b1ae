// The control API: the state as JSON, then the request handlers (events, control panel, play
// settings panel, alerts, input), then the HTTP server that carries requests to the main loop.
#include "host/ControlApi.h"

#include <httplib.h>

#include <chrono>
#include <future>

#include "Control/ActionListener.h"
#include "Kernel/Recorder.h"
#include "Models/Global.h"
#include "Platform/Clock.h"
#include "Platform/Display.h"
#include "Platform/Platform.h"
#include "Views/ControlPanelView.h"
#include "Views/PlaySettingsView.h"
#include "host/InputEvents.h"
#include "host/MainLoop.h"
#include "host/SpringBoardHost.h"

namespace tactora::host {

using nlohmann::json;

namespace {

json optionalText(const std::optional<std::string>& text) { return text ? json(*text) : json(nullptr); }

json controlPanelJson(const ControlPanelView& panel) {
    json rows = json::array();
    for (size_t row = 0; row < panel.numberOfRows(); ++row) {
        auto cell = panel.cellForRow(row);
        rows.push_back({{"row", row},
                        {"text", cell.text},
                        {"activatorAssignedLabel", cell.activatorAssignedLabel},
                        {"playSettingsLabel", cell.playSettingsLabel}});
    }
    return {{"panel", "ControlPanelView"},
            {"title", panel.titleText()},
            {"message", panel.messageText()},
            {"recordButton", panel.recordButtonTitle()},
            {"cancelButton", panel.cancelButtonTitle()},
            {"rows", rows}};
}

json stepperJson(const Stepper& stepper) {
    return {{"tag", stepper.tag},
            {"value", stepper.value},
            {"minimumValue", stepper.minimumValue},
            {"maximumValue", stepper.maximumValue},
            {"stepValue", stepper.stepValue}};
}

json playSettingsJson(const PlaySettingsView& panel) {
    return {{"panel", "PlaySettingsView"},
            {"title", panel.titleText()},
            {"message", panel.messageText()},
            {"repeatCountLabel", panel.repeatCountLabelText()},
            {"repeatCountText", panel.repeatCountText()},
            {"repeatIntervalLabel", panel.repeatIntervalLabelText()},
            {"repeatIntervalValueText", panel.repeatIntervalValueText()},
            {"playSpeedLabel", panel.playSpeedLabelText()},
            {"playSpeedValueText", panel.playSpeedValueText()},
            {"steppers", {stepperJson(panel.repeatCountStepper()), stepperJson(panel.repeatIntervalStepper()),
                          stepperJson(panel.playSpeedStepper())}},
            {"buttons",
             {{{"tag", PlaySettingsView::playNowButtonTag}, {"title", panel.buttonTitle(PlaySettingsView::playNowButtonTag)}},
              {{"tag", PlaySettingsView::playLaterButtonTag},
               {"title", panel.buttonTitle(PlaySettingsView::playLaterButtonTag)}},
              {{"tag", PlaySettingsView::cancelButtonTag}, {"title", panel.buttonTitle(PlaySettingsView::cancelButtonTag)}}}},
            {"editingRepeatCount", panel.isEditingRepeatCount()}};
}

ApiReply error(int status, const std::string& message) { return {status, {{"error", message}}}; }

}  // namespace

ControlApi::ControlApi(SpringBoardHost& springBoard) : springBoard_(springBoard) {}

ControlApi::~ControlApi() { stop(); }

json ControlApi::state() const {
    Global& global = Global::sharedInstance();
    const auto& listener = springBoard_.listener();
    json flags = {{"isRecording", global.isRecording()},
                  {"isPlaying", global.isPlaying()},
                  {"isReadyToPlay", global.isReadyToPlay()},
                  {"isControlPanelShowing", listener && listener->isControlPanelShowing()},
                  {"isPlaySettingsViewShowing", listener && listener->isPlaySettingsViewShowing()},
                  {"isDecryptScriptAlertViewShowing", listener && listener->isDecryptScriptAlertViewShowing()},
                  {"isAnyAlertViewShowing", listener && listener->isAnyAlertViewShowing()}};
    json current = nullptr;
    if (auto settings = global.currentPlaySettings()) {
        current = {{"scriptTitle", optionalText(settings->scriptTitle())},
                   {"scriptPath", optionalText(settings->scriptPath())},
                   {"playDirectly", settings->playDirectly()},
                   {"repeatTime", settings->repeatTime()},
                   {"repeatInterval", settings->repeatInterval()},
                   {"playSpeed", settings->playSpeed()},
                   {"playType", settings->playType()},
                   {"playNowOrLater", settings->playNowOrLater()}};
    }
    json panels = json::array();
    for (const auto& panel : springBoard_.presenter().panels()) {
        if (auto* control = dynamic_cast<ControlPanelView*>(panel.get())) panels.push_back(controlPanelJson(*control));
        else if (auto* settings = dynamic_cast<PlaySettingsView*>(panel.get())) panels.push_back(playSettingsJson(*settings));
    }
    json alerts = json::array();
    for (const auto& alert : springBoard_.alerts().openAlerts()) {
        alerts.push_back({{"id", alert.id},
                          {"title", alert.request.title},
                          {"message", alert.request.message},
                          {"cancelButton", alert.request.cancelButton},
                          {"otherButtons", alert.request.otherButtons},
                          {"tag", alert.request.tag},
                          {"secureTextInput", alert.request.secureTextInput}});
    }
    const Display::Size screen = platform().display->bounds();
    return {{"flags", flags},
            {"currentPlaySettings", current},
            {"panels", panels},
            {"alerts", alerts},
            {"recordingFile", optionalText(recordingFilePath())},
            {"vibrations", springBoard_.feedback().vibrations()},
            {"screen", {{"width", screen.width}, {"height", screen.height}}}};
}

ApiReply ControlApi::handle(const std::string& method, const std::string& path, const json& body) {
    if (method == "GET" && path == "/api/state") return {200, state()};
    if (method != "POST") return error(405, "use GET /api/state or POST");
    if (!body.is_object()) return error(400, "the body must be a JSON object");

    if (path == "/api/event") {
        auto name = body.find("name");
        if (name == body.end() || !name->is_string() || name->get<std::string>().empty())
            return error(400, "\"name\" must be an event name");
        std::string mode = body.value("mode", std::string(LAEventModeSpringBoard));
        bool handled = springBoard_.registry().sendEvent(*name, mode);
        return {200, {{"handled", handled}, {"state", state()}}};
    }

    if (path.rfind("/api/panel/control/", 0) == 0) {
        auto panel = springBoard_.presenter().top<ControlPanelView>();
        if (!panel) return error(409, "the control panel is not open");
        const std::string action = path.substr(std::string("/api/panel/control/").size());
        if (action == "record") {
            panel->clickOnRecord();
        } else if (action == "cancel") {
            panel->clickOnCancel();
        } else if (action == "select") {
            size_t row = panel->numberOfRows();
            if (auto value = body.find("row"); value != body.end() && value->is_number_unsigned()) {
                row = value->get<size_t>();
            } else if (auto title = body.find("title"); title != body.end() && title->is_string()) {
                const auto& files = panel->files();
                row = std::find(files.begin(), files.end(), title->get<std::string>()) - files.begin();
            } else {
                return error(400, "give \"row\" (a number) or \"title\" (a file name)");
            }
            if (row >= panel->numberOfRows()) return error(404, "no such script in the list");
            panel->didSelectRow(row);
        } else {
            return error(404, "control panel actions: record, cancel, select");
        }
        return {200, {{"state", state()}}};
    }

    if (path.rfind("/api/panel/settings/", 0) == 0) {
        auto panel = springBoard_.presenter().top<PlaySettingsView>();
        if (!panel) return error(409, "the play settings panel is not open");
        const std::string action = path.substr(std::string("/api/panel/settings/").size());
        if (action == "stepper") {
            int tag = body.value("tag", 0);
            std::string direction = body.value("direction", std::string());
            if (tag < PlaySettingsView::repeatCountStepperTag || tag > PlaySettingsView::playSpeedStepperTag)
                return error(400, "\"tag\" must be 501, 502 or 503");
            if (direction == "plus") panel->pressStepperPlus(tag);
            else if (direction == "minus") panel->pressStepperMinus(tag);
            else return error(400, "\"direction\" must be plus or minus");
        } else if (action == "count") {
            auto text = body.find("text");
            if (text == body.end() || !text->is_string()) return error(400, "\"text\" must be a string");
            panel->typeRepeatCount(*text);
        } else if (action == "tap") {
            panel->viewTapped();
        } else if (action == "button") {
            int tag = body.value("tag", 0);
            if (tag != PlaySettingsView::cancelButtonTag && tag != PlaySettingsView::playNowButtonTag &&
                tag != PlaySettingsView::playLaterButtonTag)
                return error(400, "\"tag\" must be 100, 101 or 102");
            panel->buttonClicked(tag);
        } else {
            return error(404, "play settings actions: stepper, count, tap, button");
        }
        return {200, {{"state", state()}}};
    }

    if (path == "/api/alert/button") {
        auto& alerts = springBoard_.alerts();
        if (alerts.openAlerts().empty()) return error(409, "no alert is open");
        int id = body.value("id", alerts.openAlerts().back().id);
        int index = body.value("index", 0);
        std::string text = body.value("text", std::string());
        if (!alerts.pressButton(id, index, text)) return error(404, "no such alert or button");
        return {200, {{"state", state()}}};
    }

    if (path == "/api/input") {
        json lines = body.contains("events") ? body["events"] : json::array({body});
        if (!lines.is_array()) return error(400, "\"events\" must be a list");
        const Display::Size screen = platform().display->bounds();
        std::vector<InputEvent> events;
        for (size_t i = 0; i < lines.size(); ++i) {
            std::string problem;
            auto event = parseInputEvent(lines[i], screen, problem);
            if (!event) return error(400, "event " + std::to_string(i) + ": " + problem);
            events.push_back(std::move(*event));
        }
        // "t" counts from the first event of the request; its ticks from now.
        const std::uint64_t start = platform().clock->absoluteTime() + 24;
        const double first = events.empty() ? 0 : events.front().t;
        int delivered = 0;
        for (InputEvent& input : events) {
            input.event.timestamp = ticksAfter(start, input.t - first);
            delivered += springBoard_.hidSource().deliver(input.event);
        }
        return {200, {{"delivered", delivered}, {"recording", Global::sharedInstance().isRecording()}}};
    }

    return error(404, "unknown path " + path);
}

ApiReply ControlApi::handleOnMainLoop(const std::string& method, const std::string& path, const std::string& body) {
    json parsed = json::object();
    if (!body.empty()) {
        parsed = json::parse(body, nullptr, false);
        if (parsed.is_discarded()) return error(400, "the body is not valid JSON");
    }
    auto reply = std::make_shared<std::promise<ApiReply>>();
    std::future<ApiReply> result = reply->get_future();
    springBoard_.loop().post([this, reply, method, path, parsed] {
        try {
            reply->set_value(handle(method, path, parsed));
        } catch (const std::exception& failure) {
            reply->set_value(error(500, failure.what()));
        }
    });
    if (result.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        return error(503, "the main loop did not answer");
    return result.get();
}

bool ControlApi::start(const std::string& host, int port) {
    stop();
    server_ = std::make_unique<httplib::Server>();
    auto serve = [this](const httplib::Request& request, httplib::Response& response) {
        ApiReply reply = handleOnMainLoop(request.method, request.path, request.body);
        response.status = reply.status;
        response.set_content(reply.body.dump(2) + "\n", "application/json; charset=utf-8");
    };
    server_->Get(R"(/api/.*)", serve);
    server_->Post(R"(/api/.*)", serve);
    if (port == 0) {
        port_ = server_->bind_to_any_port(host);
        if (port_ < 0) return false;
    } else {
        if (!server_->bind_to_port(host, port)) return false;
        port_ = port;
    }
    thread_ = std::thread([server = server_.get()] { server->listen_after_bind(); });
    return true;
}

void ControlApi::stop() {
    if (server_) server_->stop();
    if (thread_.joinable()) thread_.join();
    server_.reset();
}

}  // namespace tactora::host
