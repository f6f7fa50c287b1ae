#pragma once

#include <string>

namespace tactora {

// What the self-test reports about the installation itself, which no other port knows: where the
// package lives, which slice of the library runs, which of the libraries it relies on are there,
// and what the system is.
class Installation {
public:
    virtual ~Installation() = default;

    // "rootful" or "rootless" (the package under /var/jb). Default: "" (unknown).
    virtual std::string layout() const { return {}; }
    // The architecture of the code running now ("arm64", "arm64e", "x86_64"). Default: "".
    virtual std::string loadedSlice() const { return {}; }
    // The operating system and its version ("iOS 15.5"). Default: "".
    virtual std::string systemVersion() const { return {}; }
    // The device's model identifier ("iPhone12,1"). Default: "".
    virtual std::string deviceModel() const { return {}; }
    // Whether the event library (Activator) is loaded in this process. Default: false.
    virtual bool hasActivator() const { return false; }
    // Whether the bootstrap unlocking library (RocketBootstrap) is loaded. Default: false.
    virtual bool hasRocketBootstrap() const { return false; }
    // Whether the receiver's hook on the HID system's dispatch to its clients is in place (only
    // the receiving process knows). Default: false.
    virtual bool dispatchHookInstalled() const { return false; }
};

}  // namespace tactora
