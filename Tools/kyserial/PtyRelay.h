#pragma once

#include <KyPlatform/PseudoTerminal.h>
#include <KyPlatform/StopEvent.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace KySerialTool
{

/// Two pseudo terminals, one for a bridge and one for the user, that get what is written to the other.
///
/// A bridge wants a port to open, and so does a terminal program; a pseudo terminal has one such side only.
/// Users attach and leave as they like. What comes for a user who is not there is dropped, as a serial port
/// does that nobody has open; a user who is there and does not read holds the bridge up.
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

    /// Bytes for a user who was not there. Any thread.
    uint64_t GetUnread() const { return mUnread; }

private:
    void Relay(KyPlatform::PseudoTerminal& aFrom, KyPlatform::PseudoTerminal& aTo,
               std::atomic<uint64_t>* aDropped);

    KyPlatform::PseudoTerminal mBridge;
    KyPlatform::PseudoTerminal mUser;
    KyPlatform::StopEvent mStop;
    std::atomic<uint64_t> mUnread{0};
    std::thread mToUser; // last: they use the others
    std::thread mToBridge;
};

} // namespace KySerialTool
