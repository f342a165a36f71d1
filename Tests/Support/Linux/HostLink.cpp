#include "Tests/Support/HostLink.h"

#include "Tests/Support/UniqueName.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

namespace KyTest
{

// The end that the test holds. The terminal stays open here too: with no user at all a pty reports the end of
// file to its other side, and settings would be lost between two users.
struct HostLink::End
{
    int mMaster = -1;
    int mTerminal = -1;
};

HostLink::HostLink() : mPath((std::filesystem::temp_directory_path() / UniqueName("KyHost")).string())
{
    mName = mPath;
    ComeBack();
}

HostLink::~HostLink()
{
    Vanish();
    std::filesystem::remove(mPath);
}

std::string HostLink::GetReasonToSkip()
{
    return {};
}

bool HostLink::CanComeBack()
{
    return true;
}

void HostLink::Vanish()
{
    if (mEnd != nullptr)
    {
        ::close(mEnd->mTerminal);
        ::close(mEnd->mMaster);
        mEnd = nullptr;
    }
}

void HostLink::ComeBack()
{
    Vanish();
    mEnd = std::make_unique<End>();
    mEnd->mMaster = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    std::array<char, 64> lTerminal{};
    if (mEnd->mMaster < 0 || ::grantpt(mEnd->mMaster) != 0 || ::unlockpt(mEnd->mMaster) != 0 ||
        ::ptsname_r(mEnd->mMaster, lTerminal.data(), lTerminal.size()) != 0)
    {
        throw std::runtime_error("no pty");
    }
    mEnd->mTerminal = ::open(lTerminal.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const std::string lNew = mPath + ".new";
    std::filesystem::create_symlink(lTerminal.data(), lNew);
    std::filesystem::rename(lNew, mPath);
}

size_t HostLink::Write(const std::string& aBytes)
{
    size_t lDone = 0;
    while (lDone < aBytes.size())
    {
        const ssize_t lWritten = ::write(mEnd->mMaster, aBytes.data() + lDone, aBytes.size() - lDone);
        if (lWritten > 0)
        {
            lDone += static_cast<size_t>(lWritten);
            continue;
        }
        pollfd lPoll{mEnd->mMaster, POLLOUT, 0};
        if (::poll(&lPoll, 1, 1000) <= 0)
        {
            break;
        }
    }
    return lDone;
}

void HostLink::StopReading() {} // Read() alone takes what has come

std::string HostLink::Read(size_t aCount, uint32_t aTimeout)
{
    const auto lEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(aTimeout);
    std::string lBytes;
    while (lBytes.size() < aCount)
    {
        const auto lLeft =
            std::chrono::duration_cast<std::chrono::milliseconds>(lEnd - std::chrono::steady_clock::now());
        pollfd lPoll{mEnd->mMaster, POLLIN, 0};
        if (lLeft.count() < 0 || ::poll(&lPoll, 1, static_cast<int>(lLeft.count())) <= 0)
        {
            break;
        }
        std::array<char, 4096> lPart{};
        const ssize_t lRead =
            ::read(mEnd->mMaster, lPart.data(), std::min(lPart.size(), aCount - lBytes.size()));
        lBytes.append(lPart.data(), lRead > 0 ? static_cast<size_t>(lRead) : 0);
    }
    return lBytes;
}

} // namespace KyTest
