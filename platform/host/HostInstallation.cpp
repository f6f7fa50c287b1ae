#include "host/HostInstallation.h"

#include <sys/utsname.h>

namespace tactora::host {

std::string HostInstallation::loadedSlice() const {
    // The code that runs, not the machine it runs on (a 32-bit build on a 64-bit kernel).
#if defined(__x86_64__)
    return "x86_64";
#elif defined(__aarch64__)
    return "arm64";
#elif defined(__i386__)
    return "i386";
#else
    utsname name{};
    return ::uname(&name) == 0 ? name.machine : "";
#endif
}

std::string HostInstallation::systemVersion() const {
    utsname name{};
    if (::uname(&name) != 0) return {};
    return std::string(name.sysname) + " " + name.release;
}

}  // namespace tactora::host
