#include "kyserial/Text/FileContent.h"

#include "kyserial/Text/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

/// At most one byte more than aLimit.
std::vector<uint8_t> LoadInput(Console& aConsole, size_t aLimit)
{
    std::vector<uint8_t> lBytes;
    std::array<uint8_t, 4096> lPiece{};
    size_t lRead = 0;
    // One byte too many is enough to refuse the input. An endless one ends here.
    while (lBytes.size() <= aLimit && aConsole.Read(lPiece.data(), lPiece.size(), lRead,
                                                    Console::cInfinite) == Console::ReadResult::Data)
    {
        lBytes.insert(lBytes.end(), lPiece.begin(), lPiece.begin() + static_cast<std::ptrdiff_t>(lRead));
    }
    return lBytes;
}

/// At most one byte more than aLimit.
std::vector<uint8_t> LoadStored(const std::string& aPath, size_t aLimit)
{
    // A stream that opens a file does not clear it, and FileFault() reports what it finds there.
    errno = 0;
    std::ifstream lFile(aPath, std::ios::binary);
    std::vector<uint8_t> lBytes;
    std::array<char, 4096> lPiece{};
    while (lBytes.size() <= aLimit && (lFile.read(lPiece.data(), lPiece.size()) || lFile.gcount() > 0))
    {
        lBytes.insert(lBytes.end(), lPiece.begin(), lPiece.begin() + lFile.gcount());
    }
    if (!lFile.is_open() || lFile.bad())
    {
        throw OperationError("cannot read " + aPath + FileFault(aPath));
    }
    return lBytes;
}

} // namespace

std::string FileFault(const std::string& aPath)
{
    // Taken first: the question below may change it.
    const int lError = errno;
    std::error_code lUnknown;                           // what cannot be asked about has the other reason
    if (std::filesystem::is_directory(aPath, lUnknown)) // the systems have various words for it
    {
        return ": it is a directory";
    }
    return lError != 0 ? ": " + std::generic_category().message(lError) : std::string();
}

std::vector<uint8_t> LoadFile(Context& aContext, const std::string& aPath, size_t aLimit)
{
    std::vector<uint8_t> lBytes =
        aPath == "-" ? LoadInput(aContext.mConsole, aLimit) : LoadStored(aPath, aLimit);
    if (lBytes.size() > aLimit)
    {
        throw UsageError(aPath + " has more than " + std::to_string(aLimit) +
                         " bytes, which is all that the memory takes there");
    }
    return lBytes;
}

void SaveFile(Context& aContext, const std::string& aPath, const std::vector<uint8_t>& aBytes)
{
    if (aPath == "-")
    {
        Print(aContext, std::string(aBytes.begin(), aBytes.end()));
        return;
    }
    errno = 0;
    std::ofstream lFile(aPath, std::ios::binary | std::ios::trunc);
    lFile.write(reinterpret_cast<const char*>(aBytes.data()), static_cast<std::streamsize>(aBytes.size()));
    // Flushed here: a full disk shows itself now, and not in the destructor, which cannot report it.
    if (!lFile.flush())
    {
        throw OperationError("cannot write " + aPath + FileFault(aPath));
    }
}

void Verify(const std::vector<uint8_t>& aWritten, const std::vector<uint8_t>& aRead, size_t aOffset)
{
    const auto lDifference = std::mismatch(aWritten.begin(), aWritten.end(), aRead.begin(), aRead.end());
    if (lDifference.first == aWritten.end() || lDifference.second == aRead.end())
    {
        return; // sizes are the caller's doing and equal
    }
    std::array<char, 80> lText{};
    std::snprintf(lText.data(), lText.size(), "verification failed at 0x%04x: wrote 0x%02x, read 0x%02x",
                  static_cast<unsigned>(aOffset + static_cast<size_t>(lDifference.first - aWritten.begin())),
                  static_cast<unsigned>(*lDifference.first), static_cast<unsigned>(*lDifference.second));
    throw OperationError(lText.data());
}

} // namespace KySerialTool
