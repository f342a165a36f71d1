// Checks line settings, and says what is wrong with those that cannot be.

#include <JxUtilsLib/Logger.h>
#include <KySerial/KySerialPortConfiguration.h>

#include <cstdio>

namespace
{

bool Check(const KySerialPortConfiguration& aConfiguration)
{
    const KyResult lResult = aConfiguration.IsValid();
    std::printf("%u bit/s, %u data bits, %u stop bits: %s %s\n", aConfiguration.mBaudRate,
                aConfiguration.mBitsPerByte, aConfiguration.mStopBits, lResult.GetCodeString().GetAscii(),
                lResult.GetDescription().GetAscii());
    return lResult.IsOK();
}

} // namespace

int main()
{
    JxUtilsLib::Logger::SetPriority(JxUtilsLib::PriorityFatal); // what is wrong is printed here, not logged
    KySerialPortConfiguration lUsual;
    const KySerialPortConfiguration lFast(115200, KyParityEven, 8, 2);
    const KySerialPortConfiguration lSlow(300, KyParityNone, 8, 1);
    const bool lGood = Check(lUsual) && Check(lFast) && !Check(lSlow);
    lUsual.MakeInvalid();
    return lGood && !Check(lUsual) ? 0 : 1;
}
