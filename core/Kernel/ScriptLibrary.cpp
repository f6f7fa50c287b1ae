// The general script functions: paths, the script log, play-speed sleeps, alerts, feedback and
// applications, plus the end-of-script flush the bridge uses.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "Kernel/EventSimulate.h"
#include "Kernel/LuaBridge.h"
#include "Kernel/ScriptFunctions.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Apps.h"
#include "Platform/Clock.h"
#include "Platform/Feedback.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Platform/Queues.h"

namespace tactora {

namespace {

// Writes all of `text` to `fd`, retrying short writes; gives up quietly on an error, because a
// log line that cannot be written is simply lost.
void writeAll(int fd, const std::string& text) {
    const char* data = text.data();
    size_t left = text.size();
    while (left > 0) {
        ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        data += written;
        left -= static_cast<size_t>(written);
    }
}

}  // namespace

const char* rootPathOfDocuments() {
    // Callers copy the text at once; one buffer per thread keeps two script threads apart.
    thread_local std::string path;
    path = platform().paths->map(devicepaths::scriptsDirectory) + "/";
    return path.c_str();
}

void logging(const char* text) {
    std::tm now = platform().clock->localNow();
    char stamp[32];
    if (std::strftime(stamp, sizeof stamp, "%m-%d %H:%M:%S", &now) == 0) stamp[0] = '\0';
    std::string line = std::string(stamp) + " " + text + "\n";

    std::string path = platform().paths->map(devicepaths::logFile);
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        // An existing log is appended to; if it cannot be opened the line is lost. Without
        // O_NONBLOCK a pipe put in the log's place would hold the script until someone reads it.
        int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) return;
        if (::lseek(fd, 0, SEEK_END) >= 0) writeAll(fd, line);
        ::close(fd);
        return;
    }
    // The first line creates the file; a missing Library directory just drops it.
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return;
    writeAll(fd, line);
    ::close(fd);
}

void logging2(const char* format, ...) {
    // The limit handed to the formatter counts the terminating zero, so at most 4094 bytes of
    // text survive; the last byte of the buffer is zeroed whatever the formatter did.
    char buffer[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, 4095, format, arguments);
    va_end(arguments);
    buffer[sizeof buffer - 1] = '\0';
    logging(buffer);
}

void customUsleep(unsigned us) {
    auto settings = Global::sharedInstance().currentPlaySettings();
    float speed = settings ? settings->playSpeed() : 1.0f;
    // Linear in the speed and computed in single precision: 2.0 and above remove the pause.
    float delay = static_cast<float>(us) * (2.0f - speed);
    std::uint32_t microseconds;
    if (!(delay > 0.0f)) {
        microseconds = 0;  // negative (speed above 2) or not a number
    } else if (delay >= 4294967296.0f) {
        microseconds = std::numeric_limits<std::uint32_t>::max();
    } else {
        microseconds = static_cast<std::uint32_t>(delay);
    }
    // A stop wakes the pause at once, however long it was to last; the caller raises it.
    platform().clock->sleepMicrosecondsUnless(microseconds, stopRequested);
}

void alert(const char* text) {
    // The caller's text may be gone by the time the main thread builds the alert.
    std::string message(text);
    platform().queues->runOnMain([message = std::move(message)] {
        AlertRequest request;
        request.message = message;
        request.cancelButton = "OK";
        platform().alerts->showAlert(std::move(request));
    });
}

void vibrate() { platform().feedback->vibrate(); }

void playAudio() { platform().feedback->playBundledSound(); }

void appRun(const char* bundleId) {
    // The launch service can take seconds to answer while the app starts. The script waits for
    // it, but a stop does not: the launch finishes on its own thread and the run ends at once.
    struct Launch {
        std::mutex mutex;
        std::condition_variable finished;
        bool done = false;
    };
    auto launch = std::make_shared<Launch>();
    Apps* apps = platform().apps;
    try {
        std::thread([launch, apps, id = std::string(bundleId)] {
            apps->launch(id);
            {
                std::lock_guard lock(launch->mutex);
                launch->done = true;
            }
            launch->finished.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        // No thread to spare: launch here, as a plain call would.
        apps->launch(bundleId);
        return;
    }
    // The stop word has no wakeup of its own here; looking every few milliseconds keeps a stop
    // well inside what a person notices and costs nothing beside a launch.
    std::unique_lock lock(launch->mutex);
    while (!launch->done && !stopRequested()) launch->finished.wait_for(lock, std::chrono::milliseconds(5));
}

void appKill(const char* bundleId) { platform().apps->terminate(bundleId); }

bool appIsActive(const char* bundleId) { return platform().apps->isForeground(bundleId); }

void lastSync() {
    EventSimulate::syncEvent();
    // The receiver needs a moment to dispatch the last touches; this pause ignores the speed.
    platform().clock->sleepMicroseconds(16000);
}

}  // namespace tactora
