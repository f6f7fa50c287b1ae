#include "ios/StandardUserDefaults.h"

#import <Foundation/Foundation.h>

namespace tactora::ios {

namespace {

NSString* string(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()] ?: @""; }

}  // namespace

std::optional<DefaultsValue> StandardUserDefaults::objectForKey(const std::string& key) const {
    @autoreleasepool {
        id object = [[NSUserDefaults standardUserDefaults] objectForKey:string(key)];
        if ([object isKindOfClass:[NSString class]]) return std::string([(NSString*)object UTF8String] ?: "");
        if (![object isKindOfClass:[NSNumber class]]) return std::nullopt;  // absent, or a type we never store
        CFNumberRef number = (__bridge CFNumberRef)object;
        if (CFGetTypeID(number) == CFBooleanGetTypeID()) return bool([(NSNumber*)object boolValue]);
        if (CFNumberIsFloatType(number)) return [(NSNumber*)object doubleValue];
        return std::int64_t([(NSNumber*)object longLongValue]);
    }
}

void StandardUserDefaults::setObject(const std::string& key, const DefaultsValue& value) {
    @autoreleasepool {
        id object = std::visit(
            [](const auto& v) -> id {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, bool>) return [NSNumber numberWithBool:v];
                else if constexpr (std::is_same_v<T, std::int64_t>) return [NSNumber numberWithLongLong:v];
                else if constexpr (std::is_same_v<T, double>) return [NSNumber numberWithDouble:v];
                else return string(v);
            },
            value);
        // Written out by the defaults system in its own time; no synchronize.
        [[NSUserDefaults standardUserDefaults] setObject:object forKey:string(key)];
    }
}

void StandardUserDefaults::removeObject(const std::string& key) {
    @autoreleasepool {
        [[NSUserDefaults standardUserDefaults] removeObjectForKey:string(key)];
    }
}

}  // namespace tactora::ios
