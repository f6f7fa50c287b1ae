#include "ios/UIKitPresenter.h"

#import <UIKit/UIKit.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "Control/Helper.h"
#include "Platform/DiagnosticLog.h"
#include "Platform/Display.h"
#include "Platform/Platform.h"
#include "Views/ControlPanelView.h"
#include "Views/PlaySettingsView.h"

// Sections: helpers; the modal container; the control panel's content; the play settings
// panel's content; the presenter.

namespace {

NSString* string(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()] ?: @""; }
NSString* string(std::string_view text) { return string(std::string(text)); }

UILabel* label(const std::string& text, CGFloat size, BOOL bold, UIColor* color) {
    UILabel* label = [[UILabel alloc] init];
    label.text = string(text);
    label.font = bold ? [UIFont boldSystemFontOfSize:size] : [UIFont systemFontOfSize:size];
    label.textColor = color;
    label.backgroundColor = [UIColor clearColor];
    label.textAlignment = NSTextAlignmentCenter;
    return label;
}

// A one-line label whose font shrinks until a long translation fits the width.
UILabel* shrinkingLabel(const std::string& text, CGFloat size, BOOL bold, UIColor* color) {
    UILabel* shrinking = label(text, size, bold, color);
    shrinking.numberOfLines = 1;
    shrinking.adjustsFontSizeToFitWidth = YES;
    shrinking.minimumScaleFactor = 0.5;
    return shrinking;
}

UIButton* button(const std::string& title, CGFloat size, UIColor* color, id target, SEL action, NSInteger tag) {
    UIButton* button = [UIButton buttonWithType:UIButtonTypeSystem];
    [button setTitle:string(title) forState:UIControlStateNormal];
    [button setTitleColor:color forState:UIControlStateNormal];
    button.titleLabel.font = [UIFont systemFontOfSize:size];
    button.titleLabel.adjustsFontSizeToFitWidth = YES;
    button.tag = tag;
    [button addTarget:target action:action forControlEvents:UIControlEventTouchUpInside];
    return button;
}

// A filled button with white text: the danger (red), primary (blue) and info (light blue) styles.
UIButton* filledButton(const std::string& title, CGFloat size, UIColor* fill, id target, SEL action, NSInteger tag) {
    UIButton* filled = button(title, size, [UIColor whiteColor], target, action, tag);
    filled.backgroundColor = fill;
    filled.layer.cornerRadius = 4;
    filled.clipsToBounds = YES;
    return filled;
}

UIColor* dangerColor() { return [UIColor colorWithRed:0.85 green:0.33 blue:0.31 alpha:1]; }
UIColor* primaryColor() { return [UIColor colorWithRed:0.26 green:0.55 blue:0.79 alpha:1]; }
UIColor* infoColor() { return [UIColor colorWithRed:0.36 green:0.75 blue:0.87 alpha:1]; }

// Adds the named views to `content` and lays them out by the model's visual-format constraints.
// The layout engine throws on a name it does not know, which would take SpringBoard down: the
// views here and the model's names must agree exactly, or the views stay unplaced and a diagnostic
// says why.
template <size_t names, size_t formats>
void layOut(UIView* content, NSDictionary<NSString*, UIView*>* views, const std::array<std::string_view, names>& viewNames,
            const std::array<std::string_view, formats>& constraints) {
    bool agree = views.count == names;
    for (std::string_view name : viewNames) agree = agree && views[string(name)] != nil;
    if (!agree) {
        TACTORA_DIAGNOSTIC("layOut", "the panel's views do not match its layout's names; left unplaced");
        return;
    }
    for (std::string_view name : viewNames) {
        UIView* view = views[string(name)];
        view.translatesAutoresizingMaskIntoConstraints = NO;
        [content addSubview:view];
    }
    for (std::string_view format : constraints) {
        [content addConstraints:[NSLayoutConstraint constraintsWithVisualFormat:string(format)
                                                                        options:0
                                                                        metrics:nil
                                                                          views:views]];
    }
}

// The rotation of the interface (1 portrait, 2 upside down, 3 and 4 landscape) as an angle.
CGFloat angleFor(int orientation) {
    switch (orientation) {
        case UIInterfaceOrientationPortraitUpsideDown: return M_PI;
        case UIInterfaceOrientationLandscapeRight: return M_PI_2;
        case UIInterfaceOrientationLandscapeLeft: return -M_PI_2;
        default: return 0;
    }
}

}  // namespace

