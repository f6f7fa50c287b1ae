#include "ios/UIKitPresenter.h"

#import <UIKit/UIKit.h>

#include <cmath>
#include <string>

#include "Control/Helper.h"
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
    label.textAlignment = NSTextAlignmentCenter;
    label.numberOfLines = 0;
    return label;
}

UIButton* button(const std::string& title, CGFloat size, UIColor* color, id target, SEL action, NSInteger tag) {
    UIButton* button = [UIButton buttonWithType:UIButtonTypeSystem];
    [button setTitle:string(title) forState:UIControlStateNormal];
    [button setTitleColor:color forState:UIControlStateNormal];
    button.titleLabel.font = [UIFont systemFontOfSize:size];
    button.tag = tag;
    [button addTarget:target action:action forControlEvents:UIControlEventTouchUpInside];
    return button;
}

// Adds the named views to `content` and lays them out by the model's visual-format constraints.
template <size_t names, size_t formats>
void layOut(UIView* content, NSDictionary<NSString*, UIView*>* views, const std::array<std::string_view, names>& viewNames,
            const std::array<std::string_view, formats>& constraints) {
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

// A window with a dimmed backdrop and a centred content view that turns with the interface.
@interface TactoraModalContainer : NSObject
@property (nonatomic, strong) UIWindow* window;
@property (nonatomic, strong) UIView* backdrop;
@property (nonatomic, strong) UIView* content;
@property (nonatomic, strong) id panelController;  // kept while on screen
- (instancetype)initWithContentWidth:(CGFloat)width height:(CGFloat)height alpha:(CGFloat)alpha radius:(CGFloat)radius;
- (void)show;
- (void)dismissAnimated:(BOOL)animated;
@end

@implementation TactoraModalContainer

- (instancetype)initWithContentWidth:(CGFloat)width height:(CGFloat)height alpha:(CGFloat)alpha radius:(CGFloat)radius {
    if (!(self = [super init])) return nil;
    UIWindow* window = nil;
    if (@available(iOS 13.0, *)) {
        for (UIScene* scene in [UIApplication sharedApplication].connectedScenes) {
            if ([scene isKindOfClass:[UIWindowScene class]]) {
                window = [[UIWindow alloc] initWithWindowScene:(UIWindowScene*)scene];
                break;
            }
        }
    }
    if (!window) window = [[UIWindow alloc] initWithFrame:[UIScreen mainScreen].bounds];
    window.frame = [UIScreen mainScreen].bounds;
    window.windowLevel = UIWindowLevelAlert - 1;
    window.backgroundColor = [UIColor clearColor];
    window.rootViewController = [[UIViewController alloc] init];
    _window = window;

    UIView* root = window.rootViewController.view;
    _backdrop = [[UIView alloc] initWithFrame:root.bounds];
    _backdrop.autoresizingMask = UIViewAutoresizingFlexibleWidth | UIViewAutoresizingFlexibleHeight;
    _backdrop.backgroundColor = [UIColor colorWithWhite:0 alpha:0.4];
    [root addSubview:_backdrop];

    _content = [[UIView alloc] initWithFrame:CGRectMake(0, 0, width, height)];
    _content.backgroundColor = [UIColor colorWithWhite:1 alpha:alpha];
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

    [[NSNotificationCenter defaultCenter] addObserver:self
                                             selector:@selector(orientationChanged:)
                                                 name:string(std::string(tactora::orientationChangedNotification))
                                               object:nil];
    return self;
}

- (void)dealloc {
    [[NSNotificationCenter defaultCenter] removeObserver:self];
}

- (void)orientationChanged:(NSNotification*)notification {
    int orientation = [notification.object respondsToSelector:@selector(intValue)] ? [notification.object intValue] : 1;
    [UIView animateWithDuration:0.3
                     animations:^{
                       self.content.transform = CGAffineTransformMakeRotation(angleFor(orientation));
                     }];
}

- (void)show {
    self.content.transform = CGAffineTransformMakeRotation(angleFor(tactora::platform().display->interfaceOrientation()));
    [self.window makeKeyAndVisible];
    // Drops in from above.
    CGPoint centre = self.content.center;
    self.content.center = CGPointMake(centre.x, -CGRectGetHeight(self.content.bounds));
    self.backdrop.alpha = 0;
    [UIView animateWithDuration:0.3
                     animations:^{
                       self.content.center = centre;
                       self.backdrop.alpha = 1;
                     }];
}

- (void)dismissAnimated:(BOOL)animated {
    void (^gone)(BOOL) = ^(BOOL) {
      self.window.hidden = YES;
      self.panelController = nil;
    };
    if (!animated) {
        gone(YES);
        return;
    }
    [UIView animateWithDuration:0.25
        animations:^{
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
        @"titleLabel" : label(_panel->titleText(), Layout::titleFontSize, YES, [UIColor blackColor]),
        @"messageLabel" : label(_panel->messageText(), Layout::messageFontSize, NO, [UIColor darkGrayColor]),
        @"recordButton" : button(_panel->recordButtonTitle(), Layout::recordButtonFontSize, [UIColor redColor], self,
                                 @selector(record), 0),
        @"_scriptListTableView" : table,
        @"cancelButton" : button(_panel->cancelButtonTitle(), Layout::cancelButtonFontSize, [UIColor grayColor], self,
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
    _repeatIntervalValueLabel = label("", 14, NO, black);
    _playSpeedValueLabel = label("", 14, NO, black);
    UIStepper* count = [self stepperFor:_panel->repeatCountStepper()];
    UIStepper* interval = [self stepperFor:_panel->repeatIntervalStepper()];
    UIStepper* speed = [self stepperFor:_panel->playSpeedStepper()];
    _steppers = @[ count, interval, speed ];
    UILabel* countLabel = label(_panel->repeatCountLabelText(), 14, NO, black);
    UILabel* intervalLabel = label(_panel->repeatIntervalLabelText(), 14, NO, black);
    UILabel* speedLabel = label(_panel->playSpeedLabelText(), 14, NO, black);
    for (UILabel* left in @[ countLabel, intervalLabel, speedLabel ]) left.textAlignment = NSTextAlignmentLeft;
    SEL clicked = @selector(buttonClicked:);
    NSDictionary* views = @{
        @"titleLabel" : label(_panel->titleText(), 18, YES, black),
        @"messageLabel" : label(_panel->messageText(), 10, NO, [UIColor darkGrayColor]),
        @"repeatCountLabel" : countLabel,
        @"repeatCountTextField" : _repeatCountTextField,
        @"repeatCountStepper" : count,
        @"repeatIntervalLabel" : intervalLabel,
        @"repeatIntervalValueLabel" : _repeatIntervalValueLabel,
        @"repeatIntervalStepper" : interval,
        @"playSpeedLabel" : speedLabel,
        @"playSpeedValueLabel" : _playSpeedValueLabel,
        @"playSpeedStepper" : speed,
        @"playNowButton" : button(_panel->buttonTitle(View::playNowButtonTag), 16, [UIColor blueColor], self, clicked,
                                  View::playNowButtonTag),
        @"playLaterButton" : button(_panel->buttonTitle(View::playLaterButtonTag), 16, [UIColor blueColor], self,
                                    clicked, View::playLaterButtonTag),
        @"cancelButton" : button(_panel->buttonTitle(View::cancelButtonTag), 14, [UIColor grayColor], self, clicked,
                                 View::cancelButtonTag),
    };
    layOut(container.content, views, View::Layout::viewNames, View::Layout::constraints);
    UITapGestureRecognizer* tap = [[UITapGestureRecognizer alloc] initWithTarget:self action:@selector(viewTapped)];
    tap.cancelsTouchesInView = NO;  // the buttons and steppers still get their touches
    [container.content addGestureRecognizer:tap];
    [self refresh];
    return self;
}

// Shows what the model holds now.
- (void)refresh {
    if (!_repeatCountTextField.isEditing) _repeatCountTextField.text = string(_panel->repeatCountText());
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
    [self refresh];
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
                           alpha:Layout::alpha
                          radius:Layout::cornerRadius];
        container.panelController = [[TactoraControlPanelController alloc] initWithPanel:control container:container];
    } else if (auto settings = std::dynamic_pointer_cast<PlaySettingsView>(panel)) {
        using Layout = PlaySettingsView::Layout;
        container = [[TactoraModalContainer alloc] initWithContentWidth:Layout::contentWidth
                                                                 height:Layout::contentHeight
                                                                  alpha:Layout::alpha
                                                                 radius:Layout::cornerRadius];
        container.panelController = [[TactoraPlaySettingsController alloc] initWithPanel:settings container:container];
    }
    if (!container) return;  // a panel this presenter does not know
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
