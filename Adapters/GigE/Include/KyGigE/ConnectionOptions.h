#pragma once

#include <cstdint>

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
};

} // namespace KyGigE
