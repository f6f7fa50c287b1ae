#include "ios/SystemFeedback.h"

#import <AVFoundation/AVFoundation.h>
#include <AudioToolbox/AudioToolbox.h>
#import <Foundation/Foundation.h>

#include "Platform/Paths.h"
#include "Platform/Platform.h"

namespace tactora::ios {

namespace {

// AudioToolbox: the system sound that vibrates (kSystemSoundID_Vibrate).
constexpr SystemSoundID vibrateSound = 4095;

NSURL* bundledSound() {
    // The running application's bundle first, then the package's own application directory.
    if (NSURL* url = [[NSBundle mainBundle] URLForResource:@"test" withExtension:@"m4a"]) return url;
    std::string package = platform().paths->map(devicepaths::packageDirectory);
    NSBundle* bundle = [NSBundle bundleWithPath:[NSString stringWithUTF8String:package.c_str()]];
    return [bundle URLForResource:@"test" withExtension:@"m4a"];
}

}  // namespace

void SystemFeedback::vibrate() { AudioServicesPlaySystemSound(vibrateSound); }

void SystemFeedback::playBundledSound() {
    @autoreleasepool {
        NSURL* url = bundledSound();
        if (!url) return;  // no sound installed: silent
        AVAudioPlayer* player = [[AVAudioPlayer alloc] initWithContentsOfURL:url error:nil];
        if (!player) return;
        player.numberOfLoops = -1;  // until the process ends
        [player play];
        // Nobody ever stops a player, but one that is released stops at once: keep them all.
        static NSMutableArray<AVAudioPlayer*>* playing = [NSMutableArray array];
        @synchronized(playing) {
            [playing addObject:player];
        }
    }
}

}  // namespace tactora::ios
