#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/// One way from one process to another, made before the fork.
class Channel
{
public:
    virtual ~Channel() = default;

    /// Sends all of it.
    virtual void Send(const void* aData, size_t aSize) = 0;

    /// \return Bytes received; 1 or more.
    virtual size_t Receive(void* aBuffer, size_t aSize) = 0;
};

std::unique_ptr<Channel> MakePipe();
std::unique_ptr<Channel> MakeUnixStream();
std::unique_ptr<Channel> MakeFifo(uint32_t aCapacity);
/// The straightforward form of the same.
std::unique_ptr<Channel> MakeByteFifo(uint32_t aCapacity);
/// How a futex is slept at.
enum class FutexSleep
{
    Plain,
    Timed,     ///< For 50 ms at a time, as a process has to that survives the death of its peer.
    YieldFirst ///< The processor is offered to others before.
};

/// No data: a word that is changed and waited for, the least that a round trip can cost.
std::unique_ptr<Channel> MakeFutex(FutexSleep aSleep);
/// Null where Boost is not installed. Message by message, up to aLargest bytes each.
std::unique_ptr<Channel> MakeBoostQueue(size_t aLargest, size_t aMessages);
