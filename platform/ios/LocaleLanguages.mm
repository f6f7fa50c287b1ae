#include "ios/LocaleLanguages.h"

#import <Foundation/Foundation.h>

namespace tactora::ios {

std::vector<std::string> LocaleLanguages::preferredLanguages() const {
    std::vector<std::string> languages;
    @autoreleasepool {
        for (NSString* language in [NSLocale preferredLanguages]) {
            if (const char* tag = [language UTF8String]) languages.emplace_back(tag);
        }
    }
    if (languages.empty()) languages.emplace_back("en");
    return languages;
}

}  // namespace tactora::ios
