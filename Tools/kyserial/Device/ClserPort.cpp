#include "kyserial/Device/ClserPort.h"
#include "kyserial/Text/Failure.h"

#include "KyPlatform/Session.h"
#include "KyPlatform/SharedMemory.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr std::array<std::pair<CLINT32, const char*>, 15> cNames = {
    {{CL_ERR_BUFFER_TOO_SMALL, "CL_ERR_BUFFER_TOO_SMALL"},
     {CL_ERR_MANU_DOES_NOT_EXIST, "CL_ERR_MANU_DOES_NOT_EXIST"},
     {CL_ERR_PORT_IN_USE, "CL_ERR_PORT_IN_USE"},
     {CL_ERR_TIMEOUT, "CL_ERR_TIMEOUT"},
     {CL_ERR_INVALID_INDEX, "CL_ERR_INVALID_INDEX"},
     {CL_ERR_INVALID_REFERENCE, "CL_ERR_INVALID_REFERENCE"},
     {CL_ERR_ERROR_NOT_FOUND, "CL_ERR_ERROR_NOT_FOUND"},
     {CL_ERR_BAUD_RATE_NOT_SUPPORTED, "CL_ERR_BAUD_RATE_NOT_SUPPORTED"},
     {CL_ERR_OUT_OF_MEMORY, "CL_ERR_OUT_OF_MEMORY"},
     {CL_ERR_REGISTRY_KEY_NOT_FOUND, "CL_ERR_REGISTRY_KEY_NOT_FOUND"},
     {CL_ERR_INVALID_PTR, "CL_ERR_INVALID_PTR"},
     {CL_ERR_IN_USE, "CL_ERR_IN_USE"},
     {CL_ERR_INVALID_ARG, "CL_ERR_INVALID_ARG"},
     {CL_ERR_UNABLE_TO_LOAD_DLL, "CL_ERR_UNABLE_TO_LOAD_DLL"},
     {CL_ERR_FUNCTION_NOT_FOUND, "CL_ERR_FUNCTION_NOT_FOUND"}}};

} // namespace

std::string ClserText(CLINT32 aCode)
{
    const auto* const lName =
        std::find_if(cNames.begin(), cNames.end(), [&](const auto& aName) { return aName.first == aCode; });
    std::array<CLINT8, 256> lText{};
    auto lSize = static_cast<CLUINT32>(lText.size());
    std::string lResult = lName != cNames.end() ? lName->second + std::string(" (") : "error (";
    lResult += std::to_string(aCode) + ')';
    if (clGetErrorText(aCode, lText.data(), &lSize) == CL_ERR_NO_ERR)
    {
        lResult += std::string(": ") + lText.data();
    }
    return lResult;
}

void CheckClser(CLINT32 aCode, const std::string& aWhat)
{
    if (aCode != CL_ERR_NO_ERR)
    {
        throw OperationError(aWhat + ": " + ClserText(aCode));
    }
}

const std::vector<uint32_t>& ClserRates()
{
    // In the order of the bits.
    static const std::vector<uint32_t> cRates = {9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600};
    return cRates;
}

CLUINT32 ClserRateBit(uint32_t aRate)
{
    const auto lRate = std::find(ClserRates().begin(), ClserRates().end(), aRate);
    return lRate != ClserRates().end() ? CLUINT32{1} << (lRate - ClserRates().begin()) : 0;
}

std::string ClserRatesText(CLUINT32 aBits)
{
    std::string lText;
    for (const uint32_t lRate : ClserRates())
    {
        if ((aBits & ClserRateBit(lRate)) != 0)
        {
            lText += (lText.empty() ? "" : ", ") + std::to_string(lRate);
        }
    }
    return lText;
}

namespace
{

constexpr uint32_t cPiece = 16384;
constexpr uint32_t cLook = 250;       // milliseconds
constexpr uint32_t cWriteSlice = 100; // milliseconds after which a request to end is noticed

KyResult ToResult(CLINT32 aCode)
{
    if (aCode == CL_ERR_NO_ERR)
    {
        return {KyResult::OK};
    }
    // A time-out has a code of its own: the sender takes it for a server that is busy.
    return {aCode == CL_ERR_TIMEOUT ? KyResult::TIMED_OUT : KyResult::FAILURE, ClserText(aCode).c_str()};
}

/// Why shared memory cannot be used, when a try of this program's own is refused as well: the client library
/// has only a number for it.
std::string GetObstacle()
{
    constexpr uint64_t cAsTheRegistry = 11008;
    KyPlatform::SharedMemory lTry;
    bool lNew = false;
    KyPlatform::Session::ForgetObstacle();
    const bool lDone = lTry.Create("Local\\KySerialToolTry", cAsTheRegistry, lNew);
    const std::string lObstacle = lDone ? "" : KyPlatform::Session::GetObstacle();
    return lObstacle.empty() ? "" : " (" + lObstacle + ')';
}

/// The name of a server; empty when it has gone meanwhile.
std::string GetName(CLUINT32 aIndex)
{
    std::vector<CLINT8> lName(1);
    CLINT32 lCode = CL_ERR_BUFFER_TOO_SMALL;
    // The first call finds out the length. Another server, with a longer name, may take the place before the next.
    while (lCode == CL_ERR_BUFFER_TOO_SMALL)
    {
        auto lSize = static_cast<CLUINT32>(lName.size());
        lCode = clGetSerialPortIdentifier(aIndex, lName.data(), &lSize);
        lName.resize(std::max<size_t>(lSize, 1));
    }
    if (lCode != CL_ERR_INVALID_INDEX)
    {
        CheckClser(lCode, "cannot list the Camera Link servers");
    }
    return lCode == CL_ERR_NO_ERR ? lName.data() : "";
}

} // namespace

