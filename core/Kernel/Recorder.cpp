#include "Kernel/Recorder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <unistd.h>

#include "Kernel/ScreenFunctions.h"
#include "Managers/FileManager.h"
#include "Models/Global.h"
#include "Platform/Alerts.h"
#include "Platform/Languages.h"
#include "Platform/Clock.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "Views/Localization.h"

namespace tactora {

namespace {

// The recording under way. Only the main loop touches it.
struct RecordingState {
    std::FILE* fileHandle = nullptr;
    std::optional<std::string> filePath;
    double lastEventTime = 0;  // ticks of the last event that wrote text; 0: none yet
};

RecordingState& state() {
    static RecordingState recording;
    return recording;
}

void closeFileHandle() {
    if (state().fileHandle) {
        std::fclose(state().fileHandle);
        state().fileHandle = nullptr;
    }
}

// The whole text, however long: a coordinate far off the screen still makes a complete line.
std::string format(const char* pattern, auto... values) {
    int length = std::snprintf(nullptr, 0, pattern, values...);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length), '\0');
    std::snprintf(text.data(), text.size() + 1, pattern, values...);
    return text;
}

std::string dateString() {
    std::tm now = platform().clock->localNow();
    char buffer[32];
    size_t length = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &now);
    return std::string(buffer, length);
}

std::string fileErrorDescription(int error, const std::string& path) {
    return platform().languages->fileErrorDescription(error, path);
}

void showCreateFailedAlert(const std::string& description) {
    AlertRequest alert;
    alert.title = localizedText("Error");
    alert.message = localizedText("Create script failed.Info:") + description;
    alert.cancelButton = localizedText("OK");
    platform().alerts->showAlert(std::move(alert));
}

}  // namespace

double convert_UnsignedWide_to_double(UnsignedWide value) {
    return static_cast<double>(value.hi) * 4294967296.0 + static_cast<double>(value.lo);
}

std::optional<std::string> recordingFilePath() { return state().filePath; }

std::string recordedLines(const HIDEvent& event, double screenWidth, double screenHeight) {
    std::string text;
    if (event.type == kIOHIDEventTypeKeyboard) {
        // The home button: consumer page, usage "menu".
        if (event.usagePage == 12 && event.usage == 64) {
            if (event.down == 1) text = "homeButtonDown();\n";
            else if (event.down == 0) text = "homeButtonUp();\n";
        }
    } else if (event.type == kIOHIDEventTypeDigitizer) {
        for (const HIDDigitizerChild& child : event.children) {
            double px = child.x * screenWidth;
            double py = child.y * screenHeight;
            int finger = static_cast<int>(child.index);
            bool touchChanged = child.eventMask & kIOHIDDigitizerEventTouch;
            bool moved = child.eventMask & kIOHIDDigitizerEventPosition;
            if (child.touch == 1 && touchChanged)
                text += format("\ntouchDown(%d, %.1f, %.1f);\n", finger, px, py);
            else if (child.touch == 1 && moved)
                text += format("touchMove(%d, %.1f, %.1f);\n", finger, px, py);
            else if (child.touch == 0 && touchChanged)
                text += format("touchUp(%d, %.1f, %.1f);\n", finger, px, py);
        }
    }
    return text;
}

void startRecording() {
    Global::sharedInstance().setIsRecording(true);
    RecordingState& recording = state();
    recording.lastEventTime = 0;
    recording.filePath.reset();
    FileManager::prepareDirectories();

    std::string date = dateString();
    auto [width, height] = getScreenSize();
    std::string header = "CREATETIME=\"" + date + "\";\n" +
                         format("SCREEN_RESOLUTION=\"%dx%d\";\n", static_cast<int>(width), static_cast<int>(height));
    recording.filePath = platform().paths->map(devicepaths::scriptsDirectory) + "/" + date + ".lua";

    if (std::FILE* out = std::fopen(recording.filePath->c_str(), "wb")) {
        bool written = std::fwrite(header.data(), 1, header.size(), out) == header.size();
        int error = errno;
        if (std::fclose(out) != 0 && written) {
            written = false;
            error = errno;
        }
        if (!written) showCreateFailedAlert(fileErrorDescription(error, *recording.filePath));
    } else {
        showCreateFailedAlert(fileErrorDescription(errno, *recording.filePath));
    }

    // A second start without a stop replaces the old handle.
    closeFileHandle();
    recording.fileHandle = std::fopen(recording.filePath->c_str(), "r+b");
    if (recording.fileHandle) {
        // Unbuffered: each event's text reaches the file in one write, or is taken back whole.
        std::setvbuf(recording.fileHandle, nullptr, _IONBF, 0);
        std::fseek(recording.fileHandle, 0, SEEK_END);
    }

    Global& global = Global::sharedInstance();
    if (!global.ioHIDEventSystem()) {
        global.setIoHIDEventSystem(platform().hidSource->startDelivering(&handle_events));
    }
}

void stopRecording() {
    Global& global = Global::sharedInstance();
    global.setIsRecording(false);
    state().lastEventTime = 0;
    state().filePath.reset();
    closeFileHandle();
    if (void* client = global.ioHIDEventSystem()) {
        platform().hidSource->stopDelivering(client);
        global.setIoHIDEventSystem(nullptr);
    }
}

void handle_events(const HIDEvent& event) {
    if (event.type == kIOHIDEventTypeDigitizer && event.children.empty()) return;
    auto [width, height] = getScreenSize();
    std::string text = recordedLines(event, width, height);
    if (text.empty()) return;

    RecordingState& recording = state();
    double t = convert_UnsignedWide_to_double(
        {static_cast<std::uint32_t>(event.timestamp), static_cast<std::uint32_t>(event.timestamp >> 32)});
    std::string prefix;
    if (recording.lastEventTime > 0)
        prefix = format("usleep(%.2f);\n", (t - recording.lastEventTime) / recorderTicksPerMicrosecond);
    if (std::FILE* file = recording.fileHandle) {
        std::string out = prefix + text;
        const long end = std::ftell(file);
        if (std::fwrite(out.data(), 1, out.size(), file) != out.size() && end >= 0) {
            // A full disk: cut the part that made it back off, so the script ends on its last
            // whole line and still loads; later events are written once there is room again.
            std::clearerr(file);
            if (::ftruncate(::fileno(file), end) == 0) std::fseek(file, end, SEEK_SET);
        }
    }
    recording.lastEventTime = t;
}

}  // namespace tactora
