#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace KySerialTool
{

/// What a bridge ends in on the host.
enum class HostKind
{
    None,
    Tty,  ///< A terminal device, by its path.
    Pty,  ///< A pseudo terminal, found under a link.
    Com,  ///< A COM port.
    Clser ///< Camera Link serial clients, under a server's name.
};

/// Which one.
struct HostSelection
{
    HostKind mKind = HostKind::None;
    std::string mName{}; ///< As it was given.
};

/// Adds --tty, --pty, --com and --clser; one at most is taken.
void AddHostOptions(CLI::App& aCommand, HostSelection& aSelection);

/// Throws UsageError when no host side was given.
void CheckHostSelection(const HostSelection& aSelection);

} // namespace KySerialTool
