#include "host/FileUserDefaults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Platform/DiagnosticLog.h"
#include "Platform/Platform.h"

namespace tactora::host {

namespace {

using json = nlohmann::json;

enum class Load { missing, parsed, corrupt };

// Reads the file into `object`; anything but a JSON object counts as corrupt.
Load loadObject(const std::string& path, json& object) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return Load::missing;
    std::stringstream text;
    text << in.rdbuf();
    json parsed = json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
    if (parsed.is_discarded() || !parsed.is_object()) return Load::corrupt;
    object = std::move(parsed);
    return Load::parsed;
}

std::optional<DefaultsValue> toValue(const json& value) {
    if (value.is_boolean()) return DefaultsValue(value.get<bool>());
    if (value.is_number_integer()) return DefaultsValue(value.get<std::int64_t>());
    if (value.is_number_float()) return DefaultsValue(value.get<double>());
    if (value.is_string()) return DefaultsValue(value.get<std::string>());
    return std::nullopt;
}

json toJson(const DefaultsValue& value) {
    return std::visit([](const auto& v) { return json(v); }, value);
}

bool writeAll(int fd, const std::string& data) {
    const char* p = data.data();
    std::size_t left = data.size();
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        left -= std::size_t(n);
    }
    return true;
}

// Replaces `path` with `data` so that a crash leaves the old or the new file, never a mix.
bool replaceFile(const std::string& path, const std::string& data) {
    std::string temporary = path + ".tmp." + std::to_string(::getpid());
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool ok = writeAll(fd, data) && ::fsync(fd) == 0;
    ok = ::close(fd) == 0 && ok;
    if (!ok || ::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    // The rename itself is durable only once the directory is flushed.
    std::string directory = std::filesystem::path(path).parent_path().string();
    int dirFd = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return true;
}

// Removes temporary files that writers killed halfway left behind. Only call under the file
// lock: every writer holds it while its temporary file exists.
void removeLeftovers(const std::string& path) {
    std::filesystem::path file(path);
    const std::string prefix = file.filename().string() + ".tmp.";
    std::error_code error;
    std::filesystem::directory_iterator entries(file.parent_path().empty() ? "." : file.parent_path(), error);
    for (std::filesystem::directory_iterator end; !error && entries != end; entries.increment(error)) {
        if (entries->path().filename().string().rfind(prefix, 0) == 0) std::filesystem::remove(entries->path(), error);
    }
}

// Holds an exclusive advisory lock on `path` + ".lock" for its lifetime.
class FileLock {
public:
    explicit FileLock(const std::string& path) {
        fd_ = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd_ >= 0) {
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FileLock() {
        if (fd_ >= 0) ::close(fd_);  // closing releases the lock
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

private:
    int fd_ = -1;
};

}  // namespace

FileUserDefaults::FileUserDefaults(std::string path) : path_(std::move(path)) {}

std::optional<DefaultsValue> FileUserDefaults::objectForKey(const std::string& key) const {
    std::lock_guard lock(mutex_);
    json object = json::object();
    if (loadObject(path_, object) != Load::parsed) return std::nullopt;
    auto found = object.find(key);
    if (found == object.end()) return std::nullopt;
    return toValue(*found);
}

template <class Change>
void FileUserDefaults::change(Change&& apply) {
    std::lock_guard lock(mutex_);
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
    FileLock fileLock(path_);
    removeLeftovers(path_);
    json object = json::object();
    if (loadObject(path_, object) == Load::corrupt) {
        std::string aside = path_ + ".corrupt";
        if (::rename(path_.c_str(), aside.c_str()) == 0) {
            TACTORA_DIAGNOSTIC("FileUserDefaults::change", "the user defaults did not parse; moved aside to " + aside);
        }
        object = json::object();
    }
    apply(object);
    if (!replaceFile(path_, object.dump(2) + "\n")) {
        TACTORA_DIAGNOSTIC("FileUserDefaults::change", "cannot write the user defaults " + path_);
    }
}

void FileUserDefaults::setObject(const std::string& key, const DefaultsValue& value) {
    change([&](json& object) { object[key] = toJson(value); });
}

void FileUserDefaults::removeObject(const std::string& key) {
    change([&](json& object) { object.erase(key); });
}

}  // namespace tactora::host
