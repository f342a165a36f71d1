#pragma once

#include "kyserial/Serve/Tcp/Telnet.h"

#include <KySerial/IKySerialBridgeHost.h>
#include <KySerial/KySerialPortConfiguration.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace KySerialTool
{

// What the numbers of RFC 2217 mean for a camera. What a camera lacks is answered with the value that is in effect, as the
// standard wants it.

/// DTR and RTS of a client that has set neither: a bit each.
constexpr uint8_t cAllControls = 0x03;

/// Bytes of a command's value; 0: its value is no number.
size_t ComPortValueSize(ComPortCommand aCommand);

/// A command's value. One that is longer than ComPortValueSize() counts as far as that.
uint32_t ComPortValue(ComPortCommand aCommand, const std::string& aText);

/// What a command that sets rate, parity or stop bits asks of the bridge. A value that the device cannot have asks for nothing.
/// \return False: the command sets none of them.
bool ToBridgeRequest(ComPortCommand aCommand, uint32_t aValue, KySerialBridgeRequest& aRequest);

/// The answer to such a command.
/// \param aLine   What the device has.
/// \param aAsked  The value that was asked for, which is the answer where the device does not say its rate; 0 where that was
///                a question.
std::string LineAnswer(ComPortCommand aCommand, const KySerialPortConfiguration& aLine, uint32_t aAsked);

/// The answer to SetControl: no flow control, no break.
/// \param aControls  DTR and RTS as the client has made them; nothing depends on them.
std::string ControlAnswer(uint32_t aValue, uint8_t& aControls);

/// The answer to a command that is confirmed with its own value, and the modem state after its mask.
std::string Confirmation(ComPortCommand aCommand, uint32_t aValue);

} // namespace KySerialTool
