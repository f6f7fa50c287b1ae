// Every private function and class of iOS that the tweak calls, in one place.
//
// None of these is in the public SDK headers. The functions link against the SDK's .tbd stubs
// (IOKit, QuartzCore, SpringBoardServices); the classes are looked up by name at run time
// (NSClassFromString), so a class missing from some iOS version gives nil, never a load failure.
// The version notes say where each one is known to exist; they are the facts this tweak was
// written against, and the device test plan checks them on a real device.
//
// Sections: IOKit HID events; the HID event system and its connections; the IOKit registry;
// QuartzCore render server;
// SpringBoardServices; backboardd classes; LaunchServices classes; SpringBoard classes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <mach/mach.h>
#include <stdint.h>

#ifdef __OBJC__
#import <Foundation/Foundation.h>
#import <UIKit/UIKit.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

// --- IOKit HID events (IOKit.framework; iOS 3 and later) -------------------------------------

typedef struct __IOHIDEvent* IOHIDEventRef;
typedef uint32_t IOHIDEventField;
typedef uint32_t IOHIDEventType;
typedef uint32_t IOHIDDigitizerTransducerType;
typedef uint32_t IOHIDEventOptionBits;
#ifdef __LP64__
typedef double IOHIDFloat;
#else
typedef float IOHIDFloat;
#endif

// Event types (IOHIDEventTypes.h of IOHIDFamily).
enum : IOHIDEventType {
    kIOHIDEventTypeKeyboard = 3,
    kIOHIDEventTypeDigitizer = 11,
};
// Digitizer transducer types.
enum : IOHIDDigitizerTransducerType {
    kIOHIDDigitizerTransducerTypeFinger = 2,
    kIOHIDDigitizerTransducerTypeHand = 3,
};
// Fields: the event type in the high 16 bits, the field's number in the low 16.
enum : IOHIDEventField {
    kIOHIDEventFieldIsBuiltIn = 4,
    kIOHIDEventFieldKeyboardUsagePage = (kIOHIDEventTypeKeyboard << 16) | 0,
    kIOHIDEventFieldKeyboardUsage = (kIOHIDEventTypeKeyboard << 16) | 1,
    kIOHIDEventFieldKeyboardDown = (kIOHIDEventTypeKeyboard << 16) | 2,
    kIOHIDEventFieldDigitizerX = (kIOHIDEventTypeDigitizer << 16) | 0,
    kIOHIDEventFieldDigitizerY = (kIOHIDEventTypeDigitizer << 16) | 1,
    kIOHIDEventFieldDigitizerType = (kIOHIDEventTypeDigitizer << 16) | 4,
    kIOHIDEventFieldDigitizerIndex = (kIOHIDEventTypeDigitizer << 16) | 5,
    kIOHIDEventFieldDigitizerIdentity = (kIOHIDEventTypeDigitizer << 16) | 6,
    kIOHIDEventFieldDigitizerEventMask = (kIOHIDEventTypeDigitizer << 16) | 7,
    kIOHIDEventFieldDigitizerRange = (kIOHIDEventTypeDigitizer << 16) | 8,
    kIOHIDEventFieldDigitizerTouch = (kIOHIDEventTypeDigitizer << 16) | 9,
    kIOHIDEventFieldDigitizerIsDisplayIntegrated = (kIOHIDEventTypeDigitizer << 16) | 25,
};

IOHIDEventRef IOHIDEventCreateDigitizerEvent(CFAllocatorRef allocator, uint64_t timeStamp,
                                             IOHIDDigitizerTransducerType type, uint32_t index,
                                             uint32_t identity, uint32_t eventMask, uint32_t buttonMask,
                                             IOHIDFloat x, IOHIDFloat y, IOHIDFloat z,
                                             IOHIDFloat tipPressure, IOHIDFloat barrelPressure,
                                             Boolean range, Boolean touch, IOHIDEventOptionBits options);
IOHIDEventRef IOHIDEventCreateDigitizerFingerEvent(CFAllocatorRef allocator, uint64_t timeStamp,
                                                   uint32_t index, uint32_t identity, uint32_t eventMask,
                                                   IOHIDFloat x, IOHIDFloat y, IOHIDFloat z,
                                                   IOHIDFloat tipPressure, IOHIDFloat twist, Boolean range,
                                                   Boolean touch, IOHIDEventOptionBits options);
IOHIDEventRef IOHIDEventCreateKeyboardEvent(CFAllocatorRef allocator, uint64_t timeStamp, uint16_t usagePage,
                                            uint16_t usage, Boolean down, IOHIDEventOptionBits options);
