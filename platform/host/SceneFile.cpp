#include "host/SceneFile.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

namespace tactora::host {

namespace fs = std::filesystem;
using nlohmann::json;

const SceneScreen* SceneFile::findScreen(const std::string& name) const {
    for (const auto& screen : screens)
        if (screen.name == name) return &screen;
    return nullptr;
}

const SceneApp* SceneFile::findApp(const std::string& bundleId) const {
    for (const auto& app : apps)
        if (app.bundleId == bundleId) return &app;
    return nullptr;
}

namespace {

// A field error that names where in the file it is.
struct SceneError {
    std::string message;
};

std::string stringField(const json& object, const char* key, const std::string& where, bool required) {
    auto it = object.find(key);
    if (it == object.end()) {
        if (required) throw SceneError{where + "." + key + " is missing"};
        return {};
    }
    if (!it->is_string()) throw SceneError{where + "." + key + " must be a string"};
    return it->get<std::string>();
}

double numberField(const json& object, const char* key, const std::string& where) {
    auto it = object.find(key);
    if (it == object.end()) throw SceneError{where + "." + key + " is missing"};
    if (!it->is_number()) throw SceneError{where + "." + key + " must be a number"};
    return it->get<double>();
}

const json& arrayField(const json& object, const char* key, const std::string& where, bool required) {
    static const json empty = json::array();
    auto it = object.find(key);
    if (it == object.end()) {
        if (required) throw SceneError{where + "." + key + " is missing"};
        return empty;
    }
    if (!it->is_array()) throw SceneError{where + "." + key + " must be an array"};
    return *it;
}

SceneFile parse(const json& root, const fs::path& base) {
    if (!root.is_object()) throw SceneError{"the scene must be a JSON object"};
    SceneFile scene;
    scene.device = stringField(root, "device", "scene", false);

    const json& screens = arrayField(root, "screens", "scene", true);
    if (screens.empty()) throw SceneError{"scene.screens is empty"};
    std::set<std::string> names;
    for (std::size_t i = 0; i < screens.size(); ++i) {
        const std::string where = "scene.screens[" + std::to_string(i) + "]";
        const json& item = screens[i];
        if (!item.is_object()) throw SceneError{where + " must be an object"};
        SceneScreen screen;
        screen.name = stringField(item, "name", where, true);
        if (screen.name.empty() || !names.insert(screen.name).second)
            throw SceneError{where + ".name \"" + screen.name + "\" is empty or used twice"};
        fs::path image = stringField(item, "image", where, true);
        if (image.is_relative()) image = base / image;
        if (!fs::is_regular_file(image)) throw SceneError{where + ".image " + image.string() + " is not a file"};
        screen.image = image.lexically_normal().string();
        screen.app = stringField(item, "app", where, false);
        const json& taps = arrayField(item, "taps", where, false);
        for (std::size_t t = 0; t < taps.size(); ++t) {
            const std::string tapWhere = where + ".taps[" + std::to_string(t) + "]";
            if (!taps[t].is_object()) throw SceneError{tapWhere + " must be an object"};
            SceneTap tap;
            tap.x = numberField(taps[t], "x", tapWhere);
            tap.y = numberField(taps[t], "y", tapWhere);
            tap.width = numberField(taps[t], "width", tapWhere);
            tap.height = numberField(taps[t], "height", tapWhere);
            if (tap.width <= 0 || tap.height <= 0) throw SceneError{tapWhere + " has no area"};
            tap.show = stringField(taps[t], "show", tapWhere, true);
            screen.taps.push_back(tap);
        }
        scene.screens.push_back(std::move(screen));
    }

    const json& apps = arrayField(root, "apps", "scene", false);
    for (std::size_t i = 0; i < apps.size(); ++i) {
        const std::string where = "scene.apps[" + std::to_string(i) + "]";
        if (!apps[i].is_object()) throw SceneError{where + " must be an object"};
        SceneApp app;
        app.bundleId = stringField(apps[i], "bundleId", where, true);
        app.name = stringField(apps[i], "name", where, false);
        app.screen = stringField(apps[i], "screen", where, true);
        if (app.bundleId.empty() || scene.findApp(app.bundleId))
            throw SceneError{where + ".bundleId \"" + app.bundleId + "\" is empty or used twice"};
        scene.apps.push_back(std::move(app));
    }

    scene.start = stringField(root, "start", "scene", false);
    if (scene.start.empty()) scene.start = scene.screens.front().name;
    if (!scene.findScreen(scene.start)) throw SceneError{"scene.start names no screen: " + scene.start};
    // Every reference must lead somewhere, so a tap never strands a running script.
    for (const auto& screen : scene.screens) {
        for (const auto& tap : screen.taps)
            if (!scene.findScreen(tap.show))
                throw SceneError{"a tap on screen \"" + screen.name + "\" shows no screen: " + tap.show};
        if (!screen.app.empty() && !scene.findApp(screen.app))
            throw SceneError{"screen \"" + screen.name + "\" belongs to an app not in scene.apps: " + screen.app};
    }
    for (const auto& app : scene.apps)
        if (!scene.findScreen(app.screen))
            throw SceneError{"app \"" + app.bundleId + "\" opens no screen: " + app.screen};
    return scene;
}

}  // namespace

std::optional<SceneFile> parseScene(const std::string& text, const std::string& baseDirectory,
                                    std::string& error) {
    json root = json::parse(text, nullptr, false);
    if (root.is_discarded()) {
        error = "the scene is not valid JSON";
        return std::nullopt;
    }
    try {
        return parse(root, baseDirectory);
    } catch (const SceneError& failure) {
        error = failure.message;
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    return std::nullopt;
}

std::optional<SceneFile> loadScene(const std::string& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path;
        return std::nullopt;
    }
    std::stringstream text;
    text << in.rdbuf();
    auto scene = parseScene(text.str(), fs::absolute(path).parent_path().string(), error);
    if (!scene) error = path + ": " + error;
    return scene;
}

SceneFile stillScene(const std::string& imagePath) {
    SceneFile scene;
    scene.start = "screen";
    scene.screens.push_back({"screen", fs::absolute(imagePath).lexically_normal().string(), "", {}});
    return scene;
}

std::optional<SceneFile> loadSceneOrImage(const std::string& path, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path;
        return std::nullopt;
    }
    char magic[8] = {};
    in.read(magic, sizeof magic);
    if (in.gcount() == 8 && std::string(magic, 8) == "\x89PNG\r\n\x1a\n") return stillScene(path);
    return loadScene(path, error);
}

