#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tactora::host {

// Follows a text file that another part of the system appends to (the script log, the touch
// trace) and hands its new complete lines to a callback, on a thread of its own. The file may
// not exist yet, may be replaced, or may be cut short: reading then starts again at its start.
class FileTail {
public:
    using Lines = std::function<void(const std::vector<std::string>& lines)>;

    // `fromStart`: hand over what the file holds already; otherwise only what is added later.
    FileTail(std::string path, Lines onLines, bool fromStart = false,
             std::chrono::milliseconds interval = std::chrono::milliseconds(100));
    ~FileTail();
    FileTail(const FileTail&) = delete;
    FileTail& operator=(const FileTail&) = delete;

    // Reads what is new now, on the calling thread (tests; the thread does the same on its own).
    void poll();

private:
    void run();

    const std::string path_;
    const Lines onLines_;
    const std::chrono::milliseconds interval_;
    std::mutex mutex_;  // one poll at a time
    std::uintmax_t offset_ = 0;
    std::uintmax_t inode_ = 0;
    std::string partial_;  // the start of a line whose end has not been written yet
    std::mutex stopMutex_;
    std::condition_variable stopSignal_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace tactora::host
