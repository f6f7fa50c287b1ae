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
// SpringBoardServices; backboardd classes; SpringBoard classes.
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
void IOHIDEventAppendEvent(IOHIDEventRef event, IOHIDEventRef child);
void IOHIDEventSetIntegerValue(IOHIDEventRef event, IOHIDEventField field, int value);
void IOHIDEventSetFloatValue(IOHIDEventRef event, IOHIDEventField field, IOHIDFloat value);
int IOHIDEventGetIntegerValue(IOHIDEventRef event, IOHIDEventField field);
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

// The server side of one client connection, inside backboardd; iOS 7 and later (checked to
// iOS 14.5). The event system calls _IOHIDEventSystemConnectionDispatchEvent for every event it
// delivers to a connection; it is hooked, so it is looked up by its symbol name rather than
// declared for linking.
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

// backboardd's application class; its presence tells the tweak it runs in backboardd. iOS 6 and
// later.
@interface BKApplication : UIApplication
@end

// The idle timer of backboardd: told about user activity so the screen stays on. iOS 7 and later.
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

// --- SpringBoard ----------------------------------------------------------------------------

// SpringBoard's application class. It is told when the interface turns, in one of three forms
// (the later two as seen in iOS 9-10 and iOS 11-14 class dumps); each hook is installed only where
// its selector exists.
@interface SpringBoard : UIApplication
// iOS 5 to iOS 8.
- (void)noteInterfaceOrientationChanged:(UIInterfaceOrientation)orientation duration:(double)duration;
// iOS 9 and 10.
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
