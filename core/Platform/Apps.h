#pragma once

#include <string>

namespace tactora {

// Applications by bundle identifier.
class Apps {
public:
    virtual ~Apps() = default;

    // Launches the application, not suspended. Unknown identifiers do nothing. Default: nothing.
    virtual void launch(const std::string& bundleId) { (void)bundleId; }
    // Terminates the application's process (SIGTERM) when it runs. Default: nothing.
    virtual void terminate(const std::string& bundleId) { (void)bundleId; }
    // True when the application is in the foreground. Default: false.
    virtual bool isForeground(const std::string& bundleId) const {
        (void)bundleId;
        return false;
    }
};

}  // namespace tactora
