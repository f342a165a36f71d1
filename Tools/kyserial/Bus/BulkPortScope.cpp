#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <KyBase/KyStringList.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

const char* const cSelector = "BulkSelector";
const char* const cMode = "BulkMode";

} // namespace

BulkPortScope::BulkPortScope(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
    : mAdapter(aAdapter), mPort(aPort)
{
    if (!IsBulk(aPort) || !aAdapter.IsFeatureAvailable(cSelector) ||
        !aAdapter.GetFeatureAsString(cSelector, mFormerSelector).IsOK())
    {
        return;
    }
    const KyString lEntry(("Bulk" + std::to_string(BulkIndex(aPort))).c_str());
    mSelected = aAdapter.IsEnumEntryAvailable(cSelector, lEntry) &&
                aAdapter.SetFeatureFromString(cSelector, lEntry).IsOK();
}

BulkPortScope::~BulkPortScope()
{
    if (mFormerMode.GetLength() > 0)
    {
        static_cast<void>(mAdapter.SetFeatureFromString(cMode, mFormerMode));
    }
    if (mSelected)
    {
        static_cast<void>(mAdapter.SetFeatureFromString(cSelector, mFormerSelector));
    }
}

std::string BulkPortScope::GetMode()
{
    KyString lMode;
    const bool lKnown =
        mSelected && mAdapter.IsFeatureAvailable(cMode) && mAdapter.GetFeatureAsString(cMode, lMode).IsOK();
    return lKnown ? lMode.GetAscii() : "";
}

std::vector<std::string> BulkPortScope::GetOfferedModes()
{
    std::vector<std::string> lModes;
    KyStringList lEntries;
    if (mSelected && mAdapter.IsFeatureAvailable(cMode) && mAdapter.GetEnumEntries(cMode, lEntries).IsOK())
    {
        for (const KyString* lEntry = lEntries.GetFirst(); lEntry != nullptr; lEntry = lEntries.GetNext())
        {
            if (mAdapter.IsEnumEntryAvailable(cMode, *lEntry))
            {
                lModes.emplace_back(lEntry->GetAscii());
            }
        }
    }
    return lModes;
}

void BulkPortScope::UseOneOf(const std::vector<std::string>& aModes)
{
    const std::string lMode = GetMode();
    if (lMode.empty() || std::find(aModes.begin(), aModes.end(), lMode) != aModes.end())
    {
        return;
    }
    Check(mAdapter.SetFeatureFromString(cMode, aModes.front().c_str()),
          PortName(mPort) + ": cannot switch from " + lMode + " to " + aModes.front());
    mFormerMode = lMode.c_str();
}

} // namespace KySerialTool
