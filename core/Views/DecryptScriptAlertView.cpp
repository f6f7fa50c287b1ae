#include "Views/DecryptScriptAlertView.h"

#include "Managers/Encrypt.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Platform.h"
#include "Platform/UserDefaults.h"
#include "Views/Localization.h"

namespace tactora {

namespace {

// Blanks and line ends, as the platform's whitespace-and-newline set has them in ASCII.
std::string trimmed(const std::string& text) {
    const char* blanks = " \t\n\r\v\f";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

}  // namespace

std::string scriptPasswordKey(const std::string& scriptPath) { return "script.password." + scriptPath; }

DecryptScriptAlertView::DecryptScriptAlertView(std::shared_ptr<DecryptScriptAlertViewDelegate> delegate)
    : delegate_(std::move(delegate)) {}

void DecryptScriptAlertView::show() {
    AlertRequest alert;
    alert.title = titleText();
    alert.message = messageText();
    alert.cancelButton = cancelButtonTitle();
    alert.otherButtons = {confirmButtonTitle()};
    alert.secureTextInput = true;
    std::weak_ptr<DecryptScriptAlertView> weak = weak_from_this();
    alert.clickedButtonAtIndex = [weak](int index, const std::string& text) {
        if (auto self = weak.lock()) self->alertViewClickedButtonAtIndex(index, text);
    };
    alert.didDismissWithButtonIndex = [weak](int index) {
        if (auto self = weak.lock()) self->alertViewDidDismissWithButtonIndex(index);
    };
    platform().alerts->showAlert(std::move(alert));
}

void DecryptScriptAlertView::alertViewClickedButtonAtIndex(int buttonIndex, const std::string& text) {
    if (buttonIndex != confirmButtonIndex) return;  // Cancel: the alert closes by itself
    auto self = shared_from_this();
    std::string password = trimmed(text);
    auto settings = Global::sharedInstance().currentPlaySettings();
    std::string path = settings ? settings->scriptPath().value_or("") : "";
    std::optional<std::string> content = Encrypt::decryptScript(path, password);
    if (content) {
        platform().userDefaults->setObject(scriptPasswordKey(path), password);
        if (settings) settings->setScriptContent(std::move(content));
        if (auto delegate = delegate_.lock()) delegate->decryptScriptAlertViewDidConfirmToPlay(*this);
    } else {
        AlertRequest wrong;
        wrong.message = localizedText("Wrong password!");
        wrong.cancelButton = localizedText("OK");
        platform().alerts->showAlert(std::move(wrong));
    }
    // The prompt goes at once, whatever the outcome.
    alertViewDidDismissWithButtonIndex(-1);
}

void DecryptScriptAlertView::alertViewDidDismissWithButtonIndex(int) {
    // The platform reports the close of the alert after the prompt already closed it itself.
    if (dismissed_) return;
    dismissed_ = true;
    auto self = shared_from_this();
    if (auto delegate = delegate_.lock()) delegate->decryptScriptAlertViewDidDismiss(*this);
}

std::string DecryptScriptAlertView::titleText() const { return localizedText("Tactora"); }
std::string DecryptScriptAlertView::messageText() const { return localizedText("Dencrypt Password"); }
std::string DecryptScriptAlertView::cancelButtonTitle() const { return localizedText("Cancel"); }
std::string DecryptScriptAlertView::confirmButtonTitle() const { return localizedText("Confirm"); }

}  // namespace tactora
