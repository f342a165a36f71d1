#include "kyserial/Device/PortLine.h"

#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cDeviceBits = 8;

std::string ParityEntry(KyParity aParity)
{
    return aParity == KyParityEven ? "Even" : aParity == KyParityOdd ? "Odd" : "None";
}

} // namespace

KySerialPortConfiguration ToConfiguration(const LineSelection& aSelection)
{
    KySerialPortConfiguration lLine;
    lLine.mBaudRate = aSelection.mBaudRate.value_or(lLine.mBaudRate);
    lLine.mParity = aSelection.mParity.value_or(lLine.mParity);
    lLine.mBitsPerByte = aSelection.mBits.value_or(lLine.mBitsPerByte);
    lLine.mStopBits = aSelection.mStopBits.value_or(lLine.mStopBits);
    return lLine;
}

std::string LineText(const KySerialPortConfiguration& aLine)
{
    return std::to_string(aLine.mBaudRate) + ' ' + std::to_string(aLine.mBitsPerByte) +
           ParityEntry(aLine.mParity).front() + std::to_string(aLine.mStopBits);
}

PortLine::PortLine(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
    : mAdapter(aAdapter), mPort(aPort), mFormer(aPort)
{
}

PortLine::~PortLine()
{
    if (mChanged)
    {
        static_cast<void>(mFormer.Write(mAdapter)); // see the contract
    }
}

void PortLine::Set(const LineSelection& aSelection)
{
    if (aSelection.mBits.value_or(cDeviceBits) != cDeviceBits)
    {
        throw OperationError(PortName(mPort) + ": the device's ports have 8 data bits, --bits " +
                             std::to_string(*aSelection.mBits) + " is for ports of the host");
    }
    if (!mChanged && (aSelection.mParity.has_value() || aSelection.mStopBits.has_value() ||
                      aSelection.mBaudRate.has_value()))
    {
        mFormer.Read(mAdapter); // not before: it takes accesses, and most sessions keep the line
        mChanged = true;
    }
    if (aSelection.mParity.has_value())
    {
        SetOne(KyDeviceProtocol::cParitySuffix, ParityEntry(*aSelection.mParity));
    }
    if (aSelection.mStopBits.has_value())
    {
        SetOne(KyDeviceProtocol::cStopBitsSuffix, *aSelection.mStopBits == 2 ? "Two" : "One");
    }
    if (aSelection.mBaudRate.has_value())
    {
        SetOne(KyDeviceProtocol::cBaudRateSuffix, "Baud" + std::to_string(*aSelection.mBaudRate));
    }
}

void PortLine::SetOne(const std::string& aSuffix, const std::string& aEntry)
{
    // The settings that were read have the features' full names, which differ with and without a port
    // selector.
    const auto& lValues = mFormer.GetValues();
    const auto lFeature = std::find_if(lValues.begin(), lValues.end(),
                                       [&](const auto& aValue) { return aValue.first.ends_with(aSuffix); });
    const std::string lWhat = PortName(mPort) + ": cannot set " + aSuffix + " to " + aEntry;
    if (lFeature == lValues.end())
    {
        throw OperationError(lWhat + ": the device has no such setting");
    }
    Check(mAdapter.SetFeatureFromString(lFeature->first.c_str(), aEntry.c_str()), lWhat);
}

} // namespace KySerialTool
