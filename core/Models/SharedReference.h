#pragma once

#include <memory>
#include <utility>
#include <mutex>

namespace tactora {

// A strong reference that one thread sets while another reads it. Copying a shared_ptr is two
// words, so it needs more than a relaxed atomic; libstdc++'s std::atomic<std::shared_ptr> guards
// itself with a bit of the pointer that ThreadSanitizer cannot see, so this holds the reference
// behind a mutex of its own, taken only for the copy.
template <class T>
class SharedReference {
public:
    std::shared_ptr<T> load() const {
        std::lock_guard lock(mutex_);
        return value_;
    }
    void store(std::shared_ptr<T> value) {
        std::shared_ptr<T> previous;
        {
            std::lock_guard lock(mutex_);
            previous = std::exchange(value_, std::move(value));
        }
        // `previous` may be the last reference: release it outside the lock.
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<T> value_;
};

}  // namespace tactora
