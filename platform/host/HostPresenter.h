#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "Platform/Presenter.h"

namespace tactora::host {

// Keeps the panels on screen in the order they opened; the console, the control API and the
// tests find them here and act on the models. Main loop only.
class HostPresenter final : public Presenter {
public:
    void present(std::shared_ptr<PresentedPanel> panel) override;
    void dismiss(PresentedPanel& panel, bool animated) override;

    const std::vector<std::shared_ptr<PresentedPanel>>& panels() const { return panels_; }
    // The newest panel of type T, or null.
    template <class T>
    std::shared_ptr<T> top() const {
        for (auto it = panels_.rbegin(); it != panels_.rend(); ++it)
            if (auto panel = std::dynamic_pointer_cast<T>(*it)) return panel;
        return nullptr;
    }

    std::function<void(PresentedPanel&)> onPresent;

private:
    std::vector<std::shared_ptr<PresentedPanel>> panels_;
};

}  // namespace tactora::host
