#include "kyserial/Bus/SpiBus.h"

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr size_t cLibraryLimit = 255;
constexpr uint32_t cAnswerTime = 5000; // milliseconds for the next bytes of an answer

/// Bytes that one message takes. The library would split a longer step into messages that each read again.
size_t MessageLimit(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
{
    int64_t lLength = 0;
    const std::string lName = KyDeviceProtocol::DownstreamFeature(BulkIndex(aPort));
    // A device that does not say the length is left to the library's own limit.
    const bool lKnown = aAdapter.GetRegisterLength(lName.c_str(), lLength).IsOK() &&
                        lLength > KyDeviceProtocol::cSpiMessageHeader;
    return lKnown
               ? std::min(cLibraryLimit, static_cast<size_t>(lLength - KyDeviceProtocol::cSpiMessageHeader))
               : cLibraryLimit;
}

} // namespace

std::vector<SpiStep> SplitSpiTransfer(size_t aWrite, size_t aRead, bool aSimultaneous, size_t aLimit)
{
    std::vector<SpiStep> lSteps;
    do
    {
        const size_t lWrite = std::min(aWrite, aLimit);
        aWrite -= lWrite;
        // Reading begins with the step that has the last bytes to write.
        const size_t lRead = aSimultaneous ? lWrite : aWrite == 0 ? std::min(aRead, aLimit) : 0;
        aRead -= aSimultaneous ? 0 : lRead;
        lSteps.push_back({lWrite, lRead});
    } while (aWrite > 0 || (!aSimultaneous && aRead > 0));
    return lSteps;
}

SpiBus::SpiBus(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
    : mScope(aAdapter, aPort), mPort(aPort), mLimit(MessageLimit(aAdapter, aPort))
{
    OpenBus(mBus, mScope, aAdapter, aPort, "SPI");
}

SpiBus::~SpiBus()
{
    static_cast<void>(
        mBus.Close()); // fails only when the device is gone, which a transfer has reported before
}

std::vector<uint8_t> SpiBus::Transfer(const std::vector<uint8_t>& aWrite, size_t aRead, Options aOptions)
{
    const std::vector<SpiStep> lSteps =
        SplitSpiTransfer(aWrite.size(), aRead, aOptions.mSimultaneous, mLimit);
    std::vector<uint8_t> lBytes;
    const uint8_t* lNext = aWrite.data();
    for (size_t lIndex = 0; lIndex < lSteps.size(); ++lIndex)
    {
        const SpiStep lStep = lSteps[lIndex];
        // Only the last step releases the slave: to the slave all steps are one transfer.
        const bool lFinal = lIndex + 1 == lSteps.size() && !aOptions.mHold;
        Check(mBus.BurstWriteAndRead(lNext, static_cast<uint32_t>(lStep.mWrite),
                                     static_cast<uint32_t>(lStep.mRead), aOptions.mSimultaneous, lFinal),
              PortName(mPort) + ": SPI transfer failed");
        lNext += lStep.mWrite;
        // Collected after each step: a transfer may read far more than the port's buffer holds.
        Collect(lStep.mRead, lBytes);
    }
    return lBytes;
}

std::vector<uint8_t> SpiBus::Transfer(const std::vector<uint8_t>& aWrite, size_t aRead)
{
    return Transfer(aWrite, aRead, Options());
}

void SpiBus::Collect(size_t aCount, std::vector<uint8_t>& aBytes)
{
    const size_t lBefore = aBytes.size();
    aBytes.resize(lBefore + aCount);
    size_t lDone = 0;
    while (lDone < aCount)
    {
        // A read takes what has come so far, and a long answer comes in several events.
        uint32_t lRead = 0;
        Check(mBus.BurstRead(aBytes.data() + lBefore + lDone, static_cast<uint32_t>(aCount - lDone), lRead,
                             cAnswerTime),
              PortName(mPort) + ": SPI read failed after " + std::to_string(lBefore + lDone) + " bytes");
        lDone += lRead;
    }
}

} // namespace KySerialTool
