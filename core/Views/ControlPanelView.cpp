#include "Views/ControlPanelView.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "Control/ActivatorManager.h"
#include "Managers/FileManager.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Views/Localization.h"

namespace tactora {

namespace fs = std::filesystem;

ControlPanelView::ControlPanelView(ControlPanelViewDelegate* delegate) : delegate_(delegate) { loadFiles(); }

void ControlPanelView::show() { platform().presenter->present(shared_from_this()); }

void ControlPanelView::loadFiles() {
    documentsDirectory_ = platform().paths->map(devicepaths::scriptsDirectory);
    activatorTriggersInDBArray_ = ActivatorManager::getActivatorTriggerAll();
    std::vector<std::string> names;
    std::error_code error;
    // The file system's own order: the list is not sorted.
    for (fs::directory_iterator it(documentsDirectory_, error), end; !error && it != end; it.increment(error)) {
        std::string name = it->path().filename().string();
        if (fileIsDirectory(name)) continue;
        if (FileManager::isScriptName(name)) names.push_back(std::move(name));
    }
    files_ = std::move(names);
}

void ControlPanelView::dismissAnimated(bool animated) {
    if (dismissed_) return;
    dismissed_ = true;
    // The delegate usually lets go of the panel when it hears that it closed.
    auto self = shared_from_this();
    platform().presenter->dismiss(*this, animated);
    if (delegate_) delegate_->controlPanelViewDidDismiss(*this);
}

void ControlPanelView::clickOnRecord() {
    if (dismissed_) return;
    if (delegate_) delegate_->controlPanelViewDidClickOnRecord(*this);
    dismissAnimated(true);
}

void ControlPanelView::clickOnCancel() { dismissAnimated(true); }

ControlPanelView::Cell ControlPanelView::cellForRow(size_t row) const {
    Cell cell;
    if (row >= files_.size()) return cell;
    cell.text = files_[row];
    if (isScriptAssignedActivatorTrigger(cell.text)) cell.activatorAssignedLabel = assignedMarker;
    if (playSettingsManager_.ifPlayDirectly(cell.text)) cell.playSettingsLabel = playDirectlyMarker;
    return cell;
}

void ControlPanelView::didSelectRow(size_t row) {
    if (dismissed_ || row >= files_.size()) return;
    // The path goes out before the panel closes, so the next panel may open while this one goes.
    if (delegate_) delegate_->controlPanelViewDidSelectScript(*this, pathForFile(files_[row]));
    dismissAnimated(true);
}

std::string ControlPanelView::pathForFile(const std::string& name) const {
    return (fs::path(documentsDirectory_) / name).string();
}

bool ControlPanelView::fileIsDirectory(const std::string& name) const {
    std::error_code error;
    return fs::is_directory(pathForFile(name), error);
}

bool ControlPanelView::isScriptAssignedActivatorTrigger(const std::string& scriptTitle) const {
    return std::any_of(activatorTriggersInDBArray_.begin(), activatorTriggersInDBArray_.end(),
                       [&](const auto& trigger) { return trigger->scriptTitle() == scriptTitle; });
}

std::string ControlPanelView::titleText() const { return localizedText("Tactora"); }
std::string ControlPanelView::messageText() const { return localizedText("Click to record or select to play"); }
std::string ControlPanelView::recordButtonTitle() const { return localizedText("Record"); }
std::string ControlPanelView::cancelButtonTitle() const { return localizedText("Cancel"); }

double ControlPanelView::contentHeight(double width, double height) {
    return Layout::contentHeightOfShorterScreenSide * std::min(width, height);
}

}  // namespace tactora