// Adds `child` to `event`'s children (a finger to its hand). IOHIDFamily's IOHIDEvent.h declares
// three parameters, the last one options (always 0 here); the call passes all three, since a
// missing argument would hand the function whatever the third register held.
void IOHIDEventAppendEvent(IOHIDEventRef event, IOHIDEventRef child, IOHIDEventOptionBits options);
// Integer fields are CFIndex wide (IOHIDFamily's HID/HIDEvent.m and HIDEventAccessors.m pass
// (CFIndex) values): an int argument would leave the upper half of the 64-bit register to chance.
void IOHIDEventSetIntegerValue(IOHIDEventRef event, IOHIDEventField field, CFIndex value);
void IOHIDEventSetFloatValue(IOHIDEventRef event, IOHIDEventField field, IOHIDFloat value);
CFIndex IOHIDEventGetIntegerValue(IOHIDEventRef event, IOHIDEventField field);
IOHIDFloat IOHIDEventGetFloatValue(IOHIDEventRef event, IOHIDEventField field);
void IOHIDEventSetSenderID(IOHIDEventRef event, uint64_t senderID);
uint64_t IOHIDEventGetSenderID(IOHIDEventRef event);
IOHIDEventType IOHIDEventGetType(IOHIDEventRef event);
uint64_t IOHIDEventGetTimeStamp(IOHIDEventRef event);
// The child events (finger events of a hand event); iOS 5 and later.
CFArrayRef IOHIDEventGetChildren(IOHIDEventRef event);

// --- The HID event system (IOKit.framework) -----------------------------------------------------

typedef struct __IOHIDEventSystemClient* IOHIDEventSystemClientRef;
typedef struct __IOHIDEventSystemConnection* IOHIDEventSystemConnectionRef;
typedef void (*IOHIDEventSystemClientEventCallback)(void* target, void* refcon, void* queue, IOHIDEventRef event);

// A client of the event system; iOS 6 and later.
IOHIDEventSystemClientRef IOHIDEventSystemClientCreate(CFAllocatorRef allocator);
void IOHIDEventSystemClientDispatchEvent(IOHIDEventSystemClientRef client, IOHIDEventRef event);
void IOHIDEventSystemClientScheduleWithRunLoop(IOHIDEventSystemClientRef client, CFRunLoopRef runLoop,
                                               CFStringRef mode);
void IOHIDEventSystemClientUnscheduleWithRunLoop(IOHIDEventSystemClientRef client, CFRunLoopRef runLoop,
                                                 CFStringRef mode);
void IOHIDEventSystemClientRegisterEventCallback(IOHIDEventSystemClientRef client,
                                                 IOHIDEventSystemClientEventCallback callback, void* target,
                                                 void* refcon);
void IOHIDEventSystemClientUnregisterEventCallback(IOHIDEventSystemClientRef client);

// The server side of one client connection, inside backboardd; iOS 7 and later (in IOKit's stubs of
// the iOS 13.7, 14.5, 15.6 and 16.5 SDKs). The event system calls the exported
// IOHIDEventSystemConnectionDispatchEvent for every event it delivers to a connection (its
// symbol-table name is "_IOHIDEventSystemConnectionDispatchEvent"; the stubs also list a private
// "__IOHIDEventSystemConnectionDispatchEvent", which is not the one hooked). It is hooked, so it
// is looked up by that name rather than declared for linking.
uint32_t IOHIDEventSystemConnectionGetType(IOHIDEventSystemConnectionRef connection);
typedef void (*IOHIDEventSystemConnectionDispatchEventFunction)(IOHIDEventSystemConnectionRef connection,
                                                                IOHIDEventRef event);

// --- The IOKit registry (public on macOS; no headers in the iOS SDK; iOS 2 and later) ---------

typedef mach_port_t io_object_t;
typedef io_object_t io_registry_entry_t;
// The IOKit master port; `bootstrapPort` 0 (MACH_PORT_NULL) means the task's own bootstrap port.
kern_return_t IOMasterPort(mach_port_t bootstrapPort, mach_port_t* masterPort);
enum : uint32_t { kIORegistryIterateRecursively = 1 };
#define TACTORA_IODEVICETREE_PLANE "IODeviceTree"

io_registry_entry_t IORegistryGetRootEntry(mach_port_t masterPort);
CFTypeRef IORegistryEntrySearchCFProperty(io_registry_entry_t entry, const char plane[128], CFStringRef key,
                                          CFAllocatorRef allocator, uint32_t options);
kern_return_t IOObjectRelease(io_object_t object);

// --- GraphicsServices (iOS 2 and later; in the stubs of the iOS 13.7 to 16.5 SDKs) ---------

// The main screen's pixels per point, as the system's device facts give it. Unlike UIScreen it
// needs no UIKit application, so it answers in backboardd too. It returns a 32-bit float on arm64
// and arm64e as on armv7 (GraphicsServices keeps the scale as a float and returns it in s0, on
// iOS 13 to 16 alike): declared as CGFloat (a double on 64-bit) the caller would read d0, whose
// upper half is zero after a write to s0, and see 2.0f as a denormal near 0 instead of 2.
float GSMainScreenScaleFactor(void);

// --- QuartzCore render server (iOS 7 and later) -----------------------------------------------

// Renders the display named `name` ("LCD") into `surface` (an IOSurfaceRef).
void CARenderServerRenderDisplay(mach_port_t server, CFStringRef name, void* surface, int x, int y);

// --- SpringBoardServices (loaded with dlopen; iOS 3 and later) ----------------------------------

