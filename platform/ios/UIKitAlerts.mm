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

}  // namespace

void UIKitAlerts::showAlert(AlertRequest request) {
    auto shared = std::make_shared<AlertRequest>(std::move(request));
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
        }];
    }
    [openWindows() addObject:window];
    [window makeKeyAndVisible];
    [window.rootViewController presentViewController:alert
                                            animated:YES
                                          completion:^{
                                            if (shared->didPresent) shared->didPresent();
                                          }];
}

}  // namespace tactora::ios
