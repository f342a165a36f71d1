// The calls that set up a line and its times.

#include "KyPlatform/HostSerialPort.h"
#include "KyPlatform/Windows/SystemCalls.h"

#include <gtest/gtest.h>

using namespace KyPlatform;

namespace
{

DCB gLine;
COMMTIMEOUTS gTimeouts;
std::string gPath;
DWORD gSharing = 99;
DWORD gFlags = 0;
DWORD gError = 0;
DWORD gBytes = 0;
BOOL gAnswer = TRUE;
const auto cHandle = reinterpret_cast<HANDLE>(0x1234);

HANDLE WINAPI OpenPort(const char* aPath, DWORD aAccess, DWORD aSharing, SECURITY_ATTRIBUTES* /*aSecurity*/,
                       DWORD aKind, DWORD aFlags, HANDLE /*aTemplate*/)
{
    EXPECT_EQ(aAccess, GENERIC_READ | GENERIC_WRITE);
    EXPECT_EQ(aKind, DWORD{OPEN_EXISTING});
    gPath = aPath;
    gSharing = aSharing;
    gFlags = aFlags;
    return gAnswer != FALSE ? cHandle : INVALID_HANDLE_VALUE;
}

BOOL WINAPI SetTimeouts(HANDLE /*aPort*/, COMMTIMEOUTS* aTimeouts)
{
    gTimeouts = *aTimeouts;
    return gAnswer;
}

BOOL WINAPI GetLine(HANDLE /*aPort*/, DCB* aLine)
{
    EXPECT_EQ(aLine->DCBlength, sizeof(DCB));
    *aLine = gLine;
    return gAnswer;
}

BOOL WINAPI SetLine(HANDLE /*aPort*/, DCB* aLine)
{
    gLine = *aLine;
    return gAnswer;
}

BOOL WINAPI CloseHandle(HANDLE aHandle)
{
    return aHandle == cHandle ? TRUE : GetRealSystem().mCloseHandle(aHandle);
}

// Transfers that end at once, as gAnswer, gBytes and gError say, or later, if that error is "pending".
BOOL WINAPI Read(HANDLE /*aPort*/, void* /*aBuffer*/, DWORD /*aSize*/, DWORD* aBytes, OVERLAPPED* aOverlapped)
{
    *aBytes = gBytes;
    ::SetLastError(gError);
    if (gError == ERROR_IO_PENDING)
    {
        ::SetEvent(aOverlapped->hEvent);
    }
    return gAnswer;
}

BOOL WINAPI Write(HANDLE aPort, const void* /*aData*/, DWORD aSize, DWORD* aBytes, OVERLAPPED* aOverlapped)
{
    return Read(aPort, nullptr, aSize, aBytes, aOverlapped);
}

DWORD gResultError = 0;
BOOL WINAPI GetResult(HANDLE /*aPort*/, OVERLAPPED* /*aOverlapped*/, DWORD* aBytes, BOOL /*aWait*/)
{
    *aBytes = gBytes;
    ::SetLastError(gResultError);
    return gResultError == 0 ? TRUE : FALSE;
}

class HostLineTest : public testing::Test
{
protected:
    void SetUp() override
    {
        gAnswer = TRUE;
        gError = 0;
        gBytes = 0;
        gResultError = 0;
        gSystem.mOpenPort = &OpenPort;
        gSystem.mSetTimeouts = &SetTimeouts;
        gSystem.mGetLine = &GetLine;
        gSystem.mSetLine = &SetLine;
        gSystem.mCloseHandle = &CloseHandle;
        gSystem.mReadPort = &Read;
        gSystem.mWritePort = &Write;
        gSystem.mGetResult = &GetResult;
        gLine = DCB{};
        gLine.DCBlength = sizeof gLine;
        ASSERT_TRUE(mPort.Open(R"(\\.\COM7)"));
        ASSERT_TRUE(mStop.Create());
    }
    ~HostLineTest() override
    {
        mPort.Close();
        gSystem = GetRealSystem();
    }
    void Set(const HostLine& aLine)
    {
        ASSERT_TRUE(mPort.ReadLine());
        ASSERT_TRUE(mPort.SetLine(aLine));
    }