// --- the modal container ----------------------------------------------------------------------

// The container's own view controller never turns by itself: SpringBoard's windows stay in
// portrait on a phone, and the container turns its content with the front app instead.
@interface TactoraFixedOrientationViewController : UIViewController
@end

@implementation TactoraFixedOrientationViewController
- (BOOL)shouldAutorotate {
    return NO;
}
- (UIInterfaceOrientationMask)supportedInterfaceOrientations {
    return UIInterfaceOrientationMaskPortrait;
}
@end

// A window above SpringBoard with a dimmed backdrop and a centred, rounded content view. It shows
// with the panel's transition, dismisses with or without animation, tells its handlers before and
// after each, and turns its content when the front app's interface turns.
@interface TactoraModalContainer : NSObject
@property (nonatomic, strong) UIWindow* window;
@property (nonatomic, strong) UIView* backdrop;
@property (nonatomic, strong) UIView* content;
@property (nonatomic, strong) id panelController;  // kept while on screen
@property (nonatomic, assign) NSInteger transitionStyle;
@property (nonatomic, assign) CGFloat contentAlpha;
@property (nonatomic, copy) void (^willShowHandler)(TactoraModalContainer* container);
@property (nonatomic, copy) void (^didShowHandler)(TactoraModalContainer* container);
@property (nonatomic, copy) void (^willDismissHandler)(TactoraModalContainer* container);
@property (nonatomic, copy) void (^didDismissHandler)(TactoraModalContainer* container);
- (instancetype)initWithContentWidth:(CGFloat)width
                              height:(CGFloat)height
                     transitionStyle:(NSInteger)transitionStyle
                               alpha:(CGFloat)alpha
                              radius:(CGFloat)radius;
- (void)show;
- (void)dismissAnimated:(BOOL)animated;
@end

@implementation TactoraModalContainer {
    BOOL _dismissing;
}

// The transition style that drops the content in from above and lets it fall away below.
static const NSInteger dropDownTransition = 4;

- (instancetype)initWithContentWidth:(CGFloat)width
                              height:(CGFloat)height
                     transitionStyle:(NSInteger)transitionStyle
                               alpha:(CGFloat)alpha
                              radius:(CGFloat)radius {
    if (!(self = [super init])) return nil;
    _transitionStyle = transitionStyle;
    _contentAlpha = alpha;
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
    window.frame = [UIScreen mainScreen].bounds;
    window.windowLevel = UIWindowLevelAlert - 1;  // system alerts, the "Wrong password!" one too, stay above
    window.backgroundColor = [UIColor clearColor];
    // The panels are drawn light: white content, black text. Since iOS 13 UIKit's default text
    // colour follows the system appearance (UILabel's textColor defaults to labelColor, white in
    // Dark Mode), so the script list's cells, which set no colour of their own, would be white on
    // white. The window keeps the light appearance for everything in it (iOS 13 to 16).
    window.overrideUserInterfaceStyle = UIUserInterfaceStyleLight;
    window.rootViewController = [[TactoraFixedOrientationViewController alloc] init];
    _window = window;

    UIView* root = window.rootViewController.view;
    root.backgroundColor = [UIColor clearColor];
    _backdrop = [[UIView alloc] initWithFrame:root.bounds];
    _backdrop.autoresizingMask = UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight;
    _backdrop.backgroundColor = [UIColor colorWithWhite:0 alpha:0.4];
    [root addSubview:_backdrop];

    _content = [[UIView alloc] initWithFrame:CGRectMake(0, 0, width, height)];
    _content.backgroundColor = [UIColor whiteColor];
    _content.alpha = alpha;
    _content.layer.cornerRadius = radius;
    _content.clipsToBounds = YES;
    _content.center = CGPointMake(CGRectGetMidX(root.bounds), CGRectGetMidY(root.bounds));
    [root addSubview:_content];

    // A slight tilt-following movement, as system alerts have.
    UIInterpolatingMotionEffect* x = [[UIInterpolatingMotionEffect alloc] initWithKeyPath:@"center.x"
                                                                                     type:UIInterpolatingMotionEffectTypeTiltAlongHorizontalAxis];
    UIInterpolatingMotionEffect* y = [[UIInterpolatingMotionEffect alloc] initWithKeyPath:@"center.y"
                                                                                     type:UIInterpolatingMotionEffectTypeTiltAlongVerticalAxis];
    x.minimumRelativeValue = y.minimumRelativeValue = @(-10);
    x.maximumRelativeValue = y.maximumRelativeValue = @(10);
    UIMotionEffectGroup* parallax = [[UIMotionEffectGroup alloc] init];
    parallax.motionEffects = @[ x, y ];
    [_content addMotionEffect:parallax];

    NSNotificationCenter* centre = [NSNotificationCenter defaultCenter];
    [centre addObserver:self
               selector:@selector(orientationChanged:)
                   name:string(std::string(tactora::orientationChangedNotification))
                 object:nil];
    [centre addObserver:self
               selector:@selector(keyboardWillChangeFrame:)
                   name:UIKeyboardWillChangeFrameNotification
                 object:nil];
    return self;
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
}

