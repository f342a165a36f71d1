#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <sys/types.h>

namespace KyBench
{

constexpr int cSlowTurns = 60;
constexpr size_t cFastBytes = size_t{2048} * 1024;
constexpr uint32_t cStreamBytes = 12;
constexpr auto cStreamPeriod = std::chrono::nanoseconds(1041667); // of 12 bytes at 115200 bit/s
constexpr int cStreamTurns = 1440;

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
    std::atomic<double> mOwnCpu{0}; ///< Seconds that making the load has taken in all, without the sending.
    std::atomic<int> mBusy{0};      ///< Orders that are not done.
};

/// A relay at work, to a device in another process.
class Subject
{
public:
    /// \param aName  "bridge", "socat" or "ser2net". \return Null: that one is not installed.
    static std::unique_ptr<Subject> Make(const std::string& aName);
    virtual ~Subject();

    /// The host's end.
    virtual int GetHostFile() const = 0;
    /// Seconds of processor time of the relay, less what making the load took in its process. Waits until the
    /// device has carried out the command.
    double GetCpuOfRelay() const;
    /// How often the relay's threads have gone to sleep.
    double GetSleepsOfRelay() const;
    Shared& GetShared() const { return *mShared; }

    /// What the device is to do from now on: 'r' note when bytes come, 'e' send them back; 's' send
    /// cSlowTurns single bytes 5 ms apart, 'f' send cFastBytes, 4096 every 2 ms, 'l' send cStreamTurns times
    /// cStreamBytes.
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
