// The example scene that the demo plays on: a home screen with a grid of app icons, one of which
// opens the "Demo" app, whose screen has one green button. Every picture is drawn here, so the
// demo needs nothing from outside the project.
#pragma once

#include <cstdint>
#include <string>

namespace tactora::host {

// Facts about the drawn scene that the demo script and the tests rely on (screen points of the
// iPhone SE profile, 320 x 568 at scale 2).
namespace demoscene {
inline constexpr const char* appBundleId = "com.tactora.demo";
inline constexpr std::uint32_t buttonColor = 0x1FA85A;  // found by findColor; used nowhere else
inline constexpr int iconX = 94, iconY = 112, iconSize = 60;          // the Demo icon
inline constexpr int buttonX = 60, buttonY = 300, buttonWidth = 200, buttonHeight = 56;
// The template that findImage looks for: the icon's centre, in pixels of the 2x screen.
inline constexpr int templateInset = 16;
}  // namespace demoscene

// Writes home.png, app.png, done.png, icon.png (the findImage template) and scene.json into
// `directory` (created when missing). False, with `error`, when a file cannot be written.
bool writeDemoScene(const std::string& directory, std::string& error);

}  // namespace tactora::host
