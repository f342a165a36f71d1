#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace KySimulator
{

/// The camera's answer to an access. The numbers up to 0x8FFF are those of GigE Vision's acknowledge
/// messages, so that a network front can send them as they are.
enum class Status : uint32_t
{
    Ok = 0,
    NotImplemented = 0x8001,   ///< A feature that this camera does not have.
    InvalidParameter = 0x8002, ///< A value, length or message that does not fit.
    InvalidAddress = 0x8003,   ///< No such register, or not with this access.
    WriteProtect = 0x8004,     ///< Can only be read.
    BadAlignment = 0x8005,     ///< A register address that is no multiple of 4.
    AccessDenied = 0x8006,     ///< Can only be written, or not in the present state.
    Busy = 0x8007,             ///< No room for it now.
    NoAcknowledge = 0x8F01     ///< Nobody on the I2C bus acknowledged.
};

/// A status with its reason in words.
struct [[nodiscard]] Outcome
{
    Status mStatus = Status::Ok;
    std::string mText; ///< Empty when all is well.

    Outcome() = default;
    Outcome(Status aStatus, std::string aText) : mStatus(aStatus), mText(std::move(aText)) {}

    bool IsOk() const { return mStatus == Status::Ok; }
};

} // namespace KySimulator
