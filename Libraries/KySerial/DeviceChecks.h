#pragma once

#include "JxUtilsLib/Logger.h"
#include "KyBase/KyResult.h"
#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KySerialTypes.h"

#include <cstdint>

/// \file
/// The tests of a device that engines and support questions begin with. Each logs under the operation that
/// asks, with its own place in the source, so that file and line say which of the tests failed.

namespace KySerialLib
{

/// The operation that a line is logged for.
struct Caller
{
    const JxUtilsLib::Logger& mLogger;
    const char* mFunction;
};

/// Whether an operation can reach its device.
/// \return OK; NO_CONNECTION, logged, for a null adapter or a disconnected device.
[[nodiscard]] KyResult CheckConnected(IKyDeviceAdapter* aDevice, const Caller& aCaller);

/// What every engine's Open() begins with: the device is reachable, offers the port, and nobody else in this
/// process has it. With OK the caller owns the claim.
/// \param aIsSupported  The engine's support question.
/// \return OK; NO_CONNECTION; UNSUPPORTED; FAILURE when the port is in use. All logged.
[[nodiscard]] KyResult ClaimPort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort,
                                 bool (*aIsSupported)(IKyDeviceAdapter*, KyDeviceSerial),
                                 const Caller& aCaller);

/// The text of a null buffer.
inline constexpr char cNoBuffer[] = "aBuffer pointer cannot be NULL.";

/// Whether a buffer is null that has to hold aSize bytes. Asked before the device is touched.
constexpr bool IsMissing(const uint8_t* aBuffer, uint32_t aSize)
{
    return aBuffer == nullptr && aSize > 0;
}

/// CheckConnected() for support questions, which answer false and log plain lines.
bool IsReachable(IKyDeviceAdapter* aDevice, const Caller& aCaller);

/// Whether a reachable device is one of the maker's video interfaces; a no is logged at aPriority.
bool IsKorvoVideoInterface(IKyDeviceAdapter* aDevice, JxUtilsLib::PriorityLevel aPriority,
                           const Caller& aCaller);

/// Whether a reachable device is a GigE Vision one; a no is logged.
bool IsGigEVision(IKyDeviceAdapter* aDevice, const Caller& aCaller);

/// What the support questions of both register-driven engines ask before they look at their port.
/// \param aCaps  Receives the function capabilities register; 0 when the device does not answer.
/// \return True when the register says something. A device that does not answer is remembered and not asked
///         again while the process lives.
bool ReadFunctionCaps(IKyDeviceAdapter* aDevice, uint32_t& aCaps, const Caller& aCaller);

} // namespace KySerialLib
