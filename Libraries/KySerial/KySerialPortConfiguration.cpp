#include "KySerial/KySerialPortConfiguration.h"

#include "LogResult.h"

#include <algorithm>
#include <iterator>

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/KySerialPortConfiguration";

// Fixed, whatever a device or a host port could run.
constexpr uint32_t cBaudRates[] = {9600, 14400, 19200, 28800, 38400, 57600, 115200};

KyResult Invalid(const char* aMessage)
{
    // A configuration is a plain value without a logger of its own.
    const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory);
    return KY_LOG_RESULT(lLogger, KyResult::BAD_PARAMETER, "KySerialPortConfiguration::IsValid", "%s",
                         aMessage);
}

} // namespace

KySerialPortConfiguration::KySerialPortConfiguration() : KySerialPortConfiguration(9600, KyParityNone, 8, 1)
{
}

KySerialPortConfiguration::KySerialPortConfiguration(uint32_t aBaudRate, KyParity aParity,
                                                     uint32_t aBitsPerByte, uint32_t aStopBits)
    : mBaudRate(aBaudRate), mParity(aParity), mBitsPerByte(aBitsPerByte), mStopBits(aStopBits)
{
}

KySerialPortConfiguration::KySerialPortConfiguration(const KySerialPortConfiguration& aOther) = default;
KySerialPortConfiguration&
KySerialPortConfiguration::operator=(const KySerialPortConfiguration& aOther) = default;
KySerialPortConfiguration::~KySerialPortConfiguration() = default;

void KySerialPortConfiguration::MakeInvalid()
{
    mBaudRate = 0;
    mParity =
        static_cast<KyParity>(-1); // no enumerator: IsValid() refuses the baud rate before it looks here
}

KyResult KySerialPortConfiguration::IsValid() const
{
    if (std::find(std::begin(cBaudRates), std::end(cBaudRates), mBaudRate) == std::end(cBaudRates))
    {
        return Invalid("Invalid port speed. 9600, 14400, 19200, 28800, 38400, 57600 and 115200 supported.");
    }
    if (mParity != KyParityNone && mParity != KyParityEven && mParity != KyParityOdd)
    {
        return Invalid("Invalid parity. KyParityNone, KyParityEven and KyParityOdd supported.");
    }
    if (mBitsPerByte != 7 && mBitsPerByte != 8)
    {
        return Invalid("Invalid number of bits per byte. 7 and 8 supported.");
    }
    if (mStopBits != 1 && mStopBits != 2)
    {
        return Invalid("Invalid number of stop bits. 1 and 2 supported.");
    }
    return KyResult(KyResult::OK);
}