#define TACTORA_SPRINGBOARDSERVICES_PATH \
    "/System/Library/PrivateFrameworks/SpringBoardServices.framework/SpringBoardServices"
typedef int (*SBSLaunchApplicationWithIdentifierFunction)(CFStringRef identifier, Boolean suspended);

#ifdef __cplusplus
}
#endif

#ifdef __OBJC__

// --- backboardd (BackBoardServices / backboardd itself) -------------------------------------

// backboardd is recognised by its bundle identifier or its executable (BackboarddStartup.mm): its
// old application class BKApplication is in no class dump of backboardd for iOS 13.5 to 16.4.

// The idle timer of backboardd: told about user activity so the screen stays on. iOS 7 and later
// (usr/libexec/backboardd/BKUserEventTimer.h in the class dumps of iOS 13.5.1, 14.0, 15.5 and
// 16.4, each with +sharedInstance and -userEventOccurredOnDisplay:).
@interface BKUserEventTimer : NSObject
+ (instancetype)sharedInstance;
- (void)userEventOccurredOnDisplay:(id)display;
@end

// QuartzCore's window server, running in backboardd. iOS 6 and later.
@interface CAWindowServerDisplay : NSObject
@property (readonly) CGRect bounds;
@end
@interface CAWindowServer : NSObject
+ (instancetype)serverIfRunning;
- (CAWindowServerDisplay*)displayWithName:(NSString*)name;
@end

// --- LaunchServices (CoreServices.framework) ----------------------------------------------------

// The application registry, the source of the installed-application list since iOS 8 took away
// the installation cache file (/var/mobile/Library/Caches/com.apple.mobile.installation.plist)
// together with MobileInstallationLookup. Looked up by name: the SDK 14.5 stubs list
// LSApplicationWorkspace, LSApplicationProxy and LSBundleProxy among the Objective-C classes of
// CoreServices (and of MobileCoreServices, which re-exports it), but the tweak does not link
// either. Every selector below is in the class dumps of CoreServices for iOS 13.5.1, 14.0 and 15.5
// (LSApplicationWorkspace.h, LSApplicationProxy.h, LSBundleProxy.h); none was at hand for 16, so
// each is asked with respondsToSelector: first.
@interface LSBundleProxy : NSObject
@property (readonly, nonatomic) NSString* bundleIdentifier;
@property (readonly, nonatomic) NSURL* bundleURL;
@property (readonly, nonatomic) NSString* bundleExecutable;
@property (readonly, nonatomic) NSString* bundleVersion;
@property (readonly, nonatomic) NSURL* dataContainerURL;
@property (readonly, nonatomic) NSDictionary* entitlements;
- (NSString*)localizedName;
@end

@interface LSApplicationProxy : LSBundleProxy
@property (readonly, nonatomic) NSString* applicationIdentifier;
@property (readonly, nonatomic) NSString* applicationType;  // "User", "System", "Internal", ...
@property (readonly, nonatomic) NSString* shortVersionString;
@end

@interface LSApplicationWorkspace : NSObject
+ (instancetype)defaultWorkspace;
- (NSArray<LSApplicationProxy*>*)allInstalledApplications;
// Placeholders (applications still downloading) included.
- (NSArray<LSApplicationProxy*>*)allApplications;
@end

// --- SpringBoard ----------------------------------------------------------------------------

// SpringBoard's application class. It is told when the interface turns, in one of three forms
// (iOS 5-8; iOS 9 and later; iOS 11 and later). The class dumps of SpringBoard for iOS 13.5.1, 14.0
// and 15.5 hold both of the later two; each hook is installed where its selector exists.
@interface SpringBoard : UIApplication
// iOS 5 to iOS 8.
- (void)noteInterfaceOrientationChanged:(UIInterfaceOrientation)orientation duration:(double)duration;
// iOS 9 and later.
- (void)noteInterfaceOrientationChanged:(UIInterfaceOrientation)orientation
                               duration:(double)duration
                             logMessage:(NSString*)message;
// iOS 11 and later.
- (void)noteInterfaceOrientationChanged:(UIInterfaceOrientation)orientation
                               duration:(double)duration
                 updateMirroredDisplays:(BOOL)updateMirroredDisplays
                                  force:(BOOL)force
                             logMessage:(NSString*)message;
@end

// Process state of an application: iOS 9 and later.
@interface SBApplicationProcessState : NSObject
@property (readonly) int pid;
@property (getter=isForeground, readonly) BOOL foreground;
@property (getter=isRunning, readonly) BOOL running;
@end

@interface SBApplication : NSObject
// iOS 5 to iOS 8.
- (int)pid;
- (int)activationState;
// iOS 9 and later.
- (SBApplicationProcessState*)processState;
@end

@interface SBApplicationController : NSObject
+ (instancetype)sharedInstance;
// iOS 5 to iOS 7.
- (SBApplication*)applicationWithDisplayIdentifier:(NSString*)identifier;
// iOS 8 and later.
- (SBApplication*)applicationWithBundleIdentifier:(NSString*)identifier;
@end

#endif  // __OBJC__
