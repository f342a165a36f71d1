#pragma once

#include "kyserial/Device/DevicePort.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KyPlatform/Deadline.h>
#include <clserzmo/clser.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// A code of the client library as a user reads it: "CL_ERR_TIMEOUT (-10004): The operation has timed out."
std::string ClserText(CLINT32 aCode);

/// Throws an OperationError "aWhat: text" unless the code is that of success.
void CheckClser(CLINT32 aCode, const std::string& aWhat);

/// All bit rates of Camera Link, in bits per second.
const std::vector<uint32_t>& ClserRates();

/// The client library's bit for one of them.
CLUINT32 ClserRateBit(uint32_t aRate);

/// "9600, 19200" for the rates whose bits are set.
std::string ClserRatesText(CLUINT32 aBits);

/// The names of the Camera Link servers that run, in the client library's order. Throws OperationError when
/// it cannot be known.
std::vector<std::string> ListClserPorts();

/// A Camera Link server as a terminal session uses it, through the client library.
///
/// Threads: Send() by one thread, Receive() by one, which may be another; GetState() by any.
class ClserPort : public BytePort
{
public:
    /// Attaches to the server. Throws OperationError when no server has the name, or it has a client.
    /// \param aNoticesEnd  Whether the end of the server is the end of this port. Else it waits for the next server
    ///                     of the name.
    explicit ClserPort(const std::string& aName, bool aNoticesEnd = false);
    ~ClserPort() override;

    /// Asks for a rate. Throws OperationError when the server does not offer it.
    void SetRate(uint32_t aRate);

    /// Waits a moment for room. \return TIMED_OUT: busy (see IsBusy()); FAILURE.
    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override;
    std::vector<uint8_t> Receive(uint32_t aTimeout) override;
    KyResult GetState() override;
    bool IsBusy(const KyResult& aResult) const override;
    /// Only the rate can be set.
    void SetLine(const LineSelection& aLine) override;

private:
    uint32_t ReadEx(uint8_t* aBuffer, uint32_t aSize, uint32_t aTimeout);

    void LookForServer();
    void SetState(const KyResult& aState);

    const std::string mName;
    const bool mNoticesEnd;
    hSerRef mReference = nullptr;
    KyPlatform::Deadline mNextLook{0};
    JxUtilsLib::Mutex mLock;
    KyResult mState JX_GUARDED_BY(mLock){KyResult::OK};
};

} // namespace KySerialTool
