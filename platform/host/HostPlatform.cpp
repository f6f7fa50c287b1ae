#include "host/HostPlatform.h"

#include "Kernel/CaptureScreen.h"
#include "Platform/MessagePorts.h"
#include "Platform/Platform.h"
#include "host/ConsoleAlerts.h"
#include "host/EnvLanguages.h"
#include "host/FileUserDefaults.h"
#include "host/HostClock.h"
#include "host/HostFeedback.h"
#include "host/HostPaths.h"
#include "host/MainLoop.h"
#include "host/OpenSSLCrypto.h"
#include "host/SimulatedApps.h"
#include "host/PngCodec.h"
#include "host/SimulatedDeviceInfo.h"
#include "host/SimulatedDisplay.h"
#include "host/StderrDiagnosticLog.h"
#include "host/UnixMessagePorts.h"

namespace tactora::host {

struct HostPlatform::Ports {
    explicit Ports(const HostOptions& options)
        : paths(chooseRoot(options.root)),
          log({}, !options.verbose),
          queues(loop),
          messagePorts(paths.root(), &loop),
          profile(chooseProfile(options.device, problems)),
          display(profile),
          deviceInfo(profile),
          userDefaults(paths.map(userDefaultsDevicePath)),
          languages(options.language) {
        std::vector<std::shared_ptr<const Frame>> frames;
        for (const auto& path : options.screens) {
            std::string error;
            if (auto frame = loadFrame(path, error))
                frames.push_back(std::move(frame));
            else
                problems.push_back(error);
        }
        display.setFrameSource(sequenceOfFrames(std::move(frames)));
        // Vibration and sound lines are the device's feedback, not the tool's output.
        feedback.setQuiet(!options.verbose);
        installPackageFiles(paths);
    }

    static DeviceProfile chooseProfile(const std::string& name, std::vector<std::string>& problems) {
        if (auto profile = findDeviceProfile(name)) return *profile;
        problems.push_back("unknown device profile " + name + "; using iphone-se");
        return deviceProfiles().front();
    }

    std::vector<std::string> problems;

    MainLoop loop;
    HostPaths paths;
    StderrDiagnosticLog log;
    HostClock clock;
    HostQueues queues;
    OpenSSLCrypto crypto;
    SimulatedApps apps;
    HostFeedback feedback;
    UnixMessagePorts messagePorts;
    DeviceProfile profile;
    SimulatedDisplay display;
    SimulatedDeviceInfo deviceInfo;
    PngCodec codec;
    FileUserDefaults userDefaults;
    EnvLanguages languages;
    ConsoleAlerts alerts;
};

HostPlatform::HostPlatform(const HostOptions& options) : ports_(std::make_unique<Ports>(options)) {
    Platform& p = platform();
    p.paths = &ports_->paths;
    p.diagnosticLog = &ports_->log;
    p.clock = &ports_->clock;
    p.queues = &ports_->queues;
    p.crypto = &ports_->crypto;
    p.apps = &ports_->apps;
    p.feedback = &ports_->feedback;
    p.messagePorts = &ports_->messagePorts;
    p.display = &ports_->display;
    p.deviceInfo = &ports_->deviceInfo;
    p.imageCodec = &ports_->codec;
    p.userDefaults = &ports_->userDefaults;
    p.languages = &ports_->languages;
    p.alerts = &ports_->alerts;
    // The cached scale factor belongs to the previous device, if any.
    reset_screen_scale_factor();
    for (const auto& problem : ports_->problems) ports_->log.write(problem, __FILE__, __LINE__, "HostPlatform");
}

HostPlatform::~HostPlatform() { resetPlatform(); }

MainLoop& HostPlatform::mainLoop() { return ports_->loop; }

SimulatedApps& HostPlatform::apps() { return ports_->apps; }

HostFeedback& HostPlatform::feedback() { return ports_->feedback; }

const std::string& HostPlatform::root() const { return ports_->paths.root(); }

SimulatedDisplay& HostPlatform::display() { return ports_->display; }

const std::vector<std::string>& HostPlatform::problems() const { return ports_->problems; }

}  // namespace tactora::host
