// A complete way to a camera, as small as it gets: UART 0 through registers, with its output joined to its
// input. Docs/writing-an-adapter.md goes through it.

#include <KySerial/DeviceProtocol.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <vector>

namespace
{
using namespace KyDeviceProtocol;

class EchoCamera : public IKyDeviceAdapter
{
public:
    explicit EchoCamera(int64_t aMacAddress) : mMacAddress(aMacAddress) {}

    bool IsConnected() override { return true; }
    bool IsKorvoVideoInterface() override { return true; } // it has the serial registers
    bool IsGigEVision() override { return true; }
    bool IsAlternateTransport() override { return false; }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        aValue =
            aAddress == cFunctionCapabilities ? cImplemented | 1U : 0; // one UART; the rest is never used
        return KyResult::OK;
    }
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        if (aAddress == cUart0Data) // a byte to send; anything else would be interrupt enables
        {
            // A real camera raises these on its own time, and the adapter reports them on its event thread.
            // Received, with the byte, and bit 16 to say that it is one; then sent: the next byte may come.
            Report({cUart0Receive, 0, 0, 0, static_cast<uint8_t>(aValue), 0, 0x01, 0});
            Report({cUart0TransmitDone, 0, 0, 0});
        }
        return KyResult::OK;
    }

    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        const std::lock_guard<std::mutex> lScope(mMutex);
        mSinks.push_back(aSink);
        return KyResult::OK;
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        const std::lock_guard<std::mutex> lScope(mMutex);
        mSinks.erase(std::remove(mSinks.begin(), mSinks.end(), aSink), mSinks.end());
        return KyResult::OK;
    }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        aValue = mMacAddress; // identifies this camera among others, as a number
        return aName == KyString(cMacAddressFeature) ? KyResult::OK : KyResult::UNSUPPORTED;
    }

    // This camera has no other features, and no transmit window.
    bool IsIntegerFeatureAvailable(const KyString&) override { return false; }
    bool IsFeatureAvailable(const KyString&) override { return false; }
    bool IsRegisterFeatureAvailable(const KyString&) override { return false; }
    bool IsFeatureReadable(const KyString&) override { return false; }
    bool IsFeatureWritable(const KyString&) override { return false; }
    bool IsEnumEntryAvailable(const KyString&, const KyString&) override { return false; }
    KyResult GetStringValue(const KyString&, KyString&) override { return KyResult::UNSUPPORTED; }
    KyResult GetEnumEntries(const KyString&, KyStringList&) override { return KyResult::UNSUPPORTED; }
    KyResult GetFeatureAsString(const KyString&, KyString&) override { return KyResult::UNSUPPORTED; }
    KyResult SetFeatureFromString(const KyString&, const KyString&) override { return KyResult::UNSUPPORTED; }
    KyResult GetRegisterLength(const KyString&, int64_t&) override { return KyResult::UNSUPPORTED; }
    KyResult GetRegisterData(const KyString&, uint8_t*, int64_t) override { return KyResult::UNSUPPORTED; }
    KyResult SetRegisterData(const KyString&, const uint8_t*, int64_t) override
    {
        return KyResult::UNSUPPORTED;
    }
    KyResult RegisterFeatureInterest(const KyString&) override { return KyResult::UNSUPPORTED; }
    KyResult UnregisterFeatureInterest(const KyString&) override { return KyResult::UNSUPPORTED; }
    KyResult WriteMemory(const uint8_t*, uint32_t, uint32_t) override { return KyResult::UNSUPPORTED; }
    KyResult PostWrite(uint32_t) override { return KyResult::OK; }
    void Reserved0() override {}
    void Reserved3() override {}
    void Reserved12() override {}
    void Reserved13() override {}
    void Reserved23() override {}

private:
    void Report(const std::vector<uint8_t>& aPayload)
    {
        std::vector<IKyDeviceEventSink*> lSinks;
        {
            const std::lock_guard<std::mutex> lScope(mMutex); // not held while a sink is called
            lSinks = mSinks;
        }
        for (IKyDeviceEventSink* const lSink : lSinks)
        {
            lSink->NotifyEvent(cInterruptEvent, 0, 0, 0, aPayload.data(),
                               static_cast<uint32_t>(aPayload.size()));
        }
    }

    const int64_t mMacAddress;
    std::mutex mMutex;
    std::vector<IKyDeviceEventSink*> mSinks;
};

} // namespace

int main()
{
    EchoCamera lCamera(0x020000000099);
    EchoCamera lOther(0x02000000009A); // has an address of its own: the same port of both can be open at once
    KyDeviceSerialPort lPort;
    KyDeviceSerialPort lOtherPort;
    char lAnswer[6] = "";
    uint32_t lCount = 0;
    KyResult lResult = lPort.Open(&lCamera, KyDeviceSerialUart0);
    lResult = lResult.IsOK() ? lOtherPort.Open(&lOther, KyDeviceSerialUart0) : lResult;
    lResult = lResult.IsOK() ? lPort.Write(reinterpret_cast<const uint8_t*>("hello"), 5, lCount) : lResult;
    lResult = lResult.IsOK() ? lPort.Read(reinterpret_cast<uint8_t*>(lAnswer), 5, lCount, 1000) : lResult;
    std::printf("%s: %s\n", lResult.GetCodeString().GetAscii(), lAnswer);
    return lPort.Close().IsOK() && lOtherPort.Close().IsOK() && lCount == 5 ? 0 : 1;
}
