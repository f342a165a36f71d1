#pragma once

#include "kyserial/Device/DevicePort.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KyPlatform/Deadline.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// A port that waits for its device: from the beginning, and whenever the device goes away.
///
/// Threads: as BytePort says. The thread in Receive() looks for the device.
class ReconnectingPort : public BytePort
{
public:
    /// Opens the port in the place of the former one, if there is one, which can be closed only while the device is
    /// there. Throws OperationError while that fails; with the code UNSUPPORTED or BAD_PARAMETER waiting makes no
    /// sense, and neither does it with any other exception.
    using Opener = std::function<void(std::unique_ptr<BytePort>& aPort)>;
    /// Takes a note for the user.
    using Notice = std::function<void(const std::string&)>;

    /// Opens the port, or begins to wait for it. Throws what makes waiting senseless.
    /// \param aPeer   What has the port, for the notes: "the device".
    /// \param aPause  Milliseconds between two attempts.
    ReconnectingPort(Opener aOpen, Notice aNotice, std::string aPeer = "the device", uint32_t aPause = 500);

    /// Busy while the port is away.
    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override;
    bool IsBusy(const KyResult& aResult) const override;
    std::vector<uint8_t> Receive(uint32_t aTimeout) override;
    /// Not OK only when waiting makes no sense.
    KyResult GetState() override { return mState; }
    bool IsAway() const override { return mAway; }
    void SetLine(const LineSelection& aLine) override;
    KyResult Close() override;

private:
    void TryOpen();
    void Open();
    void Lose(const std::string& aReason);

    const Opener mOpen;
    const Notice mNotice;
    const std::string mPeer;
    const uint32_t mPause;
    mutable JxUtilsLib::Mutex mSending; // the port does not change while somebody sends
    std::unique_ptr<BytePort> mPort{};  // changed by the thread in Receive(), under the lock
    std::atomic<bool> mAway{true};
    KyResult mState{KyResult::OK};
    std::string mReason{};         // that the user knows
    KyPlatform::Deadline mNext{0}; // the next attempt
};

} // namespace KySerialTool
