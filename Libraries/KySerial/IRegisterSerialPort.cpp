#include "IRegisterSerialPort.h"

#include "DeviceChecks.h"
#include "JxUtilsLib/Assert.h"
#include "KySerial/DeviceProtocol.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "PortMap.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace KySerialLib
{

using namespace KyDeviceProtocol;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/IRegisterSerialPort";

constexpr uint32_t cPadding = 3; // at the most
constexpr uint32_t cPostWriteMs = 1000;
constexpr int64_t cSaneUpstreamLength = 0x100000;

// The name that aName gives a bulk port; the empty text for any other port.
KyString NameFor(KyDeviceSerial aPort, std::string (*aName)(size_t))
{
    if (aPort < KyDeviceSerialBulk0 || aPort > KyDeviceSerialBulk7)
    {
        return {};
    }
    return KyString(aName(static_cast<size_t>(aPort - KyDeviceSerialBulk0)).c_str());
}

bool AreAvailable(IKyDeviceAdapter* aDevice, const KyString& aDownstream, const KyString& aUpstreamLength,
                  const KyString& aUpstreamBuffer)
{
    return aDevice->IsRegisterFeatureAvailable(aDownstream) &&
           aDevice->IsIntegerFeatureAvailable(aUpstreamLength) &&
           aDevice->IsRegisterFeatureAvailable(aUpstreamBuffer);
}

constexpr uint32_t PaddedLength(uint32_t aSize)
{
    return (aSize + cPadding) & ~cPadding;
}

} // namespace

// Grows a buffer that is too short; what it held is gone then. Fresh memory is zero, so that no byte of this
// process reaches a device, and costs nothing until it is used: a broken device may ask for any size.
bool IRegisterSerialPort::Grow(Buffer& aBuffer, uint32_t& aLength, uint32_t aNeeded, uint32_t aSlack)
{
    if (aLength >= aNeeded)
    {
        return true;
    }
    aLength = 0;
    aBuffer.reset(); // first: only one of the two needs memory at a time
    aBuffer.reset(static_cast<uint8_t*>(std::calloc(size_t{aNeeded} + aSlack, 1)));
    if (aBuffer == nullptr)
    {
        return false;
    }
    aLength = aNeeded;
    return true;
}

IRegisterSerialPort::IRegisterSerialPort(bool aSPI) : mIsSPI(aSPI) {}

IRegisterSerialPort::~IRegisterSerialPort()
{
    std::free(mUpstreamBuffer);
}

bool IRegisterSerialPort::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    const JxUtilsLib::Logger lLogger(cLogCategory, 0);
    const Caller lCaller{lLogger, "KySerialLib::IRegisterSerialPort::IsSupported"};
    if (!IsReachable(aDevice, lCaller) || !IsKorvoVideoInterface(aDevice, JxUtilsLib::PriorityError, lCaller))
    {
        return false;
    }
    return AreAvailable(aDevice, NameFor(aPort, &DownstreamFeature), NameFor(aPort, &UpstreamLengthFeature),
                        NameFor(aPort, &UpstreamBufferFeature));
}

bool IRegisterSerialPort::IsProtocolSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort,
                                              const KyString& aProtocol)
{
    const JxUtilsLib::Logger lLogger(cLogCategory, 0);
    const Caller lCaller{lLogger, "KySerialLib::IRegisterSerialPort::IsProtocolSupported"};
    if (!IsReachable(aDevice, lCaller) || !IsSupported(aDevice, aPort))
    {
        return false;
    }
    return aDevice->IsEnumEntryAvailable(cBulkModeFeature, aProtocol);
}

bool IRegisterSerialPort::AreFeaturesAvailable() const
{
    return AreAvailable(mDevice, mDownstreamFeature, mUpstreamLengthFeature, mUpstreamBufferFeature);
}

