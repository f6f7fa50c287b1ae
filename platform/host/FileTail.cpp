#include "host/FileTail.h"

#include <sys/stat.h>

#include <fstream>

namespace tactora::host {

FileTail::FileTail(std::string path, Lines onLines, bool fromStart, std::chrono::milliseconds interval)
    : path_(std::move(path)), onLines_(std::move(onLines)), interval_(interval) {
    struct stat info {};
    if (!fromStart && ::stat(path_.c_str(), &info) == 0) {
        offset_ = static_cast<std::uintmax_t>(info.st_size);
        inode_ = info.st_ino;
    }
    thread_ = std::thread([this] { run(); });
}

FileTail::~FileTail() {
    {
        std::lock_guard lock(stopMutex_);
        stopping_ = true;
    }
    stopSignal_.notify_all();
    thread_.join();
}

void FileTail::run() {
    // Each look comes one interval after the one before, the first one interval after the start,
    // so a tail with a long interval moves only when poll() is called (the tests rely on it).
    std::unique_lock lock(stopMutex_);
    while (!stopSignal_.wait_for(lock, interval_, [this] { return stopping_; })) {
        lock.unlock();
        poll();
        lock.lock();
    }
}

void FileTail::poll() {
    std::lock_guard lock(mutex_);
    struct stat info {};
    if (::stat(path_.c_str(), &info) != 0) return;
    const auto size = static_cast<std::uintmax_t>(info.st_size);
    // Another file under the same name, or this one cut short: read it from its start.
    if (info.st_ino != inode_ || size < offset_) {
        inode_ = info.st_ino;
        offset_ = 0;
        partial_.clear();
    }
    if (size == offset_) return;
    std::ifstream in(path_, std::ios::binary);
    if (!in) return;
    in.seekg(static_cast<std::streamoff>(offset_));
    std::string added(size - offset_, '\0');
    in.read(added.data(), static_cast<std::streamsize>(added.size()));
    added.resize(static_cast<std::size_t>(in.gcount()));
    offset_ += added.size();

    std::vector<std::string> lines;
    std::string text = partial_ + added;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(std::move(line));
    }
    partial_ = text.substr(start);
    if (!lines.empty()) onLines_(lines);
}

}  // namespace tactora::host
