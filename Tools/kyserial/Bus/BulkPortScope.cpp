#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <KyBase/KyStringList.h>
#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

using KyDeviceProtocol::cBulkModeFeature;
using KyDeviceProtocol::cBulkSelectorFeature;

} // namespace

BulkPortScope::BulkPortScope(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
    : mAdapter(aAdapter), mPort(aPort)
{
    // UARTs are not selected, and a camera without a selector has the features of each port by name.
    if (!IsBulk(aPort) || !aAdapter.IsFeatureAvailable(cBulkSelectorFeature) ||
        !aAdapter.GetFeatureAsString(cBulkSelectorFeature, mFormerSelector).IsOK())
    {
        return;
    }
    const KyString lEntry(KyDeviceProtocol::BulkName(BulkIndex(aPort)).c_str());
    // A device that another application controls can be read, and shows the port that is selected.
    const bool lIsSelected = mFormerSelector == lEntry;
    mSelected = lIsSelected || (aAdapter.IsEnumEntryAvailable(cBulkSelectorFeature, lEntry) &&
                                aAdapter.SetFeatureFromString(cBulkSelectorFeature, lEntry).IsOK());
    mRestores = mSelected && !lIsSelected;
}

BulkPortScope::~BulkPortScope()
{
    // The mode first: it is that of the port which is still selected.
    if (mFormerMode.GetLength() > 0)
    {
        static_cast<void>(mAdapter.SetFeatureFromString(cBulkModeFeature, mFormerMode));
    }
    if (mRestores)
    {
        static_cast<void>(mAdapter.SetFeatureFromString(cBulkSelectorFeature, mFormerSelector));
    }
}

std::string BulkPortScope::GetMode()
{
    KyString lMode;
    // The feature shows the selected port. Without the selection it would be the mode of another one.
    const bool lKnown = mSelected && mAdapter.IsFeatureAvailable(cBulkModeFeature) &&
                        mAdapter.GetFeatureAsString(cBulkModeFeature, lMode).IsOK();
    return lKnown ? lMode.GetAscii() : "";
}

std::vector<std::string> BulkPortScope::GetOfferedModes()
{
    std::vector<std::string> lModes;
    KyStringList lEntries;
    if (mSelected && mAdapter.IsFeatureAvailable(cBulkModeFeature) &&
        mAdapter.GetEnumEntries(cBulkModeFeature, lEntries).IsOK())
    {
        for (const KyString* lEntry = lEntries.GetFirst(); lEntry != nullptr; lEntry = lEntries.GetNext())
        {
            // A device may list the modes of all its ports; those of the selected port are the available
            // ones.
            if (mAdapter.IsEnumEntryAvailable(cBulkModeFeature, *lEntry))
            {
                lModes.emplace_back(lEntry->GetAscii());
            }
        }
    }
    return lModes;
}

void BulkPortScope::UseOneOf(const std::vector<std::string>& aModes)
{
    // Without a mode feature the port has one mode, and the bus's own Open() reports whether it fits.
    const std::string lMode = GetMode();
    if (lMode.empty() || std::find(aModes.begin(), aModes.end(), lMode) != aModes.end())
    {
        return;
    }
    Check(mAdapter.SetFeatureFromString(cBulkModeFeature, aModes.front().c_str()),
          PortName(mPort) + ": cannot switch from " + lMode + " to " + aModes.front());
    mFormerMode = lMode.c_str(); // not before: a mode that was not changed is not set back
}

} // namespace KySerialTool
