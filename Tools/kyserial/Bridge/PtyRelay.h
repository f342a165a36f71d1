#pragma once

#include <KyPlatform/StopEvent.h>
#include <Platform/PseudoTerminal.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace KySerialTool
{

/// Two pseudo terminals, one for a bridge and one for the user, that get what is written to the other.
///
/// A bridge wants a port to open, and so does a terminal program; a pseudo terminal has one such side only.
/// Users attach and leave as they like. Without a user bytes are dropped, as by a serial port that is not
/// open. A user that does not read holds the bridge up.
class PtyRelay
{
public:
    /// Makes the terminals and relays. Throws OperationError when the system has none.
    PtyRelay();
    /// Stops; the terminals are gone.
    ~PtyRelay();
    PtyRelay(const PtyRelay&) = delete;
    PtyRelay& operator=(const PtyRelay&) = delete;

    /// The terminal that the bridge opens.
    std::string GetBridgePath() const { return mBridge.GetPath(); }
    /// The terminal that users open.
    std::string GetUserPath() const { return mUser.GetPath(); }

    /// Ends the relaying. What is in the terminals then is lost, and counted. The bridge must have let go of
    /// its terminal. Harmless when it has ended.
    void End();

    // Counts of bytes. Any thread.

    /// From users.
    uint64_t GetTakenFromUser() const { return mFromUser.mTaken; }
    /// From users, that the bridge has not got: it was not there, or the end came before.
    uint64_t GetLostToBridge() const { return mFromUser.mNobody + mFromUser.mStopped + mBridge.GetUnread(); }
    /// Bytes from the bridge that came without a user, or that a user left unread.
    uint64_t GetUnread() const { return mFromBridge.mNobody + mUser.GetUnread(); }
    /// From the bridge, when the end came before a user could have them.
    uint64_t GetStoppedToUser() const { return mFromBridge.mStopped; }
    /// From the bridge, that a user has, or can read any time.
    uint64_t GetDeliveredToUser() const;

private:
    /// What became of the bytes that came from one side.
    struct Way
    {
        std::atomic<uint64_t> mTaken{0};
        std::atomic<uint64_t> mGiven{0};   // to whoever had the other terminal open
        std::atomic<uint64_t> mNobody{0};  // had it open
        std::atomic<uint64_t> mStopped{0}; // by the end
    };

    void Relay(KyToolPlatform::PseudoTerminal& aFrom, KyToolPlatform::PseudoTerminal& aTo, Way& aWay);

    KyToolPlatform::PseudoTerminal mBridge;
    KyToolPlatform::PseudoTerminal mUser;
    KyPlatform::StopEvent mStop;
    Way mFromBridge;
    Way mFromUser;
    std::thread mToUser; // last: they use the others
    std::thread mToBridge;
};

} // namespace KySerialTool