std::vector<std::string> ListClserPorts()
{
    CLUINT32 lCount = 0;
    const CLINT32 lCode = clGetNumSerialPorts(&lCount);
    if (lCode != CL_ERR_NO_ERR)
    {
        throw OperationError("cannot list the Camera Link servers: " + ClserText(lCode) + GetObstacle());
    }
    std::vector<std::string> lNames;
    for (CLUINT32 lIndex = 0; lIndex < lCount; ++lIndex)
    {
        lNames.push_back(GetName(lIndex));
    }
    // The numbers of the others stay; one whose server has gone is no port.
    while (!lNames.empty() && lNames.back().empty())
    {
        lNames.pop_back();
    }
    return lNames;
}

ClserPort::ClserPort(const std::string& aName, bool aNoticesEnd) : mName(aName), mNoticesEnd(aNoticesEnd)
{
    const std::vector<std::string> lNames = ListClserPorts();
    const auto lName = std::find(lNames.begin(), lNames.end(), aName);
    if (lName == lNames.end())
    {
        throw OperationError("there is no Camera Link server \"" + aName +
                             "\"; 'kyserial clser list' shows those that there are");
    }
    CheckClser(clSerialInit(static_cast<CLUINT32>(lName - lNames.begin()), &mReference),
               "cannot attach to \"" + aName + '"');
}

ClserPort::~ClserPort()
{
    clSerialClose(mReference);
}

void ClserPort::SetRate(uint32_t aRate)
{
    const CLINT32 lCode = clSetBaudRate(mReference, ClserRateBit(aRate));
    CLUINT32 lOffered = 0;
    if (lCode == CL_ERR_BAUD_RATE_NOT_SUPPORTED &&
        clGetSupportedBaudRates(mReference, &lOffered) == CL_ERR_NO_ERR)
    {
        throw OperationError("--baud " + std::to_string(aRate) + ": " + ClserText(lCode) +
                                 " The server offers " + ClserRatesText(lOffered) + '.',
                             KyResult::BAD_PARAMETER); // waiting for the server would not change it
    }
    CheckClser(lCode, "--baud " + std::to_string(aRate));
}

void ClserPort::SetLine(const LineSelection& aLine)
{
    if (aLine.mParity.has_value() || aLine.mBits.has_value() || aLine.mStopBits.has_value())
    {
        // The standard leaves the rate alone to be chosen.
        throw OperationError("Camera Link is 8N1");
    }
    const auto& lRates = ClserRates();
    const uint32_t lRate = aLine.mBaudRate.value_or(0);
    if (std::find(lRates.begin(), lRates.end(), lRate) == lRates.end())
    {
        throw OperationError("Camera Link does not have " + std::to_string(lRate) + " bit/s");
    }
    SetRate(lRate);
}

KyResult ClserPort::Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent)
{
    std::vector<CLINT8> lBytes(aData, aData + aSize); // the library's interface takes no const bytes
    aSent = aSize;
    return ToResult(clSerialWrite(mReference, lBytes.data(), &aSent, cWriteSlice));
}

uint32_t ClserPort::ReadEx(uint8_t* aBuffer, uint32_t aSize, uint32_t aTimeout)
{
    CLUINT32 lCount = aSize;
    const CLINT32 lCode = clSerialReadEx(mReference, reinterpret_cast<CLINT8*>(aBuffer), &lCount, aTimeout);
    // A time-out is the usual end of a read; what came until then counts.
    if (lCode != CL_ERR_NO_ERR && lCode != CL_ERR_TIMEOUT)
    {
        SetState(ToResult(lCode));
        return 0;
    }
    return lCount;
}

std::vector<uint8_t> ClserPort::Receive(uint32_t aTimeout)
{
    std::vector<uint8_t> lBytes(cPiece);
    // The library waits until all the bytes that were asked for are there. One byte is waited for, the rest is
    // taken as it is.
    uint32_t lCount = ReadEx(lBytes.data(), 1, aTimeout);
    if (lCount == 1)
    {
        lCount += ReadEx(lBytes.data() + 1, cPiece - 1, 0); // what else there is
    }
    lBytes.resize(lCount);
    if (lCount == 0 && mNoticesEnd)
    {
        LookForServer();
    }
    return lBytes;
}

// The client library waits for the server's successor without a word.
void ClserPort::LookForServer()
{
    // The list of servers is in memory that all programs share, so it is not looked at in each of the reads.
    if (mNextLook.GetRemaining() > 0)
    {
        return;
    }
    mNextLook = KyPlatform::Deadline(cLook);
    try
    {
        const std::vector<std::string> lNames = ListClserPorts();
        if (std::find(lNames.begin(), lNames.end(), mName) == lNames.end())
        {
            SetState({KyResult::NO_CONNECTION, "It has ended."});
        }
    }
    catch (const OperationError& lError)
    {
        SetState({KyResult::NO_CONNECTION, lError.what()});
    }
}

KyResult ClserPort::GetState()
{
    const JxUtilsLib::LockScope lScope(mLock);
    return mState;
}

void ClserPort::SetState(const KyResult& aState)
{
    const JxUtilsLib::LockScope lScope(mLock);
    mState = aState;
}

bool ClserPort::IsBusy(const KyResult& aResult) const
{
    return aResult.GetCode() == KyResult::TIMED_OUT;
}

} // namespace KySerialTool
