#include "kyserial/Text/FileContent.h"

#include "kyserial/Text/Failure.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace KySerialTool
{

namespace
{

using KyPlatform::Console;

std::vector<uint8_t> LoadInput(Console& aConsole)
{
    std::vector<uint8_t> lBytes;
    std::array<uint8_t, 4096> lPiece{};
    size_t lRead = 0;
    while (aConsole.Read(lPiece.data(), lPiece.size(), lRead, Console::cInfinite) ==
           Console::ReadResult::Data)
    {
        lBytes.insert(lBytes.end(), lPiece.begin(), lPiece.begin() + static_cast<std::ptrdiff_t>(lRead));
    }
    return lBytes;
}

} // namespace

std::vector<uint8_t> LoadFile(Context& aContext, const std::string& aPath)
{
    if (aPath == "-")
    {
        return LoadInput(aContext.mConsole);
    }
    std::error_code lIgnored; // what cannot be asked about cannot be opened either
    if (std::filesystem::is_directory(aPath, lIgnored))
    {
        throw OperationError("cannot read " + aPath + ": it is a directory");
    }
    std::ifstream lFile(aPath, std::ios::binary);
    std::vector<uint8_t> lBytes{std::istreambuf_iterator<char>(lFile), std::istreambuf_iterator<char>()};
    if (!lFile.is_open() || lFile.bad())
    {
        throw OperationError("cannot read " + aPath);
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
    std::error_code lIgnored;
    if (std::filesystem::is_directory(aPath, lIgnored))
    {
        throw OperationError("cannot write " + aPath + ": it is a directory");
    }
    std::ofstream lFile(aPath, std::ios::binary | std::ios::trunc);
    lFile.write(reinterpret_cast<const char*>(aBytes.data()), static_cast<std::streamsize>(aBytes.size()));
    if (!lFile.flush())
    {
        throw OperationError("cannot write " + aPath);
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
