#include "kyserial/Text/RotatingFile.h"

#include "kyserial/Text/FileContent.h"

#include <cerrno>
#include <filesystem>
#include <utility>

namespace KySerialTool
{

namespace
{

/// "focus.log" with number 2 as "focus.2.log".
std::filesystem::path NumberedPath(std::filesystem::path aPath, uint32_t aNumber)
{
    const std::string lEnding = aPath.extension().string();
    return aPath.replace_extension("." + std::to_string(aNumber) + lEnding);
}

} // namespace

std::string RotatingFile::Open(const std::string& aPath, const Limit& aLimit)
{
    mFile.close();
    mFile.clear(); // of another file before
    mFailure.clear();
    mPath = aPath;
    mLimit = aLimit;
    return OpenFile();
}

std::string RotatingFile::OpenFile()
{
    errno = 0;
    mFile.open(mPath, std::ios::binary | std::ios::app);
    mOpen = mFile.is_open();
    if (!mOpen)
    {
        return CannotWrite(FileFault(mPath));
    }
    std::error_code lError;
    const uintmax_t lSize = std::filesystem::file_size(mPath, lError);
    // What has no size, a pipe for example, counts from 0.
    mBytes = lError ? 0 : lSize;
    return {};
}

std::string RotatingFile::CannotWrite(const std::string& aWhy) const
{
    return "cannot write " + mPath + aWhy;
}

bool RotatingFile::Write(const std::string& aText)
{
    errno = 0;
    if (!mOpen || !mFile)
    {
        return false;
    }
    if (!(mFile << aText << std::flush))
    {
        mFailure = CannotWrite(FileFault(mPath)); // the first failure is the last: the stream takes no more
        return false;
    }
    mBytes += aText.size();
    // The limit may be passed by one text, so that each file ends with a whole one. Without a limit (0) the file only grows.
    if (mLimit.mBytes == 0 || mBytes < mLimit.mBytes)
    {
        return false;
    }
    Rotate();
    return mOpen;
}

// A file that the system does not let go of grows on; the next text tries again.
void RotatingFile::Rotate()
{
    mFile.close();
    const std::string lAside = mPath + ".aside";
    std::error_code lError;
    // The whole file moves aside first. A system that does not let go of it then leaves the numbered ones as they
    // are.
    std::filesystem::rename(mPath, lAside, lError);
    if (!lError)
    {
        for (uint32_t lNumber = mLimit.mFiles; lNumber > 1; --lNumber) // each takes the place of the next
        {
            std::filesystem::rename(NumberedPath(mPath, lNumber - 1), NumberedPath(mPath, lNumber), lError);
        }
        if (mLimit.mFiles > 0)
        {
            std::filesystem::rename(lAside, NumberedPath(mPath, 1), lError);
        }
        std::filesystem::remove(lAside, lError);
    }
    if (std::string lFault = OpenFile(); !lFault.empty())
    {
        mFailure = std::move(lFault);
    }
}

} // namespace KySerialTool
