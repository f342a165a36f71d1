#include "KyGvcp/HostName.h"

#include "KyGvcp/Endpoint.h"
#include "KyGvcp/SystemAddress.h"
#include "KyPlatform/Deadline.h"
#include "KyPlatform/WordWait.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace KyGvcp
{

namespace
{

using KyPlatform::Deadline;
using KyPlatform::WordWait;

constexpr uint32_t cSlice = 50; // milliseconds between two looks at whether the caller has given up

/// The answer that the asking thread leaves. Both threads own it.
struct LookUp
{
    /// The thread does not end before. In the Windows build a thread that ends while it is being detached can spoil a
    /// later one: that one gets no argument, or never runs.
    std::atomic<uint32_t> mIsDetached{0};
    std::atomic<uint32_t> mIsDone{0}; // 1: mAddress is there, and nobody writes it any more
    std::optional<uint32_t> mAddress;
};

void Set(std::atomic<uint32_t>& aWord)
{
    aWord = 1;
    WordWait::WakeAll(&aWord);
}

void Await(std::atomic<uint32_t>& aWord)
{
    while (aWord == 0)
    {
        WordWait::Sleep(aWord, 0, cSlice);
    }
}

/// Starts a thread that asks. \return False: there is no thread for it.
bool Ask(const std::shared_ptr<LookUp>& aLookUp, const std::string& aName,
         std::function<std::optional<uint32_t>(const std::string&)> aAsk)
{
    // The thread may go on after its caller, so the code that it runs must not be unloaded.
    StayLoaded();
    try
    {
        std::thread lThread(
            [aLookUp, aName, lAsk = std::move(aAsk)]
            {
                Await(aLookUp->mIsDetached);
                aLookUp->mAddress = lAsk(aName);
                Set(aLookUp->mIsDone);
            });
        lThread.detach();
        Set(aLookUp->mIsDetached);
        return true;
    }
    catch (const std::system_error&)
    {
        return false;
    }
}

} // namespace

bool IsHostName(const std::string& aText)
{
    const auto lIsLetter = [](char aChar)
    { return (aChar >= 'a' && aChar <= 'z') || (aChar >= 'A' && aChar <= 'Z'); };
    const auto lFits = [&](char aChar)
    { return lIsLetter(aChar) || (aChar >= '0' && aChar <= '9') || aChar == '-' || aChar == '.'; };
    // The longest name that name servers know.
    constexpr size_t cLongest = 253;
    return aText.size() <= cLongest && std::all_of(aText.begin(), aText.end(), lFits) &&
           std::any_of(aText.begin(), aText.end(), lIsLetter) && aText.front() != '-' && aText.front() != '.';
}

std::optional<uint32_t> LookUpHost(const std::string& aName) noexcept
{
    addrinfo lWanted{};
    // The control protocol knows IPv4 addresses only.
    lWanted.ai_family = AF_INET;
    lWanted.ai_socktype = SOCK_DGRAM;
    addrinfo* lFound = nullptr;
    if (!StartSockets() || getaddrinfo(aName.c_str(), nullptr, &lWanted, &lFound) != 0 || lFound == nullptr)
    {
        return {};
    }
    const uint32_t lAddress = FromSystem(*reinterpret_cast<const sockaddr_in*>(lFound->ai_addr)).mAddress;
    freeaddrinfo(lFound);
    return lAddress;
}

std::optional<uint32_t> FindAddress(const std::string& aText, std::chrono::milliseconds aLongest,
                                    const std::function<bool()>& aIsOver, std::string& aError,
                                    std::function<std::optional<uint32_t>(const std::string&)> aLookUp)
{
    const std::optional<uint32_t> lNumber = ParseAddress(aText);
    if (lNumber.has_value())
    {
        return lNumber;
    }
    if (!IsHostName(aText))
    {
        aError = '"' + aText + "\" is no IPv4 address and no name of a host";
        return {};
    }
    const auto lLookUp = std::make_shared<LookUp>();
    if (!Ask(lLookUp, aText, std::move(aLookUp)))
    {
        aError = "there is no thread to look for the host \"" + aText + '"';
        return {};
    }
    const Deadline lEnd(aLongest);
    while (lLookUp->mIsDone == 0 && !lEnd.IsOver() && !(aIsOver && aIsOver()))
    {
        WordWait::Sleep(lLookUp->mIsDone, 0, lEnd.GetRemaining(cSlice));
    }
    if (lLookUp->mIsDone == 0)
    {
        aError = "the system did not find the host \"" + aText + "\" in time";
        return {}; // the thread may be about to write the address
    }
    if (!lLookUp->mAddress.has_value())
    {
        aError = "the system knows no host \"" + aText + '"';
    }
    return lLookUp->mAddress;
}

} // namespace KyGvcp
