#pragma once

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace tactora {

class Languages {
public:
    virtual ~Languages() = default;

    // The user's preferred languages, most preferred first, as platform language tags
    // ("en", "ja", "zh-Hans", "ja-JP"). Default: English only.
    virtual std::vector<std::string> preferredLanguages() const { return {"en"}; }

    // The system's own description, in the user's language, of a file operation on `path` that
    // failed with the POSIX error `posixError` (what follows "Info:" in a failure alert).
    // Default: the C library's text for the error.
    virtual std::string fileErrorDescription(int posixError, std::string_view path) const {
        (void)path;
        return std::strerror(posixError);
    }
};

}  // namespace tactora