// SpringBoard posts the new interface orientation (an NSNumber, 1 to 4) when the front app turns.
- (void)orientationChanged:(NSNotification*)notification {
    if (![notification.object respondsToSelector:@selector(intValue)]) return;
    int orientation = [notification.object intValue];
    [UIView animateWithDuration:0.3
                     animations:^{
                       self.content.transform = CGAffineTransformMakeRotation(angleFor(orientation));
                     }];
}

// The number pad of the play settings panel covers the lower half of a small screen: the content
// moves up until its bottom edge clears the keyboard, and back when the keyboard goes.
- (void)keyboardWillChangeFrame:(NSNotification*)notification {
    if (_dismissing) return;
    CGRect keyboard = [notification.userInfo[UIKeyboardFrameEndUserInfoKey] CGRectValue];
    keyboard = [self.window convertRect:keyboard fromWindow:nil];
    CGPoint centre = [self restingCentre];
    CGFloat bottom = centre.y + CGRectGetHeight(self.content.frame) / 2;
    CGFloat overlap = bottom + 8 - CGRectGetMinY(keyboard);
    if (CGRectGetMinY(keyboard) < CGRectGetHeight(self.window.bounds) && overlap > 0) {
        centre.y = std::max(CGRectGetHeight(self.content.frame) / 2, centre.y - overlap);
    }
    [UIView animateWithDuration:[notification.userInfo[UIKeyboardAnimationDurationUserInfoKey] doubleValue]
                     animations:^{
                       self.content.center = centre;
                     }];
}

- (CGPoint)restingCentre {
    CGRect bounds = self.window.rootViewController.view.bounds;
    return CGPointMake(CGRectGetMidX(bounds), CGRectGetMidY(bounds));
}

- (void)show {
    if (self.willShowHandler) self.willShowHandler(self);
    self.content.transform = CGAffineTransformMakeRotation(angleFor(tactora::platform().display->interfaceOrientation()));
    [self.window makeKeyAndVisible];
    CGPoint centre = [self restingCentre];
    if (self.transitionStyle == dropDownTransition) {
        self.content.center = CGPointMake(centre.x, -CGRectGetHeight(self.content.bounds));
    } else {
        self.content.center = centre;
        self.content.alpha = 0;
    }
    self.backdrop.alpha = 0;
    [UIView animateWithDuration:0.3
        animations:^{
          self.content.center = centre;
          self.content.alpha = self.contentAlpha;
          self.backdrop.alpha = 1;
        }
        completion:^(BOOL) {
          if (self.didShowHandler) self.didShowHandler(self);
        }];
}

- (void)dismissAnimated:(BOOL)animated {
    if (_dismissing) return;
    _dismissing = YES;
    if (self.willDismissHandler) self.willDismissHandler(self);
    // The block keeps the container alive until the window is gone.
    void (^gone)(BOOL) = ^(BOOL) {
      self.window.hidden = YES;
      if (self.didDismissHandler) self.didDismissHandler(self);
      self.panelController = nil;
      self.window = nil;
    };
    if (!animated) {
        gone(YES);
        return;
    }
    CGPoint centre = self.content.center;
    CGFloat fall = CGRectGetHeight(self.window.bounds);
    [UIView animateWithDuration:0.25
        animations:^{
          if (self.transitionStyle == dropDownTransition) self.content.center = CGPointMake(centre.x, centre.y + fall);
          self.content.alpha = 0;
          self.backdrop.alpha = 0;
        }
        completion:gone];
}

@end

// --- the control panel ------------------------------------------------------------------------

