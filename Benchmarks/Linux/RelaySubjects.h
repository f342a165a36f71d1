#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <sys/types.h>

namespace KyBench
{

constexpr int cSlowTurns = 60;
constexpr size_t cFastBytes = 2048 * 1024;

inline int64_t GetNanoseconds()
{
    timespec lNow{};
    ::clock_gettime(CLOCK_MONOTONIC, &lNow);
    return int64_t{lNow.tv_sec} * 1000000000 + lNow.tv_nsec;
}

/// What the device's process shows the one that measures.
struct Shared
{
    std::atomic<uint32_t> mReceived{0}; ///< Bytes that have come from the host.
    std::atomic<int64_t> mWhen{0};      ///< When the last byte came, or when one was sent to the host.
    std::atomic<double> mOwnCpu{0};     ///< Seconds that went into making the load, in the relay's process.
};

/// A relay at work, with a device behind it in another process.
class Subject
{
public:
    /// \param aName  "bridge", "socat" or "ser2net". \return Null: that one is not installed.
    static std::unique_ptr<Subject> Make(const std::string& aName);
    virtual ~Subject();

    /// The host's end.
    virtual int GetHostFile() const = 0;
    pid_t GetRelay() const { return mRelay; }
    Shared& GetShared() const { return *mShared; }

    /// What the device is to do from now on: 'r' note when bytes come, 'e' send them back; 's' send
    /// cSlowTurns single bytes 5 ms apart, 'f' send cFastBytes, 4096 every 2 ms.
    void Tell(char aWhat) const;

protected:
    Subject();
    void EndAll();

    pid_t mRelay = -1;
    pid_t mDevice = -1; ///< The process with the device; the relay itself where it is a bridge.
    int mOrders[2] = {-1, -1};
    Shared* const mShared;
};

} // namespace KyBench
