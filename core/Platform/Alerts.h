#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tactora {

// One system alert: an optional title, a message, a cancel button (index 0) and further buttons
// (index 1, 2, ...). The callbacks are the alert delegate's; an alert without them has no delegate.
struct AlertRequest {
    std::string title;  // empty: no title
    std::string message;
    std::string cancelButton;
    std::vector<std::string> otherButtons;
    int tag = 0;
    bool secureTextInput = false;  // one obscured text field (the password prompt)

    std::function<void()> didPresent;
    // The button index and, for a secure-text alert, the text of its field.
    std::function<void(int buttonIndex, const std::string& text)> clickedButtonAtIndex;
    std::function<void(int buttonIndex)> didDismissWithButtonIndex;
};

// Shows alerts to the user; all calls come on the main thread.
class Alerts {
public:
    virtual ~Alerts() = default;

    // Shows `alert` without waiting for the user. Default: the alert is not shown and no callback
    // is ever made.
    virtual void showAlert(AlertRequest alert) { (void)alert; }
};

}  // namespace tactora
