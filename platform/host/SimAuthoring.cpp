// The simulator's authoring tools: open a screenshot in place of the scene, read a position and
// its colour, cut a template, try a search, and edit, run and stop a script. Every answer comes
// from the functions a script calls (getColor, screenshotRegion, findImage, the runner), on the
// capture the display gives them, so the page shows what the script will get.
#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Control/ScriptManager.h"
#include "Kernel/CaptureScreen.h"
#include "Kernel/ImageSearch.h"
#include "Kernel/ScreenFunctions.h"
#include "Models/Global.h"
#include "Platform/Display.h"
#include "Platform/ImageCodec.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"
#include "host/Simulator.h"

namespace tactora::host {

using nlohmann::json;
namespace fs = std::filesystem;

namespace {

// The fuzziness steps the page's slider offers: 0.50 to 1.00 by 0.01.
constexpr int lowestFuzzyStep = 50, fuzzySteps = 100;
// At most this many matches are listed; the count says when there are more.
constexpr std::int32_t listedMatches = 500;
constexpr std::size_t largestScript = 1 << 20;
constexpr std::size_t largestPicture = 30 << 20;

std::string hexColour(std::uint32_t colour) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%06X", colour & 0xFFFFFFu);
    return text;
}

std::string fuzzyText(double fuzzy) {
    char text[16];
    std::snprintf(text, sizeof text, "%.2f", fuzzy);
    return text;
}

std::string scriptsDirectory() { return platform().paths->map(devicepaths::scriptsDirectory); }

// A plain file name in the scripts directory with one of `extensions`: no directories, no
// hidden files, nothing a shell or a Lua string would need to quote.
std::string checkedName(const json& body, const char* key, std::initializer_list<const char*> extensions) {
    auto field = body.find(key);
    if (field == body.end() || !field->is_string())
        throw ApiError{400, std::string("\"") + key + "\" must be a file name"};
    const std::string name = *field;
    bool plain = !name.empty() && name.size() <= 120 && name.front() != '.' && name.front() != '-';
    for (char c : name)
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-')) plain = false;
    bool known = false;
    for (const char* extension : extensions) known = known || (plain && name.ends_with(extension) && name.size() > std::strlen(extension));
    if (!plain || !known) {
        std::string wanted;
        for (const char* extension : extensions) wanted += std::string(wanted.empty() ? "" : " or ") + extension;
        throw ApiError{400, "\"" + name + "\" is not a plain file name ending in " + wanted +
                                " (letters, digits, '.', '_' and '-')"};
    }
    return name;
}

double number(const json& body, const char* key) {
    auto field = body.find(key);
    if (field == body.end() || !field->is_number() || !std::isfinite(field->get<double>()))
        throw ApiError{400, std::string("\"") + key + "\" must be a number"};
    return *field;
}

std::int32_t wholeNumber(const json& body, const char* key, double lowest, double highest) {
    const double value = number(body, key);
    if (value != std::floor(value) || value < lowest || value > highest)
        throw ApiError{400, std::string("\"") + key + "\" must be a whole number from " + std::to_string(static_cast<long>(lowest)) +
                                " to " + std::to_string(static_cast<long>(highest))};
    return static_cast<std::int32_t>(value);
}

std::optional<std::string> readWhole(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// Writes by rename, so a reader never sees half a file and a failure leaves the old one whole.
void writeWhole(const fs::path& path, const std::string& text) {
    const fs::path partial = path.string() + ".saving";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush()) {
            std::error_code ignored;
            fs::remove(partial, ignored);
            throw ApiError{409, "cannot write " + path.filename().string()};
        }
    }
    std::error_code failed;
    fs::rename(partial, path, failed);
    if (failed) {
        fs::remove(partial, failed);
        throw ApiError{409, "cannot write " + path.filename().string()};
    }
}

std::optional<std::string> decodeBase64(const std::string& text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    std::size_t end = text.size();
    while (end > 0 && text[end - 1] == '=') --end;
    if (text.size() - end > 2) return std::nullopt;
    for (std::size_t i = 0; i < end; ++i) {
        const int v = value(text[i]);
        if (v < 0) return std::nullopt;
        bits = (bits << 6) | static_cast<std::uint32_t>(v);
        if (++count == 4) {
            bytes.push_back(static_cast<char>(bits >> 16));
            bytes.push_back(static_cast<char>(bits >> 8));
            bytes.push_back(static_cast<char>(bits));
            bits = 0;
            count = 0;
        }
    }
    if (count == 1) return std::nullopt;
    if (count == 2) bytes.push_back(static_cast<char>(bits >> 4));
    if (count == 3) {
        bytes.push_back(static_cast<char>(bits >> 10));
        bytes.push_back(static_cast<char>(bits >> 2));
    }
    return bytes;
}

