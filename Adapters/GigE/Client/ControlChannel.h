#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"
#include "KyPlatform/Deadline.h"

#include <JxUtilsLib/Mutex.h>
#include <KyBase/KyResult.h>
#include <KyGigE/ConnectionOptions.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace KyGigE
{

/// The identifier after another. 0 is not used as an identifier.
constexpr uint16_t FollowingRequest(uint16_t aRequest)
{
    return aRequest == UINT16_MAX ? uint16_t{1} : static_cast<uint16_t>(aRequest + 1);
}

/// The control channel to a device: one command at a time, each sent again with the same identifier until
/// its acknowledge comes, so that the device does it once.
///
/// A device that is busy is asked again after mTimeout, mAttempts times in all, with a new identifier: it
/// has not done the command, and would answer the old identifier as it did.
///
/// Threads: any. A command blocks until the one before it is done, and then for mTimeout * mAttempts at the
/// most, for the time that the device needs for a command in silence, or as long as it asks for.
///
/// A command belongs to a connection. One that begins under a connection and has to wait must not be done on the next one: the
/// device may have started anew, and nothing is set up there. So a user of a connection takes its number first and gives it with
/// each command; without a number a command belongs to the connection there is.
///
/// Results: OK; a status of GigE Vision, 0x8000 and above, as the device sent it; NO_CONNECTION: the channel
/// is shut, the command's connection is over, the commands have come to their end (SetEnd(), cancellation), or the device does
/// not answer, which shuts the channel.
class ControlChannel
{
public:
    /// \param aCancel  Set to true by any thread: the command that runs ends within cSlice, and later ones at
    ///                 once; may be null.
    explicit ControlChannel(const ControlTimes& aTimes,
                            std::shared_ptr<const std::atomic<bool>> aCancel = nullptr);

    /// Opens the socket. \param aLocal  Own address; 0: the system chooses. \param aInterface  As for
    /// UdpSocket. \return FAILURE: it refused.
    KyResult Open(const KyGvcp::Endpoint& aDevice, uint32_t aLocal, uint32_t aInterface = 0);
    /// Own end of the channel.
    KyGvcp::Endpoint GetLocal() const { return mSocket.GetLocal(); }

    /// Begins a connection: commands go through, those of earlier connections are refused. Waits for the command that runs.
    void Begin();
    /// The number of the connection, from 1 on; 0: there was none yet.
    uint64_t GetConnection() const { return mConnection; }
    /// Stands for the connection there is, in place of a number.
    static constexpr uint64_t cPresent = UINT64_MAX;

    /// Commands go through, or are refused at once.
    void SetShut(bool aShut) { mShut = aShut; }
    bool IsShut() const { return mShut; }
    /// Whether somebody has cancelled everything.
    bool IsCancelled() const { return mCancel != nullptr && *mCancel; }
    /// Whether commands have come to their end.
    bool IsOver() const { return IsCancelled() || mEnd.load().IsOver(); }
    /// Until when all commands have to be done.
    void SetEnd(KyPlatform::Deadline aEnd) { mEnd = aEnd; }
    /// How long the device may need for a command without a word, in milliseconds; not more than
    /// ControlTimes::mPending counts.
    void SetPatience(uint32_t aMilliseconds);

    /// Asks the device for what it says about itself; every application may, also while another one has control.
    KyResult Discover(std::array<uint8_t, KyGvcp::cDiscoverySize>& aRegisters);
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue, uint64_t aConnection = cPresent);
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue, uint64_t aConnection = cPresent);
    /// Reads any number of bytes. Devices read whole words, so a little more is asked for and dropped.
    KyResult ReadMemory(uint32_t aAddress, uint8_t* aBuffer, uint64_t aSize, uint64_t aConnection = cPresent);
    /// Writes exactly aSize bytes, in packets of 536. Where bit 31 of the address is set lies a window, not
    /// memory: all packets go to the same address.
    /// \return Also 0x8002: no bytes.
    KyResult WriteMemory(uint32_t aAddress, const uint8_t* aBuffer, uint64_t aSize,
                         uint64_t aConnection = cPresent);
    /// Sends one write and does not wait for an answer; also while the channel is shut.
    void SendRegister(uint32_t aAddress, uint32_t aValue);

    /// Packets that were sent again.
    uint64_t GetRepeats() const { return mRepeats; }

private:
    /// Milliseconds after which a waiting command looks whether it has been cancelled.
    static constexpr uint32_t cSlice = 100;

    KyResult Execute(KyGvcp::Packet aCommand, uint64_t aConnection, uint16_t aCode, size_t aAnswer,
                     KyGvcp::Bytes& aPayload) JX_REQUIRES(mLock);
    bool IsRefused(uint64_t aConnection) const JX_REQUIRES(mLock)
    {
        return mShut || IsOver() || (aConnection != cPresent && aConnection != mConnection);
    }
    KyResult Ask(const KyGvcp::Packet& aCommand, KyGvcp::Bytes& aPayload) JX_REQUIRES(mLock);
    KyResult WaitForAnswer(KyPlatform::Deadline aEnd, KyGvcp::Bytes& aPayload, bool& aRefused)
        JX_REQUIRES(mLock);
    bool TakeAnswer(size_t aReceived, KyPlatform::Deadline& aEnd, KyGvcp::Bytes& aPayload, KyResult& aResult)
        JX_REQUIRES(mLock);
    bool Pause(const KyPlatform::Deadline& aUntil) const;
    uint16_t NextRequest() JX_REQUIRES(mLock) { return mRequest = FollowingRequest(mRequest); }
    KyResult ReadBlock(uint32_t aAddress, uint8_t* aBuffer, size_t aSize, uint64_t aConnection);
    KyResult WriteBlock(uint32_t aAddress, const uint8_t* aBuffer, size_t aSize, uint64_t aConnection);

    const ControlTimes mTimes;
    const std::shared_ptr<const std::atomic<bool>> mCancel;
    JxUtilsLib::Mutex mLock;
    KyGvcp::UdpSocket mSocket;
    std::atomic<bool> mShut = true;
    std::atomic<uint64_t> mConnection = 0; // changes under mLock only
    std::atomic<KyPlatform::Deadline> mEnd{KyPlatform::Deadline(KyPlatform::cInfinite)};
    std::atomic<uint32_t> mPatience = 0;
    std::atomic<uint64_t> mRepeats = 0;
    uint16_t mRequest JX_GUARDED_BY(mLock) = 0;
    uint16_t mCode JX_GUARDED_BY(mLock) = 0; // of the command, and how many bytes have to answer it
    size_t mAnswer JX_GUARDED_BY(mLock) = 0;
    KyPlatform::Deadline mLatest JX_GUARDED_BY(mLock){0}; // end of the device's time, whatever it asks for
    std::array<uint8_t, KyGvcp::cMaxPacket> mIn JX_GUARDED_BY(mLock){};
};

/// What every call on a lost device returns.
KyResult NotConnected();

} // namespace KyGigE