KyResult IRegisterSerialPort::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::IRegisterSerialPort::Open";
    // First: an exception for want of memory after the claim would keep the port claimed for ever.
    KyString lEvent = NameFor(aPort, &UpstreamEventName);
    KyString lDownstream = NameFor(aPort, &DownstreamFeature);
    KyString lUpstreamLength = NameFor(aPort, &UpstreamLengthFeature);
    KyString lUpstreamBuffer = NameFor(aPort, &UpstreamBufferFeature);
    KyResult lResult = ClaimPort(aDevice, aPort, &IsSupported, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    mUpstreamEvent = std::move(lEvent);
    mDownstreamFeature = std::move(lDownstream);
    mUpstreamLengthFeature = std::move(lUpstreamLength);
    mUpstreamBufferFeature = std::move(lUpstreamBuffer);
    mDevice = aDevice;
    mPort = aPort;
    if (!AreFeaturesAvailable()) // a device may change its mind between the two questions
    {
        JX_EXPECT(0);
        static_cast<void>(Close()); // ignored: the answer is about the port
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "The specified port is not supported by this device.");
    }
    // A port that hears nothing still sends, so neither of the next two failures ends the opening.
    lResult = aDevice->RegisterEventSink(this);
    if (!lResult.IsOK())
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, cFunction,
               "IRegisterSerialPort::Open had problems registering event sink! %s",
               lResult.GetCodeString().GetAscii());
    }
    lResult = aDevice->RegisterFeatureInterest(mUpstreamBufferFeature);
    if (!lResult.IsOK())
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, cFunction,
               "IRegisterSerialPort::Open had problems registering GenInvalidator! %s error %s",
               mUpstreamBufferFeature.GetAscii(), lResult.GetCodeString().GetAscii());
    }
    mOriginalEventNotification = KyString();
    lResult = SetEventNotification("On", &mOriginalEventNotification);
    if (!lResult.IsOK())
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, cFunction,
               "IRegisterSerialPort::Open could not set event notification %s will close",
               lResult.GetCodeString().GetAscii());
        static_cast<void>(Close()); // ignored: the failure before is the one to report
        return KyResult(KyResult::FAILURE);
    }
    return lResult;
}

KyResult IRegisterSerialPort::GetFeature(const char* aName, KyString& aValue)
{
    IKyDeviceAdapter* const lDevice = mDevice;
    const KyString lName(aName);
    KyResult lResult(KyResult::FAILURE);
    if (lDevice->IsFeatureAvailable(lName))
    {
        lResult = lDevice->GetFeatureAsString(lName, aValue);
    }
    if (!lResult.IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE,
                             "KySerialLib::IRegisterSerialPort::SetEventNotification",
                             "Couldn't get %s parameter.", aName);
    }
    return KyResult(KyResult::OK);
}

KyResult IRegisterSerialPort::SetFeature(const char* aName, const KyString& aValue)
{
    if (!mDevice.load()->SetFeatureFromString(aName, aValue).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE,
                             "KySerialLib::IRegisterSerialPort::SetEventNotification",
                             "Failed setting parameter %s to %s.", aName, aValue.GetAscii());
    }
    return KyResult(KyResult::OK);
}

KyResult IRegisterSerialPort::SetEventNotification(const char* aValue, KyString* aPrevious)
{
    KyString lOriginalSelector;
    KyResult lResult = GetFeature(cEventSelectorFeature, lOriginalSelector);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    const bool lSelectorChanged = lOriginalSelector != mUpstreamEvent;
    if (lSelectorChanged)
    {
        lResult = SetFeature(cEventSelectorFeature, mUpstreamEvent);
        if (!lResult.IsOK())
        {
            return lResult;
        }
    }
    // Failures from here on leave the selector on this port's event: clients that retry find it there.
    KyString lCurrentEventNotification;
    lResult = GetFeature(cEventNotificationFeature, lCurrentEventNotification);
    if (lResult.IsOK() && lCurrentEventNotification != aValue)
    {
        lResult = SetFeature(cEventNotificationFeature, aValue);
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (lSelectorChanged)
    {
        // Ignored: the notification is switched on already.
        static_cast<void>(mDevice.load()->SetFeatureFromString(cEventSelectorFeature, lOriginalSelector));
    }
    if (aPrevious != nullptr)
    {
        *aPrevious = std::move(lCurrentEventNotification);
    }
    return lResult;
}

KyResult IRegisterSerialPort::Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten)
{
    return WriteAndRead(aBuffer, aSize, aBytesWritten, 0, false, false);
}

// Makes room for one message. aPayload receives the number of bytes that it carries.
KyResult IRegisterSerialPort::PrepareDownstream(uint32_t& aPayload)
{
    static constexpr char cFunction[] = "KySerialLib::IRegisterSerialPort::WriteAndRead";
    int64_t lLengthAllowed = 0;
    KyResult lResult = mDevice.load()->GetRegisterLength(mDownstreamFeature, lLengthAllowed);
    if (!lResult.IsOK())
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction,
               "IRegisterSerialPort::Write Downstream get register failed");
        return lResult;
    }
    const uint32_t lHeader = mIsSPI ? cSpiMessageHeader : cMessageHeader;
    if (lLengthAllowed <= static_cast<int64_t>(lHeader))
    {
        return KY_LOG_RESULT(
            *mLogger, KyResult::BUFFER_TOO_SMALL, cFunction,
            "IRegisterSerialPort::Write length allowed %d is less than or equal to %d header bytes!",
            static_cast<int>(lLengthAllowed), static_cast<int>(lHeader));
    }
    // A device may offer more room than a message may have.
    const uint32_t lMessage = static_cast<uint32_t>(std::min<int64_t>(lLengthAllowed, cLongestMessage));
    // The padding of a feature whose length is no multiple of 4 goes beyond that length, never beyond the
    // array.
    if (!Grow(mDownstreamBuffer, mDownstreamBufferLength, lMessage, cPadding))
    {
        return OutOfMemory();
    }
    aPayload = lMessage - lHeader;
    return lResult;
}

