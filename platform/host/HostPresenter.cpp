#include "host/HostPresenter.h"

#include <algorithm>

namespace tactora::host {

void HostPresenter::present(std::shared_ptr<PresentedPanel> panel) {
    if (!panel) return;
    panels_.push_back(panel);
    if (onPresent) onPresent(*panel);
}

void HostPresenter::dismiss(PresentedPanel& panel, bool) {
    std::erase_if(panels_, [&](const auto& shown) { return shown.get() == &panel; });
}

}  // namespace tactora::host
