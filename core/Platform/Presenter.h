#pragma once

#include <memory>
#include <string_view>

namespace tactora {

// A pop-up panel of the system as the presenter sees it. The panel model holds every rule and
// every text; the presenter only draws it and feeds the user's actions back into it.
class PresentedPanel {
public:
    virtual ~PresentedPanel() = default;
    // "ControlPanelView", "PlaySettingsView": which model this is.
    virtual std::string_view panelName() const = 0;
};

// Shows the system's modal panels (a modal container in SpringBoard on the device; the console,
// the control API and the browser on the host). All calls come on the main thread.
class Presenter {
public:
    virtual ~Presenter() = default;

    // Puts `panel` on screen until dismiss. Default: not shown; the user can never act on it.
    virtual void present(std::shared_ptr<PresentedPanel> panel) { (void)panel; }

    // Takes `panel` off screen (animated or at once). Default: nothing.
    virtual void dismiss(PresentedPanel& panel, bool animated) {
        (void)panel;
        (void)animated;
    }
};

}  // namespace tactora
