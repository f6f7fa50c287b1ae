#include "ios/LocaleLanguages.h"

#import <Foundation/Foundation.h>
#include <errno.h>

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

namespace {

// The Cocoa file-writing error Foundation itself reports for a POSIX error, so the text is the one
// NSFileManager and -writeToFile: would have shown ("You don't have permission to save the file
// “Scripts” in the folder “Tactora”.").
NSInteger cocoaWriteError(int posixError) {
    switch (posixError) {
        case EACCES:
        case EPERM: return NSFileWriteNoPermissionError;
        case ENOSPC:
        case EDQUOT: return NSFileWriteOutOfSpaceError;
        case EROFS: return NSFileWriteVolumeReadOnlyError;
        case EEXIST: return NSFileWriteFileExistsError;
        case ENAMETOOLONG: return NSFileWriteInvalidFileNameError;
        case ENOENT:
        case ENOTDIR: return NSFileNoSuchFileError;
        default: return NSFileWriteUnknownError;
    }
}

}  // namespace

std::string LocaleLanguages::fileErrorDescription(int posixError, std::string_view path) const {
    @autoreleasepool {
        NSMutableDictionary* info = [NSMutableDictionary dictionary];
        info[NSUnderlyingErrorKey] = [NSError errorWithDomain:NSPOSIXErrorDomain code:posixError userInfo:nil];
        NSString* file = [[NSString alloc] initWithBytes:path.data() length:path.size() encoding:NSUTF8StringEncoding];
        if (file) info[NSFilePathErrorKey] = file;
        NSError* error = [NSError errorWithDomain:NSCocoaErrorDomain code:cocoaWriteError(posixError) userInfo:info];
        if (const char* text = error.localizedDescription.UTF8String) return text;
    }
    return Languages::fileErrorDescription(posixError, path);
}

}  // namespace tactora::ios
