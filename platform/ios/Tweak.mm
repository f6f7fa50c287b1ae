// The load-time entry of the tweak: CydiaSubstrate loads the dylib into SpringBoard and backboardd
// (see Tactora.plist); each process starts its own half.
#import <Foundation/Foundation.h>

#include "ios/BackboarddStartup.h"
#include "ios/IOSPlatform.h"
#include "ios/SelfTestStartup.h"
#include "ios/SpringBoardStartup.h"

__attribute__((constructor)) static void tactoraLoaded() {
    @autoreleasepool {
        tactora::ios::installPorts();
        tactora::ios::startSelfTest();
        tactora::ios::startBackboardd();
        tactora::ios::startSpringBoard();
    }
}
