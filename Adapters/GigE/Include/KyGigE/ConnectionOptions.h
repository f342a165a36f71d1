#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace KyGigE
{

/// How long a command may take.
struct ControlTimes
{
    uint32_t mTimeout = 200;   ///< Milliseconds until a command is sent again.
    uint32_t mAttempts = 4;    ///< How often it is sent; then the device counts as lost.
    uint32_t mPending = 10000; ///< The most that a device may ask for in all, in milliseconds.
};

/// How a device is kept.
struct ConnectionOptions
{
    ControlTimes mControl;
    uint32_t mHeartbeatPeriod = 500;   ///< Milliseconds between two signs of life.
    uint32_t mHeartbeatTimeout = 3000; ///< After which the device gives up an application that is silent.
    /// After which the device sends an event again, in milliseconds. An I2C bus waits 50 ms for an answer,
    /// which therefore has to be in time although it was lost once, or twice.
    uint32_t mEventTimeout = 15;
    uint32_t mEventRetries = 60; ///< How often it does. In all it should stay below a second.
    bool mReconnect = true;      ///< Connect again by itself when the device is back.
    /// Take no control of the device, which another application may have: registers and features can be read,
    /// nothing can be written, and no events come.
    bool mReadOnly = false;
    /// Milliseconds for a connection as a whole, whatever the device answers to single commands; 0: no limit.
    uint32_t mConnectLimit = 30000;
    /// Set to true by any thread, it ends what is going on: Connect() and operations that wait for the device
    /// return NO_CONNECTION within a quarter of a second, and all later ones at once. The device is given
    /// back without waiting for its answer. Null: nobody can.
    std::shared_ptr<const std::atomic<bool>> mCancel{};
};

} // namespace KyGigE