@interface TactoraControlPanelController : NSObject <UITableViewDataSource, UITableViewDelegate>
- (instancetype)initWithPanel:(std::shared_ptr<tactora::ControlPanelView>)panel container:(TactoraModalContainer*)container;
@end

@implementation TactoraControlPanelController {
    std::shared_ptr<tactora::ControlPanelView> _panel;
}

- (instancetype)initWithPanel:(std::shared_ptr<tactora::ControlPanelView>)panel container:(TactoraModalContainer*)container {
    if (!(self = [super init])) return nil;
    _panel = std::move(panel);
    using Layout = tactora::ControlPanelView::Layout;
    UITableView* table = [[UITableView alloc] initWithFrame:CGRectZero style:UITableViewStylePlain];
    table.dataSource = self;
    table.delegate = self;
    table.backgroundColor = [UIColor clearColor];
    [table registerClass:[UITableViewCell class] forCellReuseIdentifier:string(Layout::cellReuseIdentifier)];
    NSDictionary* views = @{
        @"titleLabel" : shrinkingLabel(_panel->titleText(), Layout::titleFontSize, YES, [UIColor blackColor]),
        @"messageLabel" : shrinkingLabel(_panel->messageText(), Layout::messageFontSize, NO, [UIColor darkGrayColor]),
        @"recordButton" : filledButton(_panel->recordButtonTitle(), Layout::recordButtonFontSize, dangerColor(), self,
                                       @selector(record), 0),
        @"_scriptListTableView" : table,
        @"cancelButton" : button(_panel->cancelButtonTitle(), Layout::cancelButtonFontSize, nil, self,
                                 @selector(cancel), 0),
    };
    layOut(container.content, views, Layout::viewNames, Layout::constraints);
    return self;
}

- (void)record {
    _panel->clickOnRecord();
}

- (void)cancel {
    _panel->clickOnCancel();
}

- (NSInteger)tableView:(UITableView*)tableView numberOfRowsInSection:(NSInteger)section {
    (void)tableView, (void)section;
    return static_cast<NSInteger>(_panel->numberOfRows());
}

- (UITableViewCell*)tableView:(UITableView*)tableView cellForRowAtIndexPath:(NSIndexPath*)indexPath {
    using Layout = tactora::ControlPanelView::Layout;
    UITableViewCell* cell = [tableView dequeueReusableCellWithIdentifier:string(Layout::cellReuseIdentifier)
                                                            forIndexPath:indexPath];
    cell.backgroundColor = [UIColor clearColor];
    cell.textLabel.font = [UIFont systemFontOfSize:Layout::cellFontSize];
    UILabel* assigned = [cell.contentView viewWithTag:Layout::activatorAssignedLabelTag];
    UILabel* direct = [cell.contentView viewWithTag:Layout::playSettingsLabelTag];
    if (!assigned) {
        UIColor* marker = [UIColor colorWithRed:Layout::markerColor[0] / 255.0
                                          green:Layout::markerColor[1] / 255.0
                                           blue:Layout::markerColor[2] / 255.0
                                          alpha:1];
        assigned = label("", Layout::markerFontSize, NO, marker);
        assigned.tag = Layout::activatorAssignedLabelTag;
        direct = label("", Layout::markerFontSize, NO, marker);
        direct.tag = Layout::playSettingsLabelTag;
        layOut(cell.contentView, @{@"activatorAssignedLabel" : assigned, @"playSettingsLabel" : direct},
               Layout::cellViewNames, Layout::cellConstraints);
    }
    tactora::ControlPanelView::Cell content = _panel->cellForRow(static_cast<size_t>(indexPath.row));
    cell.textLabel.text = string(content.text);
    assigned.text = string(content.activatorAssignedLabel);
    direct.text = string(content.playSettingsLabel);
    return cell;
}

- (void)tableView:(UITableView*)tableView didSelectRowAtIndexPath:(NSIndexPath*)indexPath {
    [tableView deselectRowAtIndexPath:indexPath animated:YES];
    _panel->didSelectRow(static_cast<size_t>(indexPath.row));
}

@end

// --- the play settings panel ------------------------------------------------------------------

@interface TactoraPlaySettingsController : NSObject
- (instancetype)initWithPanel:(std::shared_ptr<tactora::PlaySettingsView>)panel container:(TactoraModalContainer*)container;
@end

