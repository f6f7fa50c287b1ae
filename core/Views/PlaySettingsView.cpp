#include "Views/PlaySettingsView.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>

#include "Models/Global.h"
#include "Platform/Platform.h"
#include "Views/Localization.h"

namespace tactora {

namespace {

std::string formatValue(const char* pattern, double value) {
    char buffer[64];
    int length = std::snprintf(buffer, sizeof buffer, pattern, value);
    return std::string(buffer, length < 0 ? 0 : std::min<size_t>(length, sizeof buffer - 1));
}

}  // namespace

void Stepper::setValue(double newValue) { value = std::clamp(newValue, minimumValue, maximumValue); }

long integerValueOfText(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    long value = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        int digit = text[i] - '0';
        // Too many digits saturate, as the platform's conversion does.
        if (value > (LONG_MAX - digit) / 10) return negative ? LONG_MIN : LONG_MAX;
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

PlaySettingsView::PlaySettingsView(std::shared_ptr<PlaySettingsViewDelegate> delegate)
    : delegate_(std::move(delegate)) {}

void PlaySettingsView::show() { platform().presenter->present(shared_from_this()); }

Stepper* PlaySettingsView::stepperWithTag(int tag) {
    switch (tag) {
        case repeatCountStepperTag: return &repeatCountStepper_;
        case repeatIntervalStepperTag: return &repeatIntervalStepper_;
        case playSpeedStepperTag: return &playSpeedStepper_;
        default: return nullptr;
    }
}

void PlaySettingsView::stepperChanged(int tag) {
    switch (tag) {
        case repeatCountStepperTag:
            repeatCountText_ = formatValue("%.0f", repeatCountStepper_.value);
            break;
        case repeatIntervalStepperTag:
            repeatIntervalValueText_ = formatValue("%.0fs", repeatIntervalStepper_.value);
            break;
        case playSpeedStepperTag:
            playSpeedValueText_ = formatValue("%.1fx", playSpeedStepper_.value);
            break;
        default:
            break;
    }
}

void PlaySettingsView::repeatCountTextFieldEditingChanged() {
    repeatCountStepper_.setValue(static_cast<double>(integerValueOfText(repeatCountText_)));
}

void PlaySettingsView::buttonClicked(int tag) {
    if (dismissed_) return;
    if (tag != cancelButtonTag) {
        if (auto settings = Global::sharedInstance().currentPlaySettings()) {
            settings->setRepeatInterval(static_cast<long>(repeatIntervalStepper_.value));
            // The text, not the stepper: a count typed beyond the stepper's range stays as typed.
            settings->setRepeatTime(integerValueOfText(repeatCountText_));
            settings->setPlaySpeed(static_cast<float>(playSpeedStepper_.value));
            settings->setPlayNowOrLater(tag == playNowButtonTag ? 0 : 1);
        }
        if (auto delegate = delegate_.lock()) delegate->playSettingsViewDidConfirmToPlay(*this);
    }
    dismissAnimated(true);
}

void PlaySettingsView::viewTapped() { editingRepeatCount_ = false; }

void PlaySettingsView::dismissAnimated(bool animated) {
    if (dismissed_) return;
    dismissed_ = true;
    auto self = shared_from_this();
    platform().presenter->dismiss(*this, animated);
    if (auto delegate = delegate_.lock()) delegate->playSettingsViewDidDismiss(*this);
}

void PlaySettingsView::pressStepperPlus(int tag) {
    if (Stepper* stepper = stepperWithTag(tag)) {
        stepper->increment();
        stepperChanged(tag);
    }
}

void PlaySettingsView::pressStepperMinus(int tag) {
    if (Stepper* stepper = stepperWithTag(tag)) {
        stepper->decrement();
        stepperChanged(tag);
    }
}

void PlaySettingsView::typeRepeatCount(std::string text) {
    editingRepeatCount_ = true;
    repeatCountText_ = std::move(text);
    repeatCountTextFieldEditingChanged();
}

std::string PlaySettingsView::titleText() const { return localizedText("Tactora"); }
std::string PlaySettingsView::messageText() const { return localizedText("Loop playing with"); }
std::string PlaySettingsView::repeatCountLabelText() const { return localizedText("Times") + ":"; }
std::string PlaySettingsView::repeatIntervalLabelText() const { return localizedText("Interval") + ":"; }
std::string PlaySettingsView::playSpeedLabelText() const { return localizedText("Speed") + ":"; }

std::string PlaySettingsView::buttonTitle(int tag) const {
    switch (tag) {
        case playNowButtonTag: return localizedText("Play Now");
        case playLaterButtonTag: return localizedText("Play Later");
        case cancelButtonTag: return localizedText("Cancel");
        default: return {};
    }
}

}  // namespace tactora
