#include "BridgeCOM.h"

#include "BridgePacer.h"
#include "JxUtilsLib/Assert.h"
#include "LogResult.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace KySerialLib
{

namespace
{

using KyPlatform::HostLine;
using KyPlatform::HostTransfer;
using KyPlatform::HostTransferResult;

constexpr char cSourceFile[] = "Libraries/KySerial/BridgeCOM";

constexpr uint32_t cBufferSize = 16384;
constexpr uint32_t cDeviceReadTimeout = 1000; // ms; a stop ends the read itself

bool IsDigit(char aCharacter)
{
    return aCharacter >= '0' && aCharacter <= '9';
}

// "COM" in any case, and one digit or two.
bool IsComName(const char* aName)
{
    const size_t lLength = std::strlen(aName);
    if (lLength < 4 || lLength > 5)
    {
        return false;
    }
    return (aName[0] == 'C' || aName[0] == 'c') && (aName[1] == 'O' || aName[1] == 'o') &&
           (aName[2] == 'M' || aName[2] == 'm') && IsDigit(aName[3]) && (lLength == 4 || IsDigit(aName[4]));
}

} // namespace

BridgeCOM::~BridgeCOM()
{
    StopThreads();
    mHostPort.Close();
    Release();
}

uint32_t BridgeCOM::GetBaudRate() const
{
    const uint32_t lBaudRate = Bridge::GetBaudRate();
    if (lBaudRate != 0)
    {
        return lBaudRate;
    }
    return GetConfiguration().mBaudRate;
}

bool BridgeCOM::IsBaudRateSupported(uint32_t /*aBaudRate*/) const
{
    return true;
}

KyResult BridgeCOM::ParseCOMPort(const char* aName, KyString& aPath)
{
    if (KyPlatform::HostSerialPort::IsPath(aName))
    {
        aPath = KyString(aName);
    }
    else if (aName != nullptr && IsComName(aName))
    {
        // Windows opens ports above COM9 by this form only. The Linux port knows the same form.
        char lPath[16] = {};
        static_cast<void>(std::snprintf(lPath, sizeof lPath, R"(\\.\COM%s)", &aName[3])); // one digit or two
        aPath = KyString(lPath);
    }
    else
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, "KySerialLib::BridgeCOM::ParseCOMPort",
                             "Serial port string not formatted as expected. Example: COM5.");
    }
    mSerialPort = KyString(aName);
    return KyResult(KyResult::OK);
}

KyResult BridgeCOM::CloseAfter(KyResult aFailure)
{
    mHostPort.Close();
    return aFailure;
}

// Both ends of a host port need the same settings.
KySerialPortConfiguration BridgeCOM::Complete(const KySerialPortConfiguration& aConfiguration)
{
    const KySerialPortConfiguration lDevice = ReadDeviceSettings();
    const KySerialPortConfiguration lUsual;
    KySerialPortConfiguration lLine = aConfiguration;
    if (lLine.mBaudRate == 0)
    {
        // A device may run at a rate that no host port has. Both ends get the usual one then.
        const KySerialPortConfiguration lRate(lDevice.mBaudRate, KyParityNone, 8, 1);
        lLine.mBaudRate =
            lDevice.mBaudRate != 0 && lRate.IsValid().IsOK() ? lDevice.mBaudRate : lUsual.mBaudRate;
    }
    if (static_cast<int>(lLine.mParity) == -1)
    {
        lLine.mParity = static_cast<int>(lDevice.mParity) == -1 ? lUsual.mParity : lDevice.mParity;
    }
    if (lLine.mStopBits == 0)
    {
        lLine.mStopBits = lDevice.mStopBits != 0 ? lDevice.mStopBits : lUsual.mStopBits;
    }
    return lLine;
}

KyResult BridgeCOM::OpenCOMPort(const char* aName, const KySerialPortConfiguration& aConfiguration)
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCOM::OpenCOMPort";
    KyString lPath;
    KyResult lResult = ParseCOMPort(aName, lPath);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (!mHostPort.Open(lPath.GetAscii()))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Unable to open requested COM port.");
    }
    if (!mHostPort.SetTimeouts())
    {
        return CloseAfter(
            KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Unable to set COM port timeouts."));
    }
    lResult = SetSerialPortConfiguration(GetOptions().mKeepsLine ? Complete(aConfiguration) : aConfiguration);
    if (!lResult.IsOK())
    {
        return CloseAfter(lResult);
    }
    static_cast<void>(RefreshSupportedBaudRates()); // ignored: a device that does not say offers no rates
    return KyResult(KyResult::OK);
}

