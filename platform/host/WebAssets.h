#pragma once

#include <string_view>
#include <vector>

namespace tactora::host {

// One file of the simulator's page, compiled into the binary from platform/host/web.
struct WebAsset {
    std::string_view path;  // "/index.html"
    std::string_view contentType;
    std::string_view body;
};

const std::vector<WebAsset>& webAssets();

}  // namespace tactora::host
