#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Presenter.h"

namespace tactora {

class PlaySettingsView;

class PlaySettingsViewDelegate {
public:
    virtual ~PlaySettingsViewDelegate() = default;
    // Play Now or Play Later was pressed; the current play settings hold the choice.
    virtual void playSettingsViewDidConfirmToPlay(PlaySettingsView& panel) = 0;
    // The panel closed (after the confirmation, or alone after Cancel).
    virtual void playSettingsViewDidDismiss(PlaySettingsView& panel) = 0;
};

// A stepper as UIStepper keeps it: the value moves by `step` and stays within its range.
struct Stepper {
    int tag = 0;
    double value = 0;
    double minimumValue = 0;
    double maximumValue = 0;
    double stepValue = 1;

    void setValue(double newValue);
    void increment() { setValue(value + stepValue); }
    void decrement() { setValue(value - stepValue); }
};

// NSString's integerValue: leading blanks, a sign and digits; anything else ends the number, and
// text without a number gives 0.
long integerValueOfText(std::string_view text);

// Asks how to play the chosen script: times, interval, speed, now or later. It writes the choice
// into the current play settings of Global and tells its delegate.
class PlaySettingsView : public PresentedPanel, public std::enable_shared_from_this<PlaySettingsView> {
public:
    static constexpr int repeatCountStepperTag = 501;
    static constexpr int repeatIntervalStepperTag = 502;
    static constexpr int playSpeedStepperTag = 503;
    static constexpr int cancelButtonTag = 100;
    static constexpr int playNowButtonTag = 101;
    static constexpr int playLaterButtonTag = 102;

    struct Layout {
        static constexpr double contentWidth = 280;
        static constexpr double contentHeight = 237;
        static constexpr int transitionStyle = 4;
        static constexpr double alpha = 0.96;
        static constexpr double cornerRadius = 4;
        static constexpr double repeatCountTextFieldWidth = 60;
        static constexpr double titleFontSize = 18;        // bold, black, centred
        static constexpr double messageFontSize = 10;      // dark grey, centred
        static constexpr double settingFontSize = 14;      // the three rows' labels and values
        static constexpr double playButtonFontSize = 16;   // Play Now (primary), Play Later (info)
        static constexpr double cancelButtonFontSize = 14;
        static constexpr std::array<std::string_view, 14> viewNames = {
            "titleLabel", "messageLabel", "repeatCountLabel", "repeatCountTextField", "repeatCountStepper",
            "repeatIntervalLabel", "repeatIntervalValueLabel", "repeatIntervalStepper", "playSpeedLabel",
            "playSpeedValueLabel", "playSpeedStepper", "playNowButton", "playLaterButton", "cancelButton"};
        static constexpr std::array<std::string_view, 11> constraints = {
            "H:|-10-[titleLabel]-10-|",
            "H:|-10-[messageLabel]-10-|",
            "H:|-10-[repeatCountLabel]-8-[repeatCountTextField(60)]-8-[repeatCountStepper]-10-|",
            "H:|-10-[repeatIntervalLabel]-14-[repeatIntervalValueLabel(54)]-8-[repeatIntervalStepper]-10-|",
            "H:|-10-[playSpeedLabel]-14-[playSpeedValueLabel(54)]-8-[playSpeedStepper]-10-|",
            "H:|-10-[playNowButton(125)]-10-[playLaterButton(125)]-10-|",
            "H:|-10-[cancelButton]-10-|",
            "V:|-0-[titleLabel]-3-[messageLabel]-10-[repeatCountLabel(30)]-5-[repeatIntervalLabel(30)]-5-"
            "[playSpeedLabel(30)]-10-[playNowButton(40)]-10-[cancelButton(30)]-0-|",
            "V:[playSpeedLabel]-10-[playLaterButton(40)]",
            "V:[messageLabel]-10-[repeatCountTextField(30)]-5-[repeatIntervalValueLabel(30)]-5-[playSpeedValueLabel(30)]",
            "V:[messageLabel]-10-[repeatCountStepper(30)]-5-[repeatIntervalStepper(30)]-5-[playSpeedStepper(30)]",
        };
    };

    explicit PlaySettingsView(std::shared_ptr<PlaySettingsViewDelegate> delegate);
    static std::shared_ptr<PlaySettingsView> make(std::shared_ptr<PlaySettingsViewDelegate> delegate) {
        return std::make_shared<PlaySettingsView>(std::move(delegate));
    }
    std::string_view panelName() const override { return "PlaySettingsView"; }

    void show();

    // The control actions.
    void stepperChanged(int tag);
    void repeatCountTextFieldEditingChanged();
    void buttonClicked(int tag);
    void viewTapped();
    void dismissAnimated(bool animated);

    // What a user does: each changes the control and sends its action.
    void pressStepperPlus(int tag);
    void pressStepperMinus(int tag);
    void typeRepeatCount(std::string text);

    // Controls and labels as shown.
    const std::string& repeatCountText() const { return repeatCountText_; }
    const std::string& repeatIntervalValueText() const { return repeatIntervalValueText_; }
    const std::string& playSpeedValueText() const { return playSpeedValueText_; }
    const Stepper& repeatCountStepper() const { return repeatCountStepper_; }
    const Stepper& repeatIntervalStepper() const { return repeatIntervalStepper_; }
    const Stepper& playSpeedStepper() const { return playSpeedStepper_; }
    bool isEditingRepeatCount() const { return editingRepeatCount_; }
    void beginEditingRepeatCount() { editingRepeatCount_ = true; }

    std::string titleText() const;
    std::string messageText() const;
    std::string repeatCountLabelText() const;
    std::string repeatIntervalLabelText() const;
    std::string playSpeedLabelText() const;
    std::string buttonTitle(int tag) const;

    std::shared_ptr<PlaySettingsViewDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(std::shared_ptr<PlaySettingsViewDelegate> delegate) { delegate_ = std::move(delegate); }
    bool isDismissed() const { return dismissed_; }

private:
    Stepper* stepperWithTag(int tag);

    std::string repeatCountText_ = "1";
    Stepper repeatCountStepper_{repeatCountStepperTag, 1, 0, 1000000, 1};
    std::string repeatIntervalValueText_ = "1s";
    Stepper repeatIntervalStepper_{repeatIntervalStepperTag, 1, 0, 1000000, 1};
    std::string playSpeedValueText_ = "1x";
    Stepper playSpeedStepper_{playSpeedStepperTag, 1.0, 0.1, 1.9, 0.1};
    // Weak, like any delegate: the delegate usually owns the panel.
    std::weak_ptr<PlaySettingsViewDelegate> delegate_;
    bool editingRepeatCount_ = false;
    bool dismissed_ = false;
};

}  // namespace tactora