HostLine BridgeCOM::ToHostLine(const KySerialPortConfiguration& aConfiguration)
{
    HostLine lLine; // 9600 bit/s, no parity, 8 data bits, one stop bit
    switch (aConfiguration.mBaudRate)
    {
    case 9600:
    case 14400:
    case 19200:
    case 28800:
    case 38400:
    case 57600:
    case 115200:
        lLine.mBaudRate = aConfiguration.mBaudRate;
        break;
    default:
        // SetSerialPortConfiguration() has refused it before. Without assertions the usual value stays.
        JX_ASSERT(false);
    }
    switch (aConfiguration.mParity)
    {
    case KyParityNone:
        break;
    case KyParityEven:
        lLine.mCheckParity = true;
        lLine.mParity = HostLine::Parity::Even;
        break;
    case KyParityOdd:
        lLine.mParity = HostLine::Parity::Odd; // not checked on purpose: clients rely on that
        break;
    default:
        JX_ASSERT(false);
    }
    switch (aConfiguration.mBitsPerByte)
    {
    case 7:
    case 8:
        lLine.mDataBits = aConfiguration.mBitsPerByte;
        break;
    default:
        JX_ASSERT(false);
    }
    switch (aConfiguration.mStopBits)
    {
    case 1:
        break;
    case 2:
        lLine.mTwoStopBits = true;
        break;
    default:
        JX_ASSERT(false);
    }
    return lLine;
}

KyResult BridgeCOM::SetSerialPortConfiguration(const KySerialPortConfiguration& aConfiguration)
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCOM::SetSerialPortConfiguration";
    // The line is read before the check: a host port that does not answer is FAILURE, whatever the
    // configuration is. SetLine() starts from what was read.
    if (!mHostPort.ReadLine())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Unable to read current COM port configuration.");
    }
    KyResult lResult = aConfiguration.IsValid();
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (!mHostPort.SetLine(ToHostLine(aConfiguration)))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Unable to set COM port configuraton.");
    }
    // Settings count only when the host port has taken them. Then the device gets them too.
    SetConfiguration(aConfiguration);
    static_cast<void>(
        ConfigurePort()); // ignored: the host port works, and the device's refusals are in the log
    return lResult;
}

uint32_t BridgeCOM::UpThread(void* aBridge)
{
    static_cast<BridgeCOM*>(static_cast<Bridge*>(aBridge))->RelayUp();
    return 0;
}

uint32_t BridgeCOM::DownThread(void* aBridge)
{
    static_cast<BridgeCOM*>(static_cast<Bridge*>(aBridge))->RelayDown();
    return 0;
}

void BridgeCOM::WriteToHost(const uint8_t* aData, uint32_t aSize)
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCOM::UpThread";
    // The log texts name the calls of Windows on both systems: a log filter knows them everywhere.
    const HostTransferResult lWrite = mHostPort.Write(aData, aSize, mStopEvent);
    if (lWrite.mEnd == HostTransfer::Refused)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction, "WriteFile failure: 0x%08X",
               static_cast<unsigned>(lWrite.mError));
    }
    if (lWrite.mEnd == HostTransfer::Unsuccessful)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction, "GetOverlappedResult failure: 0x%08X",
               static_cast<unsigned>(lWrite.mError));
    }
    mStatistics.mBytesReceivedFromDevice += aSize - CountDelivery(aSize, lWrite.mBytes);
    if (lWrite.mBytes != aSize && lWrite.mEnd != HostTransfer::Stopped)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction,
               "Error writting bytes (%d out of %d) from the KyDevice serial port to the COM port.",
               static_cast<int>(lWrite.mBytes), static_cast<int>(aSize));
    }
}

void BridgeCOM::RelayUp()
{
    std::array<uint8_t, cBufferSize> lBuffer;
    while (!mStop)
    {
        uint32_t lRead = 0;
        if (ReadFromDevice(lBuffer.data(), cBufferSize, lRead, cDeviceReadTimeout))
        {
            WriteToHost(lBuffer.data(), lRead);
        }
    }
}

void BridgeCOM::RelayDown()
{
    static constexpr char cFunction[] = "KySerialLib::BridgeCOM::DownThread";
    std::array<uint8_t, cBufferSize> lBuffer;
    BridgePacer lPacer;
    while (!mStop)
    {
        lPacer.Begin();
        const HostTransferResult lRead = mHostPort.Read(lBuffer.data(), cBufferSize, mStopEvent);
        if (lRead.mEnd == HostTransfer::Stopped)
        {
            // The stop has ended a read that had bytes already. They are lost, and the account says so.
            mAccount.Take(BridgeWay::ToDevice, lRead.mBytes);
            CutOff(BridgeWay::ToDevice, lRead.mBytes);
            return;
        }
        if (lRead.mEnd == HostTransfer::Refused)
        {
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction, "ReadFile failure: 0x%08X",
                   static_cast<unsigned>(lRead.mError));
        }
        if (lRead.mEnd == HostTransfer::Unsuccessful)
        {
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction, "GetOverlappedResult failure: 0x%08X",
                   static_cast<unsigned>(lRead.mError));
        }
        if (lRead.mBytes == 0)
        {
            // A port that has vanished fails, or gives nothing, at once, so the thread pauses between its tries.
            static_cast<void>(mStopEvent.Wait(lPacer.GetDelay())); // ignored: the loop looks at the flag
            continue;
        }
        lPacer.Reset();
        if (!WriteToDevice(lBuffer.data(), lRead.mBytes))
        {
            KY_LOG(*mLogger, JxUtilsLib::PriorityError, cFunction,
                   "Error writting data from the COM port to the KyDevice serial port.");
        }
    }
}

} // namespace KySerialLib
