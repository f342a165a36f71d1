#pragma once

#include <string>

/// Sees the names of this process's threads as a debugger would. One at a time.
class ThreadNameWatch
{
public:
    ThreadNameWatch();
    ~ThreadNameWatch();
    ThreadNameWatch(const ThreadNameWatch&) = delete;
    ThreadNameWatch& operator=(const ThreadNameWatch&) = delete;

    /// Whether a thread has been given that name; of a long one, what the system keeps of it.
    bool HasSeen(const std::string& aName) const;
};
