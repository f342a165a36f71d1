#include "kyserial/Terminal/TerminalLink.h"

#include "kyserial/Text/Failure.h"

#include <system_error>

namespace KySerialTool
{

namespace
{

namespace Files = std::filesystem;

bool IsLink(const Files::path& aPath)
{
    std::error_code lError;
    return Files::is_symlink(Files::symlink_status(aPath, lError));
}

} // namespace

TerminalLink::TerminalLink(const std::string& aPath, const std::string& aTerminal)
    : mPath(aPath), mTerminal(aTerminal)
{
    std::error_code lError;
    // A link to nothing was left by a program that was killed. Anything else belongs to somebody and stays.
    if (IsLink(mPath) && (IsOurs() || !Files::exists(mPath, lError)))
    {
        Files::remove(mPath, lError); // refused: the next step reports it
    }
    // Made without a look before: between a look and this call another program could make a file of that
    // name.
    Files::create_symlink(mTerminal, mPath, lError);
    if (lError == std::errc::file_exists)
    {
        const Files::path lTarget = Files::read_symlink(mPath, lError);
        throw OperationError("--pty: " + aPath + " exists already" +
                             (lError ? "" : " and leads to " + lTarget.string()) +
                             "; remove it, or use another name");
    }
    if (lError)
    {
        throw OperationError("--pty: cannot make the link " + aPath + ": " + lError.message());
    }
}

TerminalLink::~TerminalLink()
{
    std::error_code lError;
    if (IsOurs())
    {
        Files::remove(mPath, lError); // refused: it leads nowhere now, and gives way to the next
    }
}

bool TerminalLink::IsOurs() const
{
    std::error_code lError;
    return Files::read_symlink(mPath, lError) == mTerminal && !lError;
}

} // namespace KySerialTool