KyResult IRegisterSerialPort::WriteAndRead(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten,
                                           uint32_t aReadSize, bool aSimultaneous, bool aFinal)
{
    static constexpr char cFunction[] = "KySerialLib::IRegisterSerialPort::WriteAndRead";
    aBytesWritten = 0;
    KyResult lResult = CheckConnected(mDevice, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (IsMissing(aBuffer, aSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, cFunction,
           "IRegisterSerialPort::Write sending %d bytes of data", static_cast<int>(aSize));
    uint32_t lPayload = 0;
    lResult = PrepareDownstream(lPayload);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (mIsSPI && aSize == 0)
    {
        return TransmitSPI(aBuffer, 0, aReadSize, aSimultaneous, aFinal); // a pure read
    }
    while (aBytesWritten < aSize && !AreWritesEnded())
    {
        const uint8_t* const lData = aBuffer + aBytesWritten;
        const uint32_t lSize = std::min(aSize - aBytesWritten, lPayload);
        lResult =
            mIsSPI ? TransmitSPI(lData, lSize, aReadSize, aSimultaneous, aFinal) : TransmitData(lData, lSize);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        CountSent(lData, lSize);
        aBytesWritten += lSize;
    }
    return KyResult(KyResult::OK);
}

// Words of a header travel in network order to GigE Vision devices, else in the order of the host.
void IRegisterSerialPort::PutWord(uint32_t aOffset, uint32_t aValue)
{
    uint8_t lBytes[4];
    if (mDevice.load()->IsGigEVision())
    {
        for (unsigned lByte = 0; lByte < sizeof(lBytes); ++lByte)
        {
            lBytes[lByte] = static_cast<uint8_t>(aValue >> (24U - 8U * lByte));
        }
    }
    else
    {
        std::memcpy(lBytes, &aValue, sizeof(lBytes));
    }
    std::memcpy(&mDownstreamBuffer[aOffset], lBytes, sizeof(lBytes));
}

KyResult IRegisterSerialPort::SendMessage(uint32_t aLength)
{
    IKyDeviceAdapter* const lDevice = mDevice;
    KyResult lResult = lDevice->SetRegisterData(mDownstreamFeature, mDownstreamBuffer.get(), aLength);
    if (lResult.IsOK())
    {
        static_cast<void>(lDevice->PostWrite(cPostWriteMs)); // ignored: the message is out
        return KyResult(KyResult::OK);
    }
    return lResult;
}

KyResult IRegisterSerialPort::TransmitData(const uint8_t* aData, uint32_t aSize)
{
    JX_ASSERT(aSize + 8 <= mDownstreamBufferLength);
    uint32_t lFlags = 0;
    lFlags |= mI2CFastMode ? cMessageFast : 0U;
    lFlags |= mI2CStop ? cMessageStop : 0U;
    lFlags |= mI2CFlag3 ? cMessageThird : 0U;
    lFlags |= mI2CTransfer ? cMessageTransfer : 0U;
    PutWord(0, lFlags);
    PutWord(4, aSize);
    std::memcpy(&mDownstreamBuffer[cMessageHeader], aData, aSize);
    return SendMessage(cMessageHeader + PaddedLength(aSize)); // padding keeps what the buffer held
}

KyResult IRegisterSerialPort::TransmitSPI(const uint8_t* aData, uint32_t aSize, uint32_t aReadSize,
                                          bool aSimultaneous, bool aFinal)
{
    // The check adds the remainder instead of the padding. For some sizes it is stricter than needed; it stays, since
    // log filters know the text of the assertion, blanks included.
    // clang-format off
    JX_EXPECT(aSize + (aSize%4) + 12 <= mDownstreamBufferLength);
    // clang-format on
    // The transfer is not refused: the message has one size for both, which is that of the bytes written.
    if (aSimultaneous && aReadSize != aSize)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, "KySerialLib::IRegisterSerialPort::TransmitSPI",
               "Simultaneous readwrite but read %d != write %d", static_cast<int>(aReadSize),
               static_cast<int>(aSize));
    }
    PutWord(0, 0);
    PutWord(4, aSize + cSpiControl); // the four control bytes count as data
    uint8_t* const lMessage = mDownstreamBuffer.get();
    lMessage[8] = aSimultaneous ? uint8_t{0} : static_cast<uint8_t>(aSize);
    lMessage[9] = aSimultaneous ? uint8_t{0} : static_cast<uint8_t>(aReadSize);
    lMessage[10] = aSimultaneous ? static_cast<uint8_t>(aSize) : uint8_t{0};
    lMessage[11] = aFinal ? 1 : 0;
    const uint32_t lPadded = PaddedLength(aSize);
    if (aSize > 0)
    {
        std::memcpy(lMessage + cSpiMessageHeader, aData, aSize);
    }
    std::memset(lMessage + cSpiMessageHeader + aSize, 0, lPadded - aSize);
    return SendMessage(cSpiMessageHeader + lPadded);
}

