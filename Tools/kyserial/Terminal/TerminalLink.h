#pragma once

#include <filesystem>
#include <string>

namespace KySerialTool
{

/// A symbolic link under which a terminal is found for the life of the object.
class TerminalLink
{
public:
    /// Makes the link. One that leads nowhere, from a program that was killed, and one to the same
    /// terminal give way; anything else stays. Throws OperationError when the link cannot be made.
    TerminalLink(const std::string& aPath, const std::string& aTerminal);
    /// Removes the link, unless it is another one by now.
    ~TerminalLink();
    TerminalLink(const TerminalLink&) = delete;
    TerminalLink& operator=(const TerminalLink&) = delete;

private:
    bool IsOurs() const;

    const std::filesystem::path mPath;
    const std::filesystem::path mTerminal;
};

} // namespace KySerialTool