// --- the live scene ---------------------------------------------------------------------------

SceneState::SceneState(SceneFile scene) : scene_(std::move(scene)) {
    current_ = scene_.findScreen(scene_.start);
    if (!current_) current_ = &scene_.screens.front();
}

std::string SceneState::currentScreen() const {
    std::lock_guard lock(mutex_);
    return current_->name;
}

std::string SceneState::currentImage() const {
    std::lock_guard lock(mutex_);
    return current_->image;
}

std::uint64_t SceneState::version() const {
    std::lock_guard lock(mutex_);
    return version_;
}

void SceneState::setOnChange(std::function<void(const std::string&)> onChange) {
    std::lock_guard lock(mutex_);
    onChange_ = std::move(onChange);
}

void SceneState::showLocked(const SceneScreen& screen, std::unique_lock<std::mutex>& lock) {
    current_ = &screen;
    ++version_;
    // Fingers still down belong to the old screen's regions; a later up there must not act.
    pressed_.clear();
    auto notify = onChange_;
    std::string name = screen.name;
    lock.unlock();
    if (notify) notify(name);
}

void SceneState::fingerDown(std::uint32_t finger, double x, double y) {
    std::lock_guard lock(mutex_);
    const SceneTap* hit = nullptr;
    for (const auto& tap : current_->taps)
        if (tap.contains(x, y)) {
            hit = &tap;
            break;
        }
    pressed_[finger] = hit;
}

void SceneState::fingerUp(std::uint32_t finger, double x, double y) {
    std::unique_lock lock(mutex_);
    auto it = pressed_.find(finger);
    if (it == pressed_.end()) return;
    const SceneTap* tap = it->second;
    pressed_.erase(it);
    if (!tap || !tap->contains(x, y)) return;
    showLocked(*scene_.findScreen(tap->show), lock);
}

void SceneState::home() {
    std::unique_lock lock(mutex_);
    if (current_->name == scene_.start) return;
    showLocked(*scene_.findScreen(scene_.start), lock);
}

bool SceneState::show(const std::string& name) {
    std::unique_lock lock(mutex_);
    const SceneScreen* screen = scene_.findScreen(name);
    if (!screen) return false;
    if (screen != current_) showLocked(*screen, lock);
    return true;
}

std::string SceneState::appOf(const SceneScreen& screen) const {
    if (!screen.app.empty()) return screen.app;
    for (const auto& app : scene_.apps)
        if (app.screen == screen.name) return app.bundleId;
    return {};
}

void SceneState::launch(const std::string& bundleId) {
    std::unique_lock lock(mutex_);
    const SceneApp* app = scene_.findApp(bundleId);
    if (!app || appOf(*current_) == bundleId) return;
    showLocked(*scene_.findScreen(app->screen), lock);
}

void SceneState::terminate(const std::string& bundleId) {
    std::unique_lock lock(mutex_);
    if (bundleId.empty() || appOf(*current_) != bundleId) return;
    showLocked(*scene_.findScreen(scene_.start), lock);
}

bool SceneState::isForeground(const std::string& bundleId) const {
    std::lock_guard lock(mutex_);
    return !bundleId.empty() && appOf(*current_) == bundleId;
}

}  // namespace tactora::host