PixelBufferPtr decodePng(const std::string& bytes) {
    return platform().imageCodec->decodePng(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

// The ignore list as the matcher takes it: the count, then the colours 0xRRGGBB.
std::vector<std::int32_t> ignoreList(const json& body) {
    std::vector<std::int32_t> list{0};
    auto field = body.find("ignoreColors");
    if (field == body.end() || field->is_null()) return list;
    if (!field->is_array() || field->size() > 64) throw ApiError{400, "\"ignoreColors\" must list at most 64 colours"};
    for (const auto& colour : *field) {
        if (!colour.is_number_integer() || colour.get<std::int64_t>() < 0 || colour.get<std::int64_t>() > 0xFFFFFF)
            throw ApiError{400, "each of \"ignoreColors\" must be a colour 0xRRGGBB (0 to 16777215)"};
        list.push_back(static_cast<std::int32_t>(colour.get<std::int64_t>()));
    }
    list[0] = static_cast<std::int32_t>(list.size() - 1);
    return list;
}

// How many places findImage finds, at most `limit`.
std::int64_t countMatches(const PixelBuffer* screen, const PixelBuffer* templ, std::int32_t limit,
                          const std::vector<std::int32_t>& ignore, float fuzzy) {
    MatchListPtr found(findImage(screen, templ, limit, ignore.data(), fuzzy));
    if (!found) throw ApiError{409, "not enough memory for the search"};
    return found->count;
}

}  // namespace

void Simulator::installAuthoring() {
    server_.post("screen/open", [this](const json& body) { return openPicture(body); });
    server_.post("screen/close", [this](const json&) { return closePicture(); });
    server_.post("pick", [this](const json& body) { return pick(body); });
    server_.post("template/cut", [this](const json& body) { return cutTemplate(body); });
    server_.post("template/list", [this](const json&) { return listTemplates(); });
    server_.post("search", [this](const json& body) { return search(body); });
    server_.post("script/read", [this](const json& body) { return readScript(body); });
    server_.post("script/save", [this](const json& body) { return saveScript(body); });
    server_.post("script/run", [this](const json& body) { return runScript(body); });
    server_.post("script/stop", [this](const json&) { return stopScript(); });
}

namespace {

// The screen shown now as a PNG file, exactly as a script's screenshot() writes it.
std::optional<std::string> currentScreenPng() {
    static std::atomic<unsigned> kept{0};  // two pages keeping a screen at once write two files
    const std::string device =
        std::string(devicepaths::libraryDirectory) + "/kept-screen-" + std::to_string(++kept) + ".png";
    const fs::path file = platform().paths->map(device);
    std::error_code ignored;
    fs::create_directories(file.parent_path(), ignored);
    fs::remove(file, ignored);
    screenshot(device.c_str());
    auto bytes = readWhole(file);
    fs::remove(file, ignored);
    return bytes;
}

}  // namespace

json Simulator::openPicture(const json& body) {
    std::optional<std::string> bytes;
    if (body.value("current", false)) {
        // The screen as it is now, kept still while the scene or a script moves on behind it.
        bytes = currentScreenPng();
        if (!bytes) throw ApiError{409, "the screen could not be captured"};
    } else {
        auto field = body.find("png");
        if (field == body.end() || !field->is_string())
            throw ApiError{400, "\"png\" must be the picture in base64 (or \"current\": true)"};
        if (field->get_ref<const std::string&>().size() > largestPicture / 3 * 4)
            throw ApiError{400, "the picture is larger than 30 MB"};
        bytes = decodeBase64(*field);
        if (!bytes) throw ApiError{400, "\"png\" is not base64"};
    }
    PixelBufferPtr pixels = decodePng(*bytes);
    if (!pixels) throw ApiError{400, "this is not a PNG picture that can be read"};
    const auto width = static_cast<int>(pixels->width), height = static_cast<int>(pixels->height);
    const std::string size = std::to_string(width) + " x " + std::to_string(height);

    // The device is the one whose screen has the picture's pixel size.
    std::vector<std::string> fits;
    auto fitsProfile = [&](const DeviceProfile& profile) {
        return profile.pixelWidth() == width && profile.pixelHeight() == height;
    };
    for (const auto& profile : deviceProfiles())
        if (fitsProfile(profile)) fits.push_back(profile.name);
    if (fitsProfile(profile_) && std::find(fits.begin(), fits.end(), profile_.name) == fits.end())
        fits.push_back(profile_.name);
    if (fits.empty()) {
        std::string known;
        for (const auto& profile : deviceProfiles())
            known += (known.empty() ? "" : ", ") + profile.name + " " + std::to_string(profile.pixelWidth()) + " x " +
                     std::to_string(profile.pixelHeight());
        throw ApiError{400, "a " + size + " picture is no phone screen this simulator knows (" + known + ")"};
    }
    if (!fitsProfile(profile_)) {
        std::string names;
        for (const auto& name : fits) names += (names.empty() ? "" : " or ") + name;
        throw ApiError{409, "a " + size + " picture is the screen of " + names + "; this simulator runs " +
                                profile_.name + " (" + std::to_string(profile_.pixelWidth()) + " x " +
                                std::to_string(profile_.pixelHeight()) + "): start it with --device " + fits.front()};
    }

    auto frame = std::make_shared<Frame>();
    frame->width = static_cast<std::uint32_t>(width);
    frame->height = static_cast<std::uint32_t>(height);
    frame->rgba.assign(pixels->data, pixels->data + pixels->bytesPerRow * pixels->height);
    auto opened = std::make_shared<OpenedPicture>();
    opened->frame = std::move(frame);
    opened->png = std::move(*bytes);
    opened->name = body.value("name", std::string(body.value("current", false) ? "the kept screen" : "screenshot.png")).substr(0, 120);
    {
        std::lock_guard lock(openedMutex_);
        opened_ = std::move(opened);
        ++openedChanges_;
    }
    server_.publish("screen", {{"name", scene_.currentScreen()}, {"version", screenVersion()}});
    return {{"device", profile_.name}, {"fits", fits}, {"width", width}, {"height", height}, {"version", screenVersion()}};
}

json Simulator::closePicture() {
    {
        std::lock_guard lock(openedMutex_);
        if (!opened_) throw ApiError{409, "no picture is open"};
        opened_.reset();
        ++openedChanges_;
    }
    server_.publish("screen", {{"name", scene_.currentScreen()}, {"version", screenVersion()}});
    return {{"version", screenVersion()}};
}

json Simulator::pick(const json& body) {
    const double x = number(body, "x"), y = number(body, "y");
    const Display::Size bounds = platform().display->bounds();
    if (x < 0 || y < 0 || x >= bounds.width || y >= bounds.height)
        throw ApiError{400, "the point is outside the screen"};
    // The pixel under the pointer, then the script's unit that holds it.
    const double scale = platform().display->scale(), factor = get_screen_scale_factor();
    const auto unitX = static_cast<std::int64_t>(std::floor(std::floor(x * scale) / factor));
    const auto unitY = static_cast<std::int64_t>(std::floor(std::floor(y * scale) / factor));
    const std::uint32_t colour = getColor(static_cast<double>(unitX), static_cast<double>(unitY));
    const std::string at = std::to_string(unitX) + ", " + std::to_string(unitY);
    json answer = {{"x", unitX},
                   {"y", unitY},
                   {"tap", "touchDown(1, " + at + "); usleep(50000); touchUp(1, " + at + ")"}};
    if (colour == 0xFFFFFFFFu) {
        answer["color"] = nullptr;
    } else {
        answer["color"] = colour;
        answer["hex"] = hexColour(colour);
        answer["check"] = "getColor(" + at + ") == " + hexColour(colour);
    }
    return answer;
}

json Simulator::cutTemplate(const json& body) {
    const std::string name = checkedName(body, "name", {".png"});
    const Display::Size bounds = platform().display->bounds();
    const double factor = get_screen_scale_factor(), scale = platform().display->scale();
    const double unitsWide = std::floor(bounds.width * scale / factor), unitsHigh = std::floor(bounds.height * scale / factor);
    const std::int32_t x = wholeNumber(body, "x", 0, unitsWide - 1), y = wholeNumber(body, "y", 0, unitsHigh - 1);
    const std::int32_t width = wholeNumber(body, "width", 1, unitsWide - x);
    const std::int32_t height = wholeNumber(body, "height", 1, unitsHigh - y);
    const fs::path file = fs::path(scriptsDirectory()) / name;
    if (fs::exists(file) && !body.value("replace", false))
        throw ApiError{409, name + " exists; choose another name or replace it"};
    std::error_code ignored;
    fs::create_directories(file.parent_path(), ignored);
    const fs::path partial = file.string() + ".cutting.png";
    fs::remove(partial, ignored);
    // The region exactly as a script's screenshotRegion would write it.
    screenshotRegion((std::string(devicepaths::scriptsDirectory) + "/" + partial.filename().string()).c_str(), x, y,
                     width, height);
    auto bytes = readWhole(partial);
    PixelBufferPtr pixels = bytes ? decodePng(*bytes) : nullptr;
    if (!pixels) {
        fs::remove(partial, ignored);
        throw ApiError{409, "the screen could not be captured"};
    }
    std::error_code failed;
    fs::rename(partial, file, failed);
    if (failed) {
        fs::remove(partial, ignored);
        throw ApiError{409, "cannot write " + name};
    }
    return {{"name", name},
            {"x", x},
            {"y", y},
            {"width", width},
            {"height", height},
            {"pixelWidth", pixels->width},
            {"pixelHeight", pixels->height}};
}

json Simulator::listTemplates() {
    json names = json::array();
    std::vector<std::string> found;
    std::error_code failed;
    for (fs::directory_iterator entry(scriptsDirectory(), failed), end; !failed && entry != end; entry.increment(failed)) {
        const std::string name = entry->path().filename().string();
        if (name.ends_with(".png") && name.front() != '.' && !name.ends_with(".cutting.png")) found.push_back(name);
    }
    std::sort(found.begin(), found.end());
    for (auto& name : found) names.push_back(name);
    return {{"templates", names}};
}

json Simulator::search(const json& body) {
    const std::string name = checkedName(body, "template", {".png"});
    const double fuzzy = body.contains("fuzzy") ? number(body, "fuzzy") : 1.0;
    if (fuzzy < 0 || fuzzy > 1) throw ApiError{400, "\"fuzzy\" must be from 0 to 1"};
    const std::vector<std::int32_t> ignore = ignoreList(body);
    const bool safe = body.value("safe", false);

    auto bytes = readWhole(fs::path(scriptsDirectory()) / name);
    if (!bytes) throw ApiError{404, "no template " + name + " in the scripts directory"};
    PixelBufferPtr templ = decodePng(*bytes);
    if (!templ) throw ApiError{400, name + " is not a PNG picture that can be read"};

    std::lock_guard lock(searchMutex_);
    // The matcher keeps its settings in process-wide values, which a playing script sets too.
    // A stopped run may still be inside a search until its interpreter is gone.
    if (Global::sharedInstance().isPlaying() || Global::sharedInstance().luaBridge())
        throw ApiError{409, "a script is playing; stop it to try a search"};
    // One capture for every search of this request, as findImage's own would be.
    PixelBufferPtr screen(getImageData(CaptureScreen::captureScreen()));
    if (!screen || screen->width == 0) throw ApiError{409, "the screen could not be captured"};

    MatchListPtr found(findImage(screen.get(), templ.get(), listedMatches + 1, ignore.data(), static_cast<float>(fuzzy)));
    if (!found) throw ApiError{409, "not enough memory for the search"};
    const double scale = platform().display->scale();
    json matches = json::array(), boxes = json::array();
    for (std::int64_t i = 0; i < std::min<std::int64_t>(found->count, listedMatches); ++i) {
        const MatchPoint point = found->points[i];
        matches.push_back({{"x", point.x}, {"y", point.y}});
        // findImage's points are pixel corners halved; the page draws in screen points.
        boxes.push_back({{"x", point.x * 2 / scale},
                         {"y", point.y * 2 / scale},
                         {"width", static_cast<double>(templ->width) / scale},
                         {"height", static_cast<double>(templ->height) / scale}});
    }
    std::string ignoreText;
    for (std::size_t i = 1; i < ignore.size(); ++i)
        ignoreText += (i > 1 ? ", " : "") + hexColour(static_cast<std::uint32_t>(ignore[i]));
    json answer = {{"template", name},
                   {"fuzzy", fuzzy},
                   {"count", std::min<std::int64_t>(found->count, listedMatches)},
                   {"more", found->count > listedMatches},
                   {"matches", matches},
                   {"boxes", boxes},
                   {"pixelWidth", templ->width},
                   {"pixelHeight", templ->height},
                   {"line", "findImage{imagePath = rootDir() .. \"" + name + "\", fuzzy = " + fuzzyText(fuzzy) +
                                (ignoreText.empty() ? "" : ", ignoreColors = {" + ignoreText + "}") + "}"}};
    if (!safe) return answer;

    // The loosest step at which the template is still found exactly once. Fewer places match as
    // the fuzziness rises, so the steps where it is found once (if any) run up to 1.00: bisect.
    const auto deadline = std::chrono::steady_clock::now() + options_.safeFuzzyBudget;
    auto once = [&](int step) {
        return countMatches(screen.get(), templ.get(), 2, ignore, static_cast<float>(step / 100.0)) <= 1;
    };
    json safeAnswer = nullptr;
    bool complete = true;
    if (countMatches(screen.get(), templ.get(), 2, ignore, 1.0f) == 1) {
        int low = lowestFuzzyStep, high = fuzzySteps;  // once(high) holds
        if (once(low)) {
            high = low;
        } else {
            while (high - low > 1) {
                if (std::chrono::steady_clock::now() > deadline) {
                    complete = false;
                    break;
                }
                const int middle = (low + high) / 2;
                (once(middle) ? high : low) = middle;
            }
        }
        safeAnswer = high / 100.0;
    }
    answer["safeFuzzy"] = safeAnswer;
    answer["safeFuzzyComplete"] = complete;
    return answer;
}

json Simulator::readScript(const json& body) {
    const std::string title = checkedName(body, "title", {".lua"});
    auto text = readWhole(fs::path(scriptsDirectory()) / title);
    if (!text) throw ApiError{404, "no script " + title + " in the scripts directory"};
    return {{"title", title}, {"text", *text}};
}

json Simulator::saveScript(const json& body) {
    const std::string title = checkedName(body, "title", {".lua"});
    auto text = body.find("text");
    if (text == body.end() || !text->is_string()) throw ApiError{400, "\"text\" must be the script's text"};
    if (text->get_ref<const std::string&>().size() > largestScript) throw ApiError{400, "the script is larger than 1 MB"};
    std::error_code ignored;
    fs::create_directories(scriptsDirectory(), ignored);
    writeWhole(fs::path(scriptsDirectory()) / title, *text);
    return {{"title", title}, {"saved", true}};
}

json Simulator::runScript(const json& body) {
    const std::string title = checkedName(body, "title", {".lua"});
    if (!fs::exists(fs::path(scriptsDirectory()) / title)) throw ApiError{404, "no script " + title + " in the scripts directory"};
    // A search under way ends before the script can search too.
    std::lock_guard lock(searchMutex_);
    auto [status, answer] = onMainLoop([&] {
        if (!playScriptOnce(title))
            return std::pair{409, json{{"error", "something plays or records; stop it first"}}};
        publishStateIfChanged();
        return std::pair{200, json{{"title", title}, {"playing", true}}};
    });
    if (status != 200) throw ApiError{status, answer.value("error", "refused")};
    return answer;
}

json Simulator::stopScript() {
    auto [status, answer] = onMainLoop([&] {
        if (!Global::sharedInstance().isPlaying()) return std::pair{409, json{{"error", "no script is playing"}}};
        ScriptManager::stopPlaying();
        publishStateIfChanged();
        return std::pair{200, json{{"stopping", true}}};
    });
    if (status != 200) throw ApiError{status, answer.value("error", "refused")};
    return answer;
}

std::optional<json> scriptErrorFromLogLine(const std::string& line, const std::string& scriptsDirectory) {
    // Lua names the chunk by its file, "/path/Scripts/name.lua:LINE: message", and keeps only the
    // end of a long path behind "...".
    const std::size_t colon = line.find(".lua:");
    if (colon == std::string::npos) return std::nullopt;
    const std::string directory = scriptsDirectory + "/";
    std::string chunk;
    if (const std::size_t at = line.find(directory); at != std::string::npos && at < colon) {
        chunk = line.substr(at, colon + 4 - at);
    } else if (const std::size_t dots = line.rfind("...", colon); dots != std::string::npos) {
        chunk = line.substr(dots + 3, colon + 4 - dots - 3);
    } else {
        return std::nullopt;
    }
    const std::size_t slash = chunk.rfind('/');
    if (slash == std::string::npos) return std::nullopt;
    const std::string title = chunk.substr(slash + 1);
    if (!(directory + title).ends_with(chunk)) return std::nullopt;
    std::size_t digits = colon + 5, end = digits;
    while (end < line.size() && std::isdigit(static_cast<unsigned char>(line[end]))) ++end;
    if (end == digits || end - digits > 9 || end + 1 >= line.size() || line[end] != ':' || line[end + 1] != ' ') return std::nullopt;
    return json{{"title", title}, {"line", std::stol(line.substr(digits, end - digits))}, {"message", line.substr(end + 2)}};
}

}  // namespace tactora::host
