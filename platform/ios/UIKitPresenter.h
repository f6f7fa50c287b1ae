#pragma once

#include "Platform/Presenter.h"

namespace tactora::ios {

// The system's panels drawn with UIKit: each in a window of its own above everything else, a
// dimmed backdrop and a rounded content view laid out by the panel model's constraints. Every
// touch goes back to the model; the views only show what the model says.
class UIKitPresenter final : public Presenter {
public:
    void present(std::shared_ptr<PresentedPanel> panel) override;
    void dismiss(PresentedPanel& panel, bool animated) override;
};

}  // namespace tactora::ios
