#pragma once

#include <string>
#include <vector>

namespace tactora {

class Languages {
public:
    virtual ~Languages() = default;

    // The user's preferred languages, most preferred first, as platform language tags
    // ("en", "ja", "zh-Hans", "ja-JP"). Default: English only.
    virtual std::vector<std::string> preferredLanguages() const { return {"en"}; }
};

}  // namespace tactora
