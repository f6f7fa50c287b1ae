// Any text as a simulator scene file; a scene that loads must be whole (a start screen, unique
// names, taps and apps leading to screens, images that are files) and is then played, always
// showing one of its own screens. A scene that does not load must say why.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "host/SceneFile.h"

using namespace tactora::host;
namespace fs = std::filesystem;

namespace {

// Images named by the seeds: home.png, app.png and pics/other.png; only their existence matters.
const fs::path& baseDirectory() {
    static const fs::path base = [] {
        char pattern[] = "/tmp/tactora-fuzz-scene-XXXXXX";
        if (!mkdtemp(pattern)) std::abort();
        fs::path dir = pattern;
        fs::create_directories(dir / "pics");
        for (const char* name : {"home.png", "app.png", "pics/other.png"}) std::ofstream(dir / name) << "\x89PNG\r\n\x1a\n";
        return dir;
    }();
    return base;
}

void check(bool condition) { if (!condition) __builtin_trap(); }

bool shows(const SceneFile& scene, const std::string& name) { return scene.findScreen(name) != nullptr; }

void play(const SceneFile& file) {
    SceneState scene(file);
    std::uint64_t version = scene.version();
    auto changed = [&] {
        check(shows(file, scene.currentScreen()));
        check(scene.version() >= version);
        version = scene.version();
    };
    check(scene.currentScreen() == file.start);
    std::uint32_t finger = 0;
    for (const auto& screen : file.screens) {
        if (!scene.show(screen.name)) __builtin_trap();
        changed();
        for (const auto& tap : screen.taps) {
            scene.show(screen.name);
            const double x = tap.x + tap.width / 2, y = tap.y + tap.height / 2;
            // The first region under the finger acts, as the scene lists them.
            const auto hit = std::find_if(screen.taps.begin(), screen.taps.end(), [&](const SceneTap& t) { return t.contains(x, y); });
            scene.fingerDown(++finger, x, y);
            scene.fingerUp(finger, x, y);
            changed();
            check(scene.currentScreen() == (hit != screen.taps.end() ? hit->show : screen.name));
        }
        const bool away = scene.currentScreen() != file.start;
        if (away) scene.fingerDown(++finger, 0, 0);
        scene.home();
        changed();
        check(scene.currentScreen() == file.start);
        if (away) scene.fingerUp(finger, 0, 0);  // the screen changed under the finger: nothing happens
        check(scene.currentScreen() == file.start);
    }
    for (const auto& app : file.apps) {
        const bool wasInFront = scene.isForeground(app.bundleId);
        scene.launch(app.bundleId);
        changed();
        check(wasInFront || scene.currentScreen() == app.screen);
        scene.terminate(app.bundleId);
        changed();
        check(!scene.isForeground(app.bundleId) || scene.currentScreen() == file.start);
    }
    scene.launch("");
    scene.terminate("");
    check(!scene.isForeground(""));
    changed();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    auto scene = parseScene(text, baseDirectory().string(), error);
    if (!scene) {
        check(!error.empty());
        return 0;
    }
    check(error.empty());
    check(!scene->screens.empty() && shows(*scene, scene->start));
    std::set<std::string> names, bundles;
    for (const auto& screen : scene->screens) {
        check(!screen.name.empty() && names.insert(screen.name).second);
        check(fs::path(screen.image).is_absolute() && fs::is_regular_file(screen.image));
        for (const auto& tap : screen.taps) check(tap.width > 0 && tap.height > 0 && shows(*scene, tap.show));
        check(screen.app.empty() || scene->findApp(screen.app));
    }
    for (const auto& app : scene->apps) check(!app.bundleId.empty() && bundles.insert(app.bundleId).second && shows(*scene, app.screen));
    play(*scene);
    return 0;
}
