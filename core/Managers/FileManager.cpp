#include "Managers/FileManager.h"

#include <filesystem>
#include <string_view>
#include <system_error>

#include "Platform/Alerts.h"
#include "Platform/Languages.h"
#include "Platform/Paths.h"
#include "Platform/Platform.h"

namespace fs = std::filesystem;

namespace tactora {

namespace {

// The failure alert keeps its English title and button: it can appear before anything else of
// the system is usable.
void showError(const std::string& message) {
    AlertRequest alert;
    alert.title = "Error";
    alert.message = message;
    alert.cancelButton = "OK";
    platform().alerts->showAlert(std::move(alert));
}

// Creates `path` with its parents unless something already stands there. An existing entry is
// taken as it is, even if it is not a directory.
bool ensureDirectory(const std::string& path, std::string& failure) {
    std::error_code error;
    if (fs::exists(path, error)) return true;
    fs::create_directories(path, error);
    if (!error) return true;
    failure = platform().languages->fileErrorDescription(error.value(), path);
    return false;
}

}  // namespace

std::string FileManager::lowerCasedExtension(const std::string& path) {
    const auto slash = path.rfind('/');
    const std::string_view name = std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1);
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos) return {};
    std::string extension(name.substr(dot + 1));
    for (char& c : extension) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return extension;
}

bool FileManager::isScriptName(const std::string& path) {
    const std::string extension = lowerCasedExtension(path);
    return extension == "lua" || extension == "e";
}

std::string FileManager::scriptsDirectoryPath() { return platform().paths->map(devicepaths::scriptsDirectory); }

std::string FileManager::libraryDirectoryPath() { return platform().paths->map(devicepaths::libraryDirectory); }

bool FileManager::isScriptTitle(const std::string& title) {
    return !title.empty() && title != "." && title != ".." && title.find('/') == std::string::npos &&
           title.find('\0') == std::string::npos;
}

std::string FileManager::scriptPath(const std::string& title) { return scriptsDirectoryPath() + "/" + title; }

bool FileManager::prepareDirectories() {
    std::string failure;
    if (!ensureDirectory(scriptsDirectoryPath(), failure)) {
        showError("Failed to create Scripts directory. Info:" + failure);
        return false;
    }
    if (!ensureDirectory(libraryDirectoryPath(), failure)) {
        showError("Failed to create Library directory. Info:" + failure);
        return false;
    }
    return true;
}

std::vector<std::string> FileManager::getAllScriptFileTitles() {
    std::vector<std::string> titles;
    std::error_code error;
    fs::directory_iterator entries(scriptsDirectoryPath(), error);
    if (error) return titles;
    // Subdirectories count too: only the name decides what is a script.
    for (fs::directory_iterator end; entries != end;) {
        std::string name = entries->path().filename().string();
        if (isScriptName(name)) titles.push_back(std::move(name));
        entries.increment(error);
        if (error) return {};
    }
    return titles;
}

bool FileManager::fileIsDirectory(const std::string& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

}  // namespace tactora
