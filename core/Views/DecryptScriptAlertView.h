#pragma once

#include <memory>
#include <string>

namespace tactora {

class DecryptScriptAlertView;

class DecryptScriptAlertViewDelegate {
public:
    virtual ~DecryptScriptAlertViewDelegate() = default;
    // The password was right: the current play settings hold the decrypted text.
    virtual void decryptScriptAlertViewDidConfirmToPlay(DecryptScriptAlertView& prompt) = 0;
    // The prompt is gone (after the confirmation, or alone after Cancel or a wrong password).
    virtual void decryptScriptAlertViewDidDismiss(DecryptScriptAlertView& prompt) = 0;
};

// The user-defaults key of a remembered password: "script.password." + the script's full path.
std::string scriptPasswordKey(const std::string& scriptPath);

// Asks for the password of the current encrypted script, an alert with one obscured text field.
// A right password is remembered and the decrypted text handed to the delegate.
class DecryptScriptAlertView : public std::enable_shared_from_this<DecryptScriptAlertView> {
public:
    static constexpr int confirmButtonIndex = 1;

    explicit DecryptScriptAlertView(std::shared_ptr<DecryptScriptAlertViewDelegate> delegate);
    static std::shared_ptr<DecryptScriptAlertView> make(std::shared_ptr<DecryptScriptAlertViewDelegate> delegate) {
        return std::make_shared<DecryptScriptAlertView>(std::move(delegate));
    }

    // Shows the prompt through the alerts port; its callbacks come back to the two below.
    void show();
    // `text` is what the text field holds when the button is pressed.
    void alertViewClickedButtonAtIndex(int buttonIndex, const std::string& text);
    void alertViewDidDismissWithButtonIndex(int buttonIndex);

    std::string titleText() const;
    std::string messageText() const;
    std::string cancelButtonTitle() const;
    std::string confirmButtonTitle() const;

    std::shared_ptr<DecryptScriptAlertViewDelegate> decryptScriptAlertViewDelegate() const { return delegate_.lock(); }
    void setDecryptScriptAlertViewDelegate(std::shared_ptr<DecryptScriptAlertViewDelegate> delegate) {
        delegate_ = std::move(delegate);
    }

private:
    // Weak, like any delegate: the delegate usually owns the prompt.
    std::weak_ptr<DecryptScriptAlertViewDelegate> delegate_;
    bool dismissed_ = false;
};

}  // namespace tactora