@implementation TactoraPlaySettingsController {
    std::shared_ptr<tactora::PlaySettingsView> _panel;
    UITextField* _repeatCountTextField;
    UILabel* _repeatIntervalValueLabel;
    UILabel* _playSpeedValueLabel;
    NSArray<UIStepper*>* _steppers;
}

- (UIStepper*)stepperFor:(const tactora::Stepper&)model {
    UIStepper* stepper = [[UIStepper alloc] init];
    stepper.tag = model.tag;
    stepper.minimumValue = model.minimumValue;
    stepper.maximumValue = model.maximumValue;
    stepper.stepValue = model.stepValue;
    stepper.value = model.value;
    [stepper addTarget:self action:@selector(stepperChanged:) forControlEvents:UIControlEventValueChanged];
    return stepper;
}

- (instancetype)initWithPanel:(std::shared_ptr<tactora::PlaySettingsView>)panel container:(TactoraModalContainer*)container {
    if (!(self = [super init])) return nil;
    _panel = std::move(panel);
    using View = tactora::PlaySettingsView;
    UIColor* black = [UIColor blackColor];
    _repeatCountTextField = [[UITextField alloc] init];
    _repeatCountTextField.borderStyle = UITextBorderStyleRoundedRect;
    _repeatCountTextField.keyboardType = UIKeyboardTypeNumberPad;
    _repeatCountTextField.textAlignment = NSTextAlignmentCenter;
    [_repeatCountTextField addTarget:self action:@selector(repeatCountChanged) forControlEvents:UIControlEventEditingChanged];
    const CGFloat settingSize = View::Layout::settingFontSize;
    _repeatCountTextField.font = [UIFont systemFontOfSize:settingSize];
    _repeatIntervalValueLabel = label("", settingSize, NO, black);
    _playSpeedValueLabel = label("", settingSize, NO, black);
    UIStepper* count = [self stepperFor:_panel->repeatCountStepper()];
    UIStepper* interval = [self stepperFor:_panel->repeatIntervalStepper()];
    UIStepper* speed = [self stepperFor:_panel->playSpeedStepper()];
    _steppers = @[ count, interval, speed ];
    UILabel* countLabel = shrinkingLabel(_panel->repeatCountLabelText(), settingSize, NO, black);
    UILabel* intervalLabel = shrinkingLabel(_panel->repeatIntervalLabelText(), settingSize, NO, black);
    UILabel* speedLabel = shrinkingLabel(_panel->playSpeedLabelText(), settingSize, NO, black);
    for (UILabel* left in @[ countLabel, intervalLabel, speedLabel ]) left.textAlignment = NSTextAlignmentLeft;
    SEL clicked = @selector(buttonClicked:);
    NSDictionary* views = @{
        @"titleLabel" : shrinkingLabel(_panel->titleText(), View::Layout::titleFontSize, YES, black),
        @"messageLabel" : shrinkingLabel(_panel->messageText(), View::Layout::messageFontSize, NO, [UIColor darkGrayColor]),
        @"repeatCountLabel" : countLabel,
        @"repeatCountTextField" : _repeatCountTextField,
        @"repeatCountStepper" : count,
        @"repeatIntervalLabel" : intervalLabel,
        @"repeatIntervalValueLabel" : _repeatIntervalValueLabel,
        @"repeatIntervalStepper" : interval,
        @"playSpeedLabel" : speedLabel,
        @"playSpeedValueLabel" : _playSpeedValueLabel,
        @"playSpeedStepper" : speed,
        @"playNowButton" : filledButton(_panel->buttonTitle(View::playNowButtonTag), View::Layout::playButtonFontSize,
                                        primaryColor(), self, clicked, View::playNowButtonTag),
        @"playLaterButton" : filledButton(_panel->buttonTitle(View::playLaterButtonTag),
                                          View::Layout::playButtonFontSize, infoColor(), self, clicked,
                                          View::playLaterButtonTag),
        @"cancelButton" : button(_panel->buttonTitle(View::cancelButtonTag), View::Layout::cancelButtonFontSize, nil,
                                 self, clicked, View::cancelButtonTag),
    };
    layOut(container.content, views, View::Layout::viewNames, View::Layout::constraints);
    UITapGestureRecognizer* tap = [[UITapGestureRecognizer alloc] initWithTarget:self action:@selector(viewTapped)];
    tap.cancelsTouchesInView = NO;  // the buttons and steppers still get their touches
    [container.content addGestureRecognizer:tap];
    [self refresh];
    return self;
}

