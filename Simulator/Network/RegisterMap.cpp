#include "Simulator/Network/RegisterMap.h"

#include "Simulator/Network/DeviceXml.h"
#include "Simulator/Network/ZipFile.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace KySimulator
{

namespace
{

constexpr size_t cWord = 4;

void Append(std::vector<uint8_t>& aData, uint32_t aValue)
{
    for (const uint32_t lShift : {24U, 16U, 8U, 0U})
    {
        aData.push_back(static_cast<uint8_t>((aValue >> lShift) & 0xFFU));
    }
}

Outcome Misaligned()
{
    return {Status::BadAlignment, "Registers are at multiples of 4."};
}

std::string MakeDescription(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration,
                            const NetworkForms& aForms)
{
    std::string lXml =
        aForms.mDescription.empty() ? MakeDeviceXml(aFeatures, aConfiguration, aForms) : aForms.mDescription;
    return aForms.mZippedDescription ? MakeZip("kyserial-camera.xml", lXml) : lXml;
}

} // namespace

RegisterMap::RegisterMap(CameraModel& aCamera, const NetworkForms& aForms)
    : mCamera(aCamera)
    , mForms(aForms)
    , mBootstrap(aCamera)
    , mFeatures(aCamera)
    , mDescription(MakeDescription(mFeatures, aCamera.GetConfiguration(), aForms))
    , mDescriptionSize(mDescription.size())
{
    // Clients read memory by the word, and the address of the description says how many bytes count.
    mDescription.resize((mDescriptionSize + cWord - 1) / cWord * cWord);
}

void RegisterMap::SetPlace(uint32_t aAddress, uint32_t aMask, uint32_t aGateway)
{
    std::array<char, 64> lUrl{};
    std::snprintf(lUrl.data(), lUrl.size(), "Local:kyserial-camera.%s;%X;%zX",
                  mForms.mZippedDescription ? "zip" : "xml", static_cast<unsigned>(cDescription),
                  mDescriptionSize);
    // Clients that cannot use the first place of the description have to try the second one. A "File:" place is one
    // that no client finds.
    mBootstrap.SetIdentity({aAddress, aMask, aGateway,
                            mForms.mOnlySecondUrl ? "File:kyserial-camera.xml" : lUrl.data(), lUrl.data()});
}

Outcome RegisterMap::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    aValue = 0;
    if (aAddress % cWord != 0)
    {
        return Misaligned();
    }
    if (aAddress < BootstrapRegisters::cEnd)
    {
        return mBootstrap.Read(aAddress, aValue);
    }
    // The features' registers come first, the camera's serial registers have every other address.
    return mFeatures.Contains(aAddress) ? mFeatures.ReadWord(aAddress, aValue)
                                        : mCamera.ReadRegister(aAddress, aValue);
}

Outcome RegisterMap::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    if (aAddress % cWord != 0)
    {
        return Misaligned();
    }
    if (aAddress < BootstrapRegisters::cEnd)
    {
        return mBootstrap.Write(aAddress, aValue);
    }
    return mFeatures.Contains(aAddress) ? mFeatures.WriteWord(aAddress, aValue)
                                        : mCamera.WriteRegister(aAddress, aValue);
}

Outcome RegisterMap::ReadMemory(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData)
{
    aData.clear();
    if (aAddress % cWord != 0)
    {
        return Misaligned();
    }
    // The acknowledge holds the address as well, and both have to fit the payload of one packet.
    if (aCount == 0 || aCount % cWord != 0 || aCount > KyGvcp::cMaxBlock)
    {
        return {Status::InvalidParameter, "Memory is read in multiples of 4 bytes, 536 at most."};
    }
    // The order of the places is that of the address map: the bootstrap registers below, the description above, words
    // between.
    if (aAddress < BootstrapRegisters::cEnd)
    {
        return mBootstrap.ReadMemory(aAddress, aCount, aData);
    }
    return aAddress >= cDescription && aAddress - cDescription < mDescription.size()
               ? ReadDescription(aAddress, aCount, aData)
               : ReadWords(aAddress, aCount, aData);
}

Outcome RegisterMap::ReadDescription(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData) const
{
    const size_t lOffset = aAddress - cDescription;
    // A read over the end fails as a whole, as on a device: clients read exactly what the address promises.
    if (aCount > mDescription.size() - lOffset)
    {
        return {Status::InvalidAddress, "The description is shorter."};
    }
    const auto lBegin = mDescription.begin() + static_cast<ptrdiff_t>(lOffset);
    aData.assign(lBegin, lBegin + static_cast<ptrdiff_t>(aCount));
    return {};
}

Outcome RegisterMap::ReadWords(uint32_t aAddress, size_t aCount, std::vector<uint8_t>& aData)
{
    for (size_t lOffset = 0; lOffset < aCount; lOffset += cWord)
    {
        uint32_t lValue = 0;
        Outcome lOutcome = ReadRegister(aAddress + static_cast<uint32_t>(lOffset), lValue);
        if (!lOutcome.IsOk())
        {
            // All or nothing: a client would take the part for the whole.
            aData.clear();
            return lOutcome;
        }
        Append(aData, lValue);
    }
    return {};
}

bool RegisterMap::IsBlock(uint32_t aAddress) const
{
    // The transmit window is a bit of the address: the other bits carry the flags of a transfer.
    return (aAddress & KyDeviceProtocol::cTransmitWindow) != 0 || aAddress == KyGvcp::cUserNameRegister ||
           mFeatures.IsMessage(aAddress);
}

Outcome RegisterMap::WriteBlock(uint32_t aAddress, KyGvcp::Bytes aData)
{
    if (aData.empty())
    {
        return {Status::InvalidParameter, "There is nothing to write."};
    }
    if (aAddress < BootstrapRegisters::cEnd)
    {
        // Of the bootstrap registers only the user's name is written as a block.
        return mBootstrap.WriteText(aAddress, aData);
    }
    return (aAddress & KyDeviceProtocol::cTransmitWindow) != 0
               ? mCamera.WriteMemory(aAddress, aData.data(), aData.size())
               : mFeatures.WriteMessage(aAddress, aData);
}

} // namespace KySimulator
