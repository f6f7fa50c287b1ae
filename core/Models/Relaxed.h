#pragma once

#include <atomic>

namespace tactora {

// A value that the main thread and the script thread share without a lock. Reads and writes are
// relaxed atomics: lock-free like the plain fields they stand for, but not a data race. Copying
// copies the current value.
template <class T>
class Relaxed {
public:
    Relaxed(T value = T{}) : value_(value) {}
    Relaxed(const Relaxed& other) : value_(other.get()) {}
    Relaxed& operator=(const Relaxed& other) {
        set(other.get());
        return *this;
    }
    T get() const { return value_.load(std::memory_order_relaxed); }
    void set(T value) { value_.store(value, std::memory_order_relaxed); }

private:
    std::atomic<T> value_;
};

}  // namespace tactora
