#pragma once

#include <mutex>
#include <utility>

namespace tapedesk {

// A value written on one thread and read on another (the workflows run their
// tools on the thread pool while the window reads the same state). Every access
// copies under one lock, so readers never see half of a write.
template <class T> class Synchronized
{
public:
    Synchronized() = default;
    explicit Synchronized(T initial) : m_value(std::move(initial)) {}
    Synchronized(const Synchronized &) = delete;
    Synchronized &operator=(const Synchronized &) = delete;

    T get() const
    {
        std::lock_guard lock(m_mutex);
        return m_value;
    }

    void set(T value)
    {
        std::lock_guard lock(m_mutex);
        m_value = std::move(value);
    }

    // Read-modify-write in one critical section.
    template <class F> auto with(F &&f)
    {
        std::lock_guard lock(m_mutex);
        return std::forward<F>(f)(m_value);
    }

    template <class F> auto with(F &&f) const
    {
        std::lock_guard lock(m_mutex);
        return std::forward<F>(f)(static_cast<const T &>(m_value));
    }

private:
    mutable std::mutex m_mutex;
    T m_value{};
};

} // namespace tapedesk
