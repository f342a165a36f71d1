#include "Adapters/GigE/Client/FindInterface.h"

#include "Adapters/GigE/Client/Search.h"

#include <algorithm>
#include <set>

namespace KyGigE
{

using KyGvcp::Interface;

namespace
{

bool IsLoopback(uint32_t aAddress)
{
    return aAddress >> 24U == 127;
}

bool Contains(const Interface& aInterface, uint32_t aAddress)
{
    return ((aInterface.mAddress ^ aAddress) & aInterface.mMask) == 0;
}

/// Whether the address is this computer's. Packets to it stay inside, whatever interface has it.
bool IsOwn(const std::vector<Interface>& aInterfaces, uint32_t aAddress)
{
    return IsLoopback(aAddress) ||
           std::any_of(aInterfaces.begin(), aInterfaces.end(),
                       [&](const Interface& aInterface) { return aInterface.mAddress == aAddress; });
}

} // namespace

std::string FindInterface(const std::string& aInterface, uint32_t aDevice, OwnSide& aOwn)
{
    const std::vector<Interface> lAll = KyGvcp::ListInterfaces();
    const std::vector<Interface> lMatching = MatchingInterfaces(aInterface);
    if (aInterface.empty() || lMatching.empty())
    {
        // Every address of the loop-back network belongs to this computer, though only one is listed.
        const auto lAddress = KyGvcp::ParseAddress(aInterface);
        aOwn = {lAddress.value_or(0), 0};
        return lAddress && IsLoopback(*lAddress)
                   ? std::string()
                   : "This computer has no network interface " + aInterface + ".";
    }
    const auto lOther = std::find_if(lMatching.begin(), lMatching.end(),
                                     [&](const Interface& aCandidate)
                                     { return aCandidate.mIndex != lMatching.front().mIndex; });
    // Two networks may use one address range. The address alone does not say which of them is meant.
    if (lOther != lMatching.end())
    {
        return "The network interfaces " + lMatching.front().mName + " and " + lOther->mName +
               " both have the address " + aInterface + "; give a name.";
    }
    // An interface may have several addresses. A device answers to the one in its own network.
    auto lBest = std::find_if(lMatching.begin(), lMatching.end(),
                              [&](const Interface& aCandidate) { return Contains(aCandidate, aDevice); });
    lBest = lBest != lMatching.end() ? lBest : lMatching.begin();
    // A socket that is bound to an interface does not reach addresses of this computer, which go over the loop-back
    // one.
    aOwn = {lBest->mAddress, IsOwn(lAll, aDevice) ? 0 : lBest->mIndex};
    return {};
}

bool FindRoute(uint32_t aDevice, OwnSide& aOwn)
{
    constexpr uint16_t cAnyPort = 9; // nothing is sent
    KyGvcp::UdpSocket lProbe;
    // Connecting makes the system choose the way.
    const bool lFound = lProbe.Open({}) && lProbe.Connect({aDevice, cAnyPort});
    aOwn = {lFound ? lProbe.GetLocal().mAddress : 0, 0};
    return lFound;
}

std::string ChooseInterface(uint32_t aDevice, uint16_t aPort, uint32_t aTime, std::string& aInterface)
{
    aInterface.clear();
    const std::vector<Interface> lAll = KyGvcp::ListInterfaces();
    std::vector<Interface> lCandidates;
    std::set<uint32_t> lIndexes;
    for (const Interface& lInterface : lAll)
    {
        // One address of each interface is enough: a second question would find the same devices.
        if (!lInterface.mLoopback && Contains(lInterface, aDevice) &&
            lIndexes.insert(lInterface.mIndex).second)
        {
            lCandidates.push_back(lInterface);
        }
    }
    // With one interface in the network of the device, or with none, the routes decide.
    if (lCandidates.size() < 2 || IsOwn(lAll, aDevice))
    {
        return {};
    }
    // Several interfaces lead to the network of the address: the devices themselves decide by their answers.
    std::vector<FoundDevice> lFound;
    // Nobody answers: the connection fails later, with a message of its own.
    if (!Search(lCandidates, {aDevice, aPort}, aTime, lCandidates.size(), lFound) || lFound.empty())
    {
        return {};
    }
    std::string lAnswers;
    for (const FoundDevice& lDevice : lFound)
    {
        lAnswers +=
            (lAnswers.empty() ? "" : ", ") + MacText(lDevice.mInformation.mMac) + " on " + lDevice.mInterface;
    }
    // Two networks may each have a device of this address. One device that answers on several interfaces leaves no doubt: any of
    // them leads to it.
    const bool lOne =
        std::all_of(lFound.begin(), lFound.end(),
                    [&](const FoundDevice& aDeviceFound)
                    { return aDeviceFound.mInformation.mMac == lFound.front().mInformation.mMac; });
    if (lOne)
    {
        aInterface = lFound.front().mInterface;
        return {};
    }
    return "Several devices answer at " + KyGvcp::AddressText(aDevice) + ": " + lAnswers +
           "; choose one with ?interface=NAME.";
}

} // namespace KyGigE
