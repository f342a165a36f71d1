#include "Simulator/Network/FeatureRegisters.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

constexpr uint32_t cModeMask = 0x10000;
constexpr uint32_t cWords = 0x10100;
constexpr uint32_t cMessages = 0x20000;
constexpr uint32_t cMessageSpacing = 0x1000;

/// The modes that a port may offer, by value.
std::vector<std::string> Modes()
{
    return {NameOf(Protocol::Uart), NameOf(Protocol::Usrt), NameOf(Protocol::I2C), NameOf(Protocol::Spi)};
}

/// Every entry that an enumeration may ever have.
std::vector<std::string> EntriesOf(const CameraModel& aCamera, const FeatureRegister& aRegister)
{
    if (aRegister.mFeature.mId == FeatureId::BulkMode)
    {
        return Modes(); // the camera reports those of the selected port only
    }
    std::vector<std::string> lEntries;
    static_cast<void>(aCamera.GetEntries(aRegister.mName, lEntries)); // ignored: it is in the table
    return lEntries;
}

size_t PositionOf(const std::vector<std::string>& aEntries, const std::string& aEntry)
{
    return static_cast<size_t>(std::find(aEntries.begin(), aEntries.end(), aEntry) - aEntries.begin());
}

Outcome NoSuchFeature()
{
    return {Status::InvalidAddress, "There is no feature at this address."};
}

} // namespace

FeatureRegisters::FeatureRegisters(CameraModel& aCamera) : mCamera(aCamera)
{
    uint32_t lNextWord = cWords;
    for (const auto& [lName, lFeature] : MakeFeatureTable(aCamera.GetConfiguration()))
    {
        FeatureRegister lRegister{lName, lFeature, 0, 0, {}};
        // Enumerations get a word each, messages a window each. Texts lie in the bootstrap registers and need no
        // address here.
        if (lFeature.mKind == FeatureKind::Enumeration)
        {
            lRegister.mAddress = lNextWord;
            lRegister.mLength = 4;
            lRegister.mEntries = EntriesOf(aCamera, lRegister);
            lNextWord += 4;
        }
        if (lFeature.mId == FeatureId::Downstream && lFeature.mPort.has_value())
        {
            const auto lBulk = static_cast<uint32_t>(*lFeature.mPort) - static_cast<uint32_t>(cUartCount);
            lRegister.mAddress = cMessages + lBulk * cMessageSpacing;
            lRegister.mLength = aCamera.GetConfiguration().mDownstreamLength;
        }
        mList.push_back(std::move(lRegister));
    }
}

uint32_t FeatureRegisters::GetModeMaskAddress()
{
    return cModeMask;
}

const FeatureRegister* FeatureRegisters::Find(uint32_t aAddress) const
{
    // Features without a register have the address 0 here, which belongs to a bootstrap register.
    const auto lFound = std::find_if(mList.begin(), mList.end(),
                                     [=](const FeatureRegister& aRegister)
                                     { return aRegister.mAddress != 0 && aRegister.mAddress == aAddress; });
    return lFound != mList.end() ? &*lFound : nullptr;
}

bool FeatureRegisters::Contains(uint32_t aAddress) const
{
    // Without a mode feature there is no port whose modes could be read.
    return Find(aAddress) != nullptr ||
           (aAddress == cModeMask && mCamera.GetFeatureKind(cBulkModeFeature) != FeatureKind::None);
}

Outcome FeatureRegisters::ReadWord(uint32_t aAddress, uint32_t& aValue) const
{
    aValue = 0;
    if (aAddress == cModeMask)
    {
        // A bit for each mode that the selected port offers. The description hides the entries whose bit is clear.
        std::vector<std::string> lAvailable;
        Outcome lOutcome = mCamera.GetEntries(cBulkModeFeature, lAvailable);
        for (const std::string& lEntry : lAvailable)
        {
            aValue |= 1U << PositionOf(Modes(), lEntry);
        }
        return lOutcome;
    }
    const FeatureRegister* const lRegister = Find(aAddress);
    if (lRegister == nullptr)
    {
        return NoSuchFeature();
    }
    // The address is that of a message window, so the answer differs from that for an address without a
    // feature.
    if (lRegister->mFeature.mKind != FeatureKind::Enumeration)
    {
        return {Status::AccessDenied, "The feature " + lRegister->mName + " can only be written."};
    }
    std::string lText;
    Outcome lOutcome = mCamera.GetText(lRegister->mName, lText);
    if (lOutcome.IsOk())
    {
        aValue = static_cast<uint32_t>(PositionOf(lRegister->mEntries, lText));
    }
    return lOutcome;
}

Outcome FeatureRegisters::WriteWord(uint32_t aAddress, uint32_t aValue)
{
    if (aAddress == cModeMask)
    {
        return {Status::WriteProtect, "What the port offers cannot be written."};
    }
    const FeatureRegister* const lRegister = Find(aAddress);
    // A message is written as a block; a word into its window would be a piece of one.
    if (lRegister == nullptr || lRegister->mFeature.mKind != FeatureKind::Enumeration)
    {
        return NoSuchFeature();
    }
    // The number comes from the network, and is used as a position below.
    if (aValue >= lRegister->mEntries.size())
    {
        return {Status::InvalidParameter, "The feature " + lRegister->mName + " has no such entry."};
    }
    return mCamera.SetText(lRegister->mName, lRegister->mEntries[aValue]);
}

bool FeatureRegisters::IsMessage(uint32_t aAddress) const
{
    const FeatureRegister* const lRegister = Find(aAddress);
    return lRegister != nullptr && lRegister->mFeature.mKind == FeatureKind::Register;
}

Outcome FeatureRegisters::WriteMessage(uint32_t aAddress, std::span<const uint8_t> aData)
{
    return IsMessage(aAddress) ? mCamera.SetRegisterData(Find(aAddress)->mName, aData.data(),
                                                         static_cast<int64_t>(aData.size()))
                               : NoSuchFeature();
}

} // namespace KySimulator
