// Scenes for the simulated device: a set of screens (PNG files), tap regions that switch from one
// screen to another, and apps that own screens. A script that finds something, taps it and checks
// the result sees the screen change as it would on the phone.
//
//   SceneFile   the parsed file (loadScene, parseScene, stillScene)
//   SceneState  the live scene: the screen shown now, taps, and the apps port that follows it
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Apps.h"

namespace tactora::host {

// A rectangle in screen points; a tap that goes down and comes up inside it shows `show` and,
// when `app` is set, makes that app the foreground app.
struct SceneTap {
    double x = 0, y = 0, width = 0, height = 0;
    std::string show;
    bool contains(double px, double py) const {
        return px >= x && py >= y && px < x + width && py < y + height;
    }
};

struct SceneScreen {
    std::string name;
    std::string image;  // absolute path of the PNG file
    std::string app;    // bundle id of the app this screen belongs to, or empty (home screen)
    std::vector<SceneTap> taps;
};

struct SceneApp {
    std::string bundleId;
    std::string name;
    std::string screen;  // the screen shown when the app is launched
};

struct SceneFile {
    std::string device;  // device profile name, or empty for the command line's choice
    std::string start;   // the first screen shown, and the screen shown after home or appKill
    std::vector<SceneScreen> screens;
    std::vector<SceneApp> apps;

    const SceneScreen* findScreen(const std::string& name) const;
    const SceneApp* findApp(const std::string& bundleId) const;
};

// Reads a scene from JSON text; relative image paths are taken from `baseDirectory`. On failure
// returns none and says why in `error` (with the JSON path of the offending field).
std::optional<SceneFile> parseScene(const std::string& text, const std::string& baseDirectory,
                                    std::string& error);
// Reads the scene file at `path` (images relative to its directory).
std::optional<SceneFile> loadScene(const std::string& path, std::string& error);
// A scene of one screen showing the PNG at `imagePath`.
SceneFile stillScene(const std::string& imagePath);
// A scene file or a PNG file, told apart by the file's first bytes.
std::optional<SceneFile> loadSceneOrImage(const std::string& path, std::string& error);

// The scene as it runs. Touches arrive from the digitizer side (any thread), app requests from
// the script thread and home presses from the main thread; every method is safe from any thread.
class SceneState final : public Apps {
public:
    explicit SceneState(SceneFile scene);

    const SceneFile& scene() const { return scene_; }
    std::string currentScreen() const;
    // The PNG file of the screen shown now.
    std::string currentImage() const;
    // Grows by one on every change of screen.
    std::uint64_t version() const;

    // A finger in screen points. A tap region acts on the up when the finger went down inside it.
    void fingerDown(std::uint32_t finger, double x, double y);
    void fingerUp(std::uint32_t finger, double x, double y);
    // The home button: back to the start screen.
    void home();
    // Shows the named screen; false when there is no such screen.
    bool show(const std::string& screen);

    // Apps named in the scene.
    void launch(const std::string& bundleId) override;
    void terminate(const std::string& bundleId) override;
    bool isForeground(const std::string& bundleId) const override;

    // Called after every change of screen, outside the lock, with the new screen's name.
    void setOnChange(std::function<void(const std::string&)> onChange);

private:
    void showLocked(const SceneScreen& screen, std::unique_lock<std::mutex>& lock);
    std::string appOf(const SceneScreen& screen) const;

    const SceneFile scene_;
    mutable std::mutex mutex_;
    const SceneScreen* current_;
    std::uint64_t version_ = 1;
    std::map<std::uint32_t, const SceneTap*> pressed_;  // finger -> region it went down in
    std::function<void(const std::string&)> onChange_;
};

}  // namespace tactora::host
