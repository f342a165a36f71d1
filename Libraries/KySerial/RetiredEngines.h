#pragma once

#include "SerialPort.h"

#include <memory>

namespace KySerialLib
{

/// Ends the life of an engine as far as memory safety allows.
///
/// A closed engine is deleted. An engine that is still open is not: its adapter goes on calling it as an
/// event sink, because neither a replaced engine nor one whose device was disconnected at close withdraws
/// itself. Such an engine keeps its claim and its memory until the process ends; there are never more of them
/// than device ports. It only receives; nobody reads it any more. \param aEngine  Null does nothing.
void RetireEngine(std::unique_ptr<SerialPort> aEngine) noexcept;

} // namespace KySerialLib