    HostSerialPort mPort;
    StopEvent mStop;
    char mByte = 0;
};

TEST_F(HostLineTest, OpensTheDeviceAloneForOverlappedTransfers)
{
    EXPECT_EQ(gPath, R"(\\.\COM7)");
    EXPECT_EQ(gSharing, 0U);
    EXPECT_EQ(gFlags, DWORD{FILE_FLAG_OVERLAPPED | FILE_ATTRIBUTE_NORMAL});
    gAnswer = FALSE;
    EXPECT_FALSE(mPort.Open(R"(\\.\COM7)"));
}

TEST_F(HostLineTest, TimesAreThese)
{
    EXPECT_TRUE(mPort.SetTimeouts());
    EXPECT_EQ(gTimeouts.ReadIntervalTimeout, 10U);
    EXPECT_EQ(gTimeouts.ReadTotalTimeoutMultiplier, 0U);
    EXPECT_EQ(gTimeouts.ReadTotalTimeoutConstant, 0U);
    EXPECT_EQ(gTimeouts.WriteTotalTimeoutMultiplier, 1000U);
    EXPECT_EQ(gTimeouts.WriteTotalTimeoutConstant, 100U);
    gAnswer = FALSE;
    EXPECT_FALSE(mPort.SetTimeouts());
}

TEST_F(HostLineTest, SetsWhatIsAskedForAndKeepsTheRest)
{
    gLine.fAbortOnError = TRUE;
    gLine.fDsrSensitivity = TRUE;
    gLine.fOutX = TRUE;
    gLine.fRtsControl = RTS_CONTROL_HANDSHAKE;
    gLine.XonChar = 0x11;
    Set({115200, 7, HostLine::Parity::Even, true, true});
    EXPECT_EQ(gLine.BaudRate, 115200U);
    EXPECT_EQ(gLine.ByteSize, 7);
    EXPECT_EQ(gLine.Parity, EVENPARITY);
    EXPECT_EQ(gLine.fParity, 1U);
    EXPECT_EQ(gLine.StopBits, TWOSTOPBITS);
    EXPECT_EQ(gLine.fAbortOnError, 0U);
    EXPECT_EQ(gLine.fDsrSensitivity, 0U);
    EXPECT_EQ(gLine.fOutX, 1U);
    EXPECT_EQ(gLine.fRtsControl, DWORD{RTS_CONTROL_HANDSHAKE});
    EXPECT_EQ(gLine.XonChar, 0x11);
}

TEST_F(HostLineTest, OddParityIsNotChecked)
{
    gLine.fParity = TRUE;
    Set({9600, 8, HostLine::Parity::Odd, false, false});
    EXPECT_EQ(gLine.Parity, ODDPARITY);
    EXPECT_EQ(gLine.fParity, 0U);
    EXPECT_EQ(gLine.StopBits, ONESTOPBIT);
}

TEST_F(HostLineTest, NoParityLeavesTheSchemeAndStopsChecking)
{
    gLine.fParity = TRUE;
    gLine.Parity = MARKPARITY;
    Set(HostLine());
    EXPECT_EQ(gLine.Parity, MARKPARITY);
    EXPECT_EQ(gLine.fParity, 0U);
    EXPECT_EQ(gLine.BaudRate, 9600U);
    EXPECT_EQ(gLine.ByteSize, 8);
}

TEST_F(HostLineTest, RefusalsAreReported)
{
    gAnswer = FALSE;
    EXPECT_FALSE(mPort.ReadLine());
    EXPECT_FALSE(mPort.SetLine(HostLine())); // nothing has been read
    gAnswer = TRUE;
    EXPECT_TRUE(mPort.ReadLine());
    gAnswer = FALSE;
    EXPECT_FALSE(mPort.SetLine(HostLine()));
}

TEST_F(HostLineTest, TransfersReportRefusalAndLaterFailureApart)
{
    gAnswer = FALSE;
    gError = ERROR_ACCESS_DENIED;
    for (const auto& lResult : {mPort.Read(&mByte, 1, mStop), mPort.Write(&mByte, 1, mStop)})
    {
        EXPECT_EQ(lResult.mEnd, HostTransfer::Refused);
        EXPECT_EQ(lResult.mError, DWORD{ERROR_ACCESS_DENIED});
    }
    gError = ERROR_IO_PENDING;
    gResultError = ERROR_GEN_FAILURE;
    gBytes = 0;
    for (const auto& lResult : {mPort.Read(&mByte, 1, mStop), mPort.Write(&mByte, 1, mStop)})
    {
        EXPECT_EQ(lResult.mEnd, HostTransfer::Unsuccessful);
        EXPECT_EQ(lResult.mError, DWORD{ERROR_GEN_FAILURE});
    }
}

TEST_F(HostLineTest, TransfersAreDoneAtOnceOrLater)
{
    gBytes = 5;
    EXPECT_EQ(mPort.Read(&mByte, 1, mStop).mBytes, 5U);
    gAnswer = FALSE;
    gError = ERROR_IO_PENDING;
    gBytes = 6;
    const HostTransferResult lRead = mPort.Read(&mByte, 1, mStop);
    EXPECT_EQ(lRead.mEnd, HostTransfer::Done);
    EXPECT_EQ(lRead.mBytes, 6U);
    EXPECT_EQ(mPort.Write(&mByte, 1, mStop).mBytes, 6U);
}

// Some systems end a quiet read like this; it is no failure, and no byte is lost by it.
TEST_F(HostLineTest, AReadThatTimesOutIsDoneWithoutBytes)
{
    gAnswer = FALSE;
    gError = ERROR_IO_PENDING;
    gResultError = ERROR_TIMEOUT;
    HostTransferResult lRead = mPort.Read(&mByte, 1, mStop);
    EXPECT_EQ(lRead.mEnd, HostTransfer::Done);
    EXPECT_EQ(lRead.mBytes, 0U);
    EXPECT_EQ(lRead.mError, 0U);
    gError = ERROR_TIMEOUT;
    lRead = mPort.Read(&mByte, 1, mStop);
    EXPECT_EQ(lRead.mEnd, HostTransfer::Done);
}

} // namespace