// Shows what the model holds now. The count field keeps its text only while the user types into
// it (rewriting it would move the caret); anything else that changes the count, a stepper press
// while the number pad is up included, shows the new count in the field.
- (void)refresh {
    [self refreshKeepingTypedCount:NO];
}

- (void)refreshKeepingTypedCount:(BOOL)keepTypedCount {
    if (!keepTypedCount) _repeatCountTextField.text = string(_panel->repeatCountText());
    _repeatIntervalValueLabel.text = string(_panel->repeatIntervalValueText());
    _playSpeedValueLabel.text = string(_panel->playSpeedValueText());
    _steppers[0].value = _panel->repeatCountStepper().value;
    _steppers[1].value = _panel->repeatIntervalStepper().value;
    _steppers[2].value = _panel->playSpeedStepper().value;
}

// UIStepper has already moved; the model takes the same step by its own rules.
- (void)stepperChanged:(UIStepper*)stepper {
    const tactora::Stepper* model = stepper.tag == tactora::PlaySettingsView::repeatCountStepperTag
                                        ? &_panel->repeatCountStepper()
                                    : stepper.tag == tactora::PlaySettingsView::repeatIntervalStepperTag
                                        ? &_panel->repeatIntervalStepper()
                                        : &_panel->playSpeedStepper();
    if (stepper.value > model->value) _panel->pressStepperPlus(static_cast<int>(stepper.tag));
    else if (stepper.value < model->value) _panel->pressStepperMinus(static_cast<int>(stepper.tag));
    [self refresh];
}

- (void)repeatCountChanged {
    _panel->typeRepeatCount(_repeatCountTextField.text.UTF8String ?: "");
    [self refreshKeepingTypedCount:YES];
}

- (void)viewTapped {
    [_repeatCountTextField resignFirstResponder];
    _panel->viewTapped();
    [self refresh];
}

- (void)buttonClicked:(UIButton*)sender {
    [_repeatCountTextField resignFirstResponder];
    _panel->buttonClicked(static_cast<int>(sender.tag));
}

@end

// --- the presenter ------------------------------------------------------------------------------

namespace tactora::ios {

namespace {

// The containers on screen, by panel.
NSMapTable<NSValue*, TactoraModalContainer*>* containers() {
    static NSMapTable* table = [NSMapTable strongToStrongObjectsMapTable];
    return table;
}

NSValue* keyFor(const PresentedPanel& panel) { return [NSValue valueWithPointer:&panel]; }

}  // namespace

void UIKitPresenter::present(std::shared_ptr<PresentedPanel> panel) {
    if (!panel) return;
    CGSize screen = [UIScreen mainScreen].bounds.size;
    TactoraModalContainer* container = nil;
    if (auto control = std::dynamic_pointer_cast<ControlPanelView>(panel)) {
        using Layout = ControlPanelView::Layout;
        container = [[TactoraModalContainer alloc]
            initWithContentWidth:Layout::contentWidth
                          height:ControlPanelView::contentHeight(screen.width, screen.height)
                 transitionStyle:Layout::transitionStyle
                           alpha:Layout::alpha
                          radius:Layout::cornerRadius];
        container.panelController = [[TactoraControlPanelController alloc] initWithPanel:control container:container];
    } else if (auto settings = std::dynamic_pointer_cast<PlaySettingsView>(panel)) {
        using Layout = PlaySettingsView::Layout;
        container = [[TactoraModalContainer alloc] initWithContentWidth:Layout::contentWidth
                                                                 height:Layout::contentHeight
                                                        transitionStyle:Layout::transitionStyle
                                                                  alpha:Layout::alpha
                                                                 radius:Layout::cornerRadius];
        container.panelController = [[TactoraPlaySettingsController alloc] initWithPanel:settings container:container];
    }
    if (!container) return;  // a panel this presenter does not know
    // A keyboard still up (the play settings panel's count) goes before the content does.
    container.willDismissHandler = ^(TactoraModalContainer* closing) {
      [closing.content endEditing:YES];
    };
    [containers() setObject:container forKey:keyFor(*panel)];
    [container show];
}

void UIKitPresenter::dismiss(PresentedPanel& panel, bool animated) {
    NSValue* key = keyFor(panel);
    TactoraModalContainer* container = [containers() objectForKey:key];
    if (!container) return;
    [containers() removeObjectForKey:key];
    [container dismissAnimated:animated];
}

}  // namespace tactora::ios
