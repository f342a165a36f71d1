#include <KyGigE/DeviceName.h>

#include "Adapters/GigE/TextWithMemory.h"
#include "KyGvcp/UdpSocket.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <vector>

namespace KyGigE
{

namespace
{

std::string LowerCase(std::string aText)
{
    std::transform(aText.begin(), aText.end(), aText.begin(),
                   [](unsigned char aCharacter) { return static_cast<char>(std::tolower(aCharacter)); });
    return aText;
}

/// A MAC address without its separators; other texts hardly become one by this.
std::string MacDigits(const std::string& aText)
{
    std::string lDigits = LowerCase(aText);
    std::erase_if(lDigits, [](char aOne) { return aOne == ':' || aOne == '-'; });
    return lDigits;
}

bool HasName(const std::string& aName, const FoundDevice& aDevice)
{
    const std::string lName = LowerCase(aName);
    const DeviceInformation& lInformation = aDevice.mInformation;
    // An empty name would match each device that has no user name.
    return !lName.empty() &&
           (MacDigits(aName) == MacDigits(MacText(lInformation.mMac)) ||
            lName == LowerCase(lInformation.mSerialNumber) || lName == LowerCase(lInformation.mUserName) ||
            lName == LowerCase(lInformation.mModel) || lName == aDevice.mAddress);
}

std::string Search(const std::string& aName, const DiscoveryOptions& aWhere, DeviceAddress& aAddress)
{
    std::vector<FoundDevice> lDevices;
    std::string lError = DiscoverDevices(aWhere, lDevices);
    if (!lError.empty())
    {
        return lError;
    }
    std::erase_if(lDevices, [&](const FoundDevice& aDevice) { return !HasName(aName, aDevice); });
    std::set<std::string> lTexts; // a device that several interfaces reach is one
    for (const FoundDevice& lDevice : lDevices)
    {
        lTexts.insert(DeviceAddressText({lDevice.mAddress, lDevice.mPort, aWhere.mInterface}));
    }
    if (lTexts.empty())
    {
        return "no device answers to \"" + aName +
               "\" (MAC address, serial number, user name, model or IPv4 address)";
    }
    // A guess could move the wrong camera's lens, so the user has to choose.
    if (lTexts.size() > 1)
    {
        std::string lText = "several devices answer to \"" + aName + "\":";
        for (const std::string& lDevice : lTexts)
        {
            lText += ' ' + lDevice;
        }
        return lText;
    }
    return ParseDeviceAddress(*lTexts.begin(), aAddress);
}

} // namespace

bool IsNameOf(const std::string& aName, const FoundDevice& aDevice)
{
    try
    {
        return HasName(aName, aDevice);
    }
    catch (...)
    {
        return false; // without memory for the comparison
    }
}

std::string FindDevice(const std::string& aName, const DiscoveryOptions& aWhere, DeviceAddress& aAddress)
{
    return TextWithMemory(cOutOfMemory,
                          [&]() -> std::string
                          {
                              const std::string lScheme = "gev://";
                              const bool lIsText = aName.rfind(lScheme, 0) == 0;
                              const std::string lHost = aName.substr(0, aName.find_first_of(":?"));
                              // An address needs no search, which lasts as long as devices may take to answer.
                              if (lIsText || KyGvcp::ParseAddress(lHost))
                              {
                                  DeviceAddress lAddress;
                                  std::string lError =
                                      ParseDeviceAddress(lIsText ? aName : lScheme + aName, lAddress);
                                  if (lError.empty())
                                  {
                                      // The interface within the address counts more than the one that was given
                                      // for searches.
                                      lAddress.mInterface = lAddress.mInterface.empty() ? aWhere.mInterface
                                                                                        : lAddress.mInterface;
                                      aAddress = lAddress;
                                  }
                                  return lError;
                              }
                              return Search(aName, aWhere, aAddress);
                          });
}

} // namespace KyGigE
