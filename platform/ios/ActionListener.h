// The Activator listener of the tweak: an Objective-C object that Activator calls, passing every
// event on to the core's listener.
#pragma once

#import <Foundation/Foundation.h>
#include <libactivator/libactivator.h>

namespace tactora {
class LAListener;
}

@interface ActionListener : NSObject <LAListener>
- (instancetype)initWithListener:(tactora::LAListener*)listener;
@end