void IRegisterSerialPort::NotifyFeatureInvalidated(const KyString* aName)
{
    IKyDeviceAdapter* const lDevice = mDevice;
    if (IsRetired() || lDevice == nullptr || aName == nullptr || !lDevice->IsRegisterFeatureAvailable(*aName))
    {
        return;
    }
    // Whatever feature has changed, this port's own event is read: the adapter shows it no payload of another port.
    int64_t lRegLength = 0;
    if (!lDevice->GetRegisterLength(mUpstreamBufferFeature, lRegLength).IsOK())
    {
        // An adapter that fails may have left anything in the value.
        lRegLength = 0;
    }
    int64_t lTrueDataLength = 0;
    if (!lDevice->GetIntegerValue(mUpstreamLengthFeature, lTrueDataLength).IsOK())
    {
        lTrueDataLength = 0;
    }
    if (lTrueDataLength <= 0)
    {
        return;
    }
    JX_EXPECT(lTrueDataLength <= lRegLength);
    if (lTrueDataLength > lRegLength || lTrueDataLength > INT32_MAX)
    {
        return;
    }
    // The buffer grows once to the feature's length. An absurd length must not cost the event.
    const int64_t lNeeded = lRegLength <= cSaneUpstreamLength ? lRegLength : lTrueDataLength;
    // The buffer is taken out while this thread works with it, so that ReleaseBuffers() does not free it.
    Buffer lBuffer(mUpstreamBuffer.exchange(nullptr));
    // ReleaseBuffers() frees the buffer and leaves the length, which belongs to this thread.
    if (lBuffer == nullptr)
    {
        mUpstreamBufferLength = 0;
    }
    if (Grow(lBuffer, mUpstreamBufferLength, static_cast<uint32_t>(lNeeded), 0))
    {
        // Ignored: after a failure the buffer's bytes count as those of the event.
        static_cast<void>(lDevice->GetRegisterData(mUpstreamBufferFeature, lBuffer.get(), lTrueDataLength));
        LockRx();
        PushBytes(lBuffer.get(), static_cast<uint32_t>(lTrueDataLength));
        UnlockRx();
    }
    mUpstreamBuffer = lBuffer.release();
    if (IsRetired()) // meanwhile; one of the two threads finds the buffer
    {
        std::free(mUpstreamBuffer.exchange(nullptr));
    }
}

void IRegisterSerialPort::ReleaseBuffers()
{
    std::free(mUpstreamBuffer.exchange(nullptr));
    mDownstreamBuffer.reset();
    mDownstreamBufferLength = 0;
}

KyResult IRegisterSerialPort::Close()
{
    return CloseDevice(
        "KySerialLib::IRegisterSerialPort::Close",
        [this](IKyDeviceAdapter* aDevice)
        {
            // Results ignored: the port closes all the same.
            static_cast<void>(SetEventNotification(mOriginalEventNotification.GetAscii(), nullptr));
            static_cast<void>(aDevice->UnregisterFeatureInterest(mUpstreamBufferFeature));
            static_cast<void>(aDevice->UnregisterEventSink(this));
            // The release needs memory for a moment. Without it the port stays open, and Close() can be called again.
            static_cast<void>(PortMap::GetInstance().Unlock(aDevice, mPort));
            for (KyString* const lText : {&mUpstreamEvent, &mDownstreamFeature, &mUpstreamLengthFeature,
                                          &mUpstreamBufferFeature, &mOriginalEventNotification})
            {
                *lText = KyString();
            }
        });
}

} // namespace KySerialLib
