#include "KySerial/KySerialPortConfiguration.h"

#include "KySerial/EngineTest.h"

#include <cstddef>
#include <limits>
#include <type_traits>

using namespace KyTest;

namespace
{

constexpr char cSpeed[] = "Invalid port speed. 9600, 14400, 19200, 28800, 38400, 57600 and 115200 supported.";
constexpr char cParity[] = "Invalid parity. KyParityNone, KyParityEven and KyParityOdd supported.";
constexpr char cBits[] = "Invalid number of bits per byte. 7 and 8 supported.";
constexpr char cStop[] = "Invalid number of stop bits. 1 and 2 supported.";
constexpr uint32_t cMax = std::numeric_limits<uint32_t>::max();

class KySerialPortConfigurationTest : public EngineTest
{
protected:
    // Checks that nothing but this failure is in the log and that the object has not changed.
    void ExpectRefused(const KySerialPortConfiguration& aConfiguration, const char* aText)
    {
        // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): a reference would show no change
        const KySerialPortConfiguration lBefore(aConfiguration);
        ExpectFailure(aConfiguration.IsValid(), KyResult::BAD_PARAMETER, "KySerialPortConfiguration::IsValid",
                      aText, "KySerialPortConfiguration");
        ExpectSame(aConfiguration, lBefore);
    }

    void ExpectValid(const KySerialPortConfiguration& aConfiguration)
    {
        EXPECT_THAT(aConfiguration.IsValid(), IsOK());
        EXPECT_EQ(TakeLog(), Lines());
    }

    static void ExpectSame(const KySerialPortConfiguration& aOne, const KySerialPortConfiguration& aOther)
    {
        EXPECT_EQ(aOne.mBaudRate, aOther.mBaudRate);
        EXPECT_EQ(static_cast<int>(aOne.mParity), static_cast<int>(aOther.mParity));
        EXPECT_EQ(aOne.mBitsPerByte, aOther.mBitsPerByte);
        EXPECT_EQ(aOne.mStopBits, aOther.mStopBits);
    }
};

TEST_F(KySerialPortConfigurationTest, StartsWith9600BaudNoParity8DataBits1StopBit)
{
    const KySerialPortConfiguration lConfiguration;
    ExpectSame(lConfiguration, KySerialPortConfiguration(9600, KyParityNone, 8, 1));
    EXPECT_EQ(lConfiguration.mBaudRate, 9600U);
    ExpectValid(lConfiguration);
}

TEST_F(KySerialPortConfigurationTest, IsFourWordsInOrderWithoutVirtualFunctions)
{
    // Applications read the members by their place.
    EXPECT_EQ(sizeof(KySerialPortConfiguration), 16U);
    EXPECT_EQ(offsetof(KySerialPortConfiguration, mBaudRate), 0U);
    EXPECT_EQ(offsetof(KySerialPortConfiguration, mParity), 4U);
    EXPECT_EQ(offsetof(KySerialPortConfiguration, mBitsPerByte), 8U);
    EXPECT_EQ(offsetof(KySerialPortConfiguration, mStopBits), 12U);
    EXPECT_FALSE(std::is_polymorphic_v<KySerialPortConfiguration>);
    EXPECT_TRUE(std::is_unsigned_v<decltype(KySerialPortConfiguration::mBaudRate)>);
}

TEST_F(KySerialPortConfigurationTest, CopiesMemberByMember)
{
    const KySerialPortConfiguration lSource(115200, KyParityOdd, 7, 2);
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is what is looked at
    const KySerialPortConfiguration lCopy(lSource);
    KySerialPortConfiguration lAssigned;
    lAssigned = lSource;
    ExpectSame(lCopy, lSource);
    ExpectSame(lAssigned, lSource);
}

TEST_F(KySerialPortConfigurationTest, AcceptsEveryCombinationOfTheValuesThatPortsHave)
{
    for (const uint32_t lSpeed : {9600U, 14400U, 19200U, 28800U, 38400U, 57600U, 115200U})
    {
        for (const KyParity lParity : {KyParityNone, KyParityEven, KyParityOdd})
        {
            for (const uint32_t lBits : {7U, 8U})
            {
                SCOPED_TRACE(lSpeed);
                ExpectValid(KySerialPortConfiguration(lSpeed, lParity, lBits, 1));
                ExpectValid(KySerialPortConfiguration(lSpeed, lParity, lBits, 2));
            }
        }
    }
}

TEST_F(KySerialPortConfigurationTest, RefusesEveryOtherValue)
{
    for (const uint32_t lSpeed : {0U, 1U, 4800U, 9599U, 9601U, 115199U, 115201U, 230400U, cMax})
    {
        ExpectRefused(KySerialPortConfiguration(lSpeed, KyParityNone, 8, 1), cSpeed);
    }
    // Numbers without a name, as a foreign caller may pass them.
    for (const int lParity : {-1, 3, 0x7FFFFFFF})
    {
        ExpectRefused(KySerialPortConfiguration(9600, static_cast<KyParity>(lParity), 8, 1), cParity);
    }
    for (const uint32_t lBits : {0U, 5U, 6U, 9U, cMax})
    {
        ExpectRefused(KySerialPortConfiguration(115200, KyParityOdd, lBits, 1), cBits);
    }
    for (const uint32_t lBits : {0U, 3U, cMax})
    {
        ExpectRefused(KySerialPortConfiguration(19200, KyParityNone, 8, lBits), cStop);
    }
}

TEST_F(KySerialPortConfigurationTest, NamesTheFirstWrongMemberOnly)
{
    const KyParity lNoParity = static_cast<KyParity>(3);
    ExpectRefused(KySerialPortConfiguration(1, lNoParity, 0, 0), cSpeed);
    ExpectRefused(KySerialPortConfiguration(9600, lNoParity, 0, 0), cParity);
    ExpectRefused(KySerialPortConfiguration(9600, KyParityEven, 0, 0), cBits);
    ExpectRefused(KySerialPortConfiguration(9600, KyParityEven, 7, 0), cStop);
}

TEST_F(KySerialPortConfigurationTest, MadeInvalidKeepsDataAndStopBitsAndFailsForItsSpeed)
{
    KySerialPortConfiguration lConfiguration(115200, KyParityOdd, 7, 2);
    lConfiguration.MakeInvalid();
    ExpectSame(lConfiguration, KySerialPortConfiguration(0, static_cast<KyParity>(-1), 7, 2));
    ExpectRefused(lConfiguration, cSpeed);
}

TEST_F(KySerialPortConfigurationTest, DescribesAFailureThatNoPriorityLogs)
{
    DisableEveryPriority();
    EXPECT_THAT(KySerialPortConfiguration(0, KyParityNone, 8, 1).IsValid(),
                IsResult(KyResult::BAD_PARAMETER, cSpeed));
    EXPECT_EQ(TakeLog(), Lines());
}

} // namespace
