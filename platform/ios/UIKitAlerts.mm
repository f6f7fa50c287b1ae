#include "ios/UIKitAlerts.h"

#import <UIKit/UIKit.h>

#include <memory>

namespace tactora::ios {

namespace {

NSString* string(const std::string& text) {
    if (text.empty()) return nil;
    return [NSString stringWithUTF8String:text.c_str()] ?: @"";
}

// The windows of alerts on screen; an alert's window goes when the alert is dismissed.
NSMutableSet<UIWindow*>* openWindows() {
    static NSMutableSet<UIWindow*>* windows = [NSMutableSet set];
    return windows;
}

UIWindow* makeAlertWindow() {
    UIWindow* window = nil;
    if (@available(iOS 13.0, *)) {
        // In a scene-based process a window shows only when it belongs to a scene.
        for (UIScene* scene in [UIApplication sharedApplication].connectedScenes) {
            if ([scene isKindOfClass:[UIWindowScene class]]) {
                window = [[UIWindow alloc] initWithWindowScene:(UIWindowScene*)scene];
                break;
            }
        }
    }
    if (!window) window = [[UIWindow alloc] initWithFrame:[UIScreen mainScreen].bounds];
    window.windowLevel = UIWindowLevelAlert + 1;
    window.backgroundColor = [UIColor clearColor];
    window.rootViewController = [[UIViewController alloc] init];
    return window;
}

void present(std::shared_ptr<AlertRequest> shared);

// Alerts asked for before SpringBoard's application object exists (a directory that cannot be
// made, found while the tweak loads) wait until the application has finished launching.
NSMutableArray<dispatch_block_t>* waitingAlerts() {
    static NSMutableArray<dispatch_block_t>* waiting = [NSMutableArray array];
    return waiting;
}

void presentWhenLaunched(std::shared_ptr<AlertRequest> shared) {
    NSMutableArray<dispatch_block_t>* waiting = waitingAlerts();
    if (waiting.count == 0) {
        __block id observer = [[NSNotificationCenter defaultCenter]
            addObserverForName:UIApplicationDidFinishLaunchingNotification
                        object:nil
                         queue:[NSOperationQueue mainQueue]
                    usingBlock:^(NSNotification*) {
                      [[NSNotificationCenter defaultCenter] removeObserver:observer];
                      observer = nil;
                      // One turn of the run loop later, when the first windows are up.
                      dispatch_async(dispatch_get_main_queue(), ^{
                        NSArray<dispatch_block_t>* launched = [waitingAlerts() copy];
                        [waitingAlerts() removeAllObjects];
                        for (dispatch_block_t show in launched) show();
                      });
                    }];
    }
    dispatch_block_t show = ^{
      present(shared);
    };
    [waiting addObject:[show copy]];
}

void present(std::shared_ptr<AlertRequest> shared) {
    UIAlertController* alert = [UIAlertController alertControllerWithTitle:string(shared->title)
                                                                   message:string(shared->message)
                                                            preferredStyle:UIAlertControllerStyleAlert];
    UIWindow* window = makeAlertWindow();
    __weak UIAlertController* weakAlert = alert;

    // Button indices as the alert view numbers them: the cancel button 0, then the others in order
    // (from 0 when there is no cancel button).
    auto addButton = ^(NSString* title, int index, UIAlertActionStyle style) {
      [alert addAction:[UIAlertAction actionWithTitle:title
                                                style:style
                                              handler:^(UIAlertAction*) {
                                                std::string text;
                                                UIAlertController* strongAlert = weakAlert;
                                                if (shared->secureTextInput && strongAlert.textFields.count > 0) {
                                                    text = strongAlert.textFields[0].text.UTF8String ?: "";
                                                }
                                                // The action runs once the alert is gone.
                                                if (shared->clickedButtonAtIndex) shared->clickedButtonAtIndex(index, text);
                                                if (shared->didDismissWithButtonIndex) shared->didDismissWithButtonIndex(index);
                                                window.hidden = YES;
                                                [openWindows() removeObject:window];
                                              }]];
    };
    int index = 0;
    if (NSString* cancel = string(shared->cancelButton)) addButton(cancel, index++, UIAlertActionStyleCancel);
    for (const std::string& other : shared->otherButtons) addButton(string(other) ?: @"", index++, UIAlertActionStyleDefault);
    if (shared->secureTextInput) {
        [alert addTextFieldWithConfigurationHandler:^(UITextField* field) {
          field.secureTextEntry = YES;
          field.keyboardType = UIKeyboardTypeDefault;  // a password may hold any character
          // Typed exactly as the author chose it: no capital first letter, no corrections.
          field.autocapitalizationType = UITextAutocapitalizationTypeNone;
          field.autocorrectionType = UITextAutocorrectionTypeNo;
          field.spellCheckingType = UITextSpellCheckingTypeNo;
        }];
        // The keyboard's return key presses the first button after Cancel (Confirm).
        if (!shared->otherButtons.empty()) alert.preferredAction = alert.actions[shared->cancelButton.empty() ? 0 : 1];
    }
    [openWindows() addObject:window];
    [window makeKeyAndVisible];
    [window.rootViewController presentViewController:alert
                                            animated:YES
                                          completion:^{
                                            if (shared->didPresent) shared->didPresent();
                                          }];
}

}  // namespace

void UIKitAlerts::showAlert(AlertRequest request) {
    auto shared = std::make_shared<AlertRequest>(std::move(request));
    if (![UIApplication sharedApplication]) {
        presentWhenLaunched(std::move(shared));
        return;
    }
    present(std::move(shared));
}

}  // namespace tactora::ios
