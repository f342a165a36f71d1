#include "Platform/PseudoTerminal.h"

#include <windows.h>

// Programs of this system reach a serial port by the name of a driver's device, and a program cannot be one.

namespace KyToolPlatform
{

using namespace KyPlatform;

namespace
{

constexpr HostTransferResult cRefused{HostTransfer::Refused, 0, ERROR_INVALID_HANDLE};

} // namespace

bool PseudoTerminal::IsSupported() noexcept
{
    return false;
}

bool PseudoTerminal::Create() noexcept
{
    return false;
}

void PseudoTerminal::Close() noexcept {}

const char* PseudoTerminal::GetPath() const noexcept
{
    return "";
}

bool PseudoTerminal::IsAttached() const noexcept
{
    return false;
}

uint64_t PseudoTerminal::GetUnread() const noexcept
{
    return 0;
}

void PseudoTerminal::DropUnread() noexcept {}

bool PseudoTerminal::GetLine(HostLine& /*aLine*/) const noexcept
{
    return false;
}

bool PseudoTerminal::SetLine(const HostLine& /*aLine*/) noexcept
{
    return false;
}

void PseudoTerminal::CleanIfLeft() noexcept {}

uint64_t PseudoTerminal::DropWritten() noexcept
{
    return 0;
}

HostTransferResult PseudoTerminal::Read(void* /*aBuffer*/, uint32_t /*aSize*/, StopEvent& /*aStop*/,
                                        uint32_t /*aTime*/) noexcept
{
    return cRefused;
}

HostTransferResult PseudoTerminal::Write(const void* /*aData*/, uint32_t /*aSize*/,
                                         StopEvent& /*aStop*/) noexcept
{
    return cRefused;
}

} // namespace KyToolPlatform
