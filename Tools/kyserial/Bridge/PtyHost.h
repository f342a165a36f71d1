#pragma once

#include <JxUtilsLib/Condition.h>
#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KyPlatform/StopEvent.h>
#include <KySerial/IKySerialBridgeHost.h>
#include <Platform/PseudoTerminal.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <thread>

namespace KySerialTool
{

/// Which settings of a terminal's user the device gets. Parity and data bits are not among them: the system's pseudo terminals
/// have none and eight, whatever a user chooses.
struct PtyFollows
{
    bool mBaudRate = true;
    bool mStopBits = true;
};

/// A host side that is a pseudo terminal: users attach and leave as they like.
///
/// Without a user bytes of the device are dropped, as by a serial port that is not open. A user that does not read holds
/// the bridge up. The settings that a user chooses become the device's, before the bytes that are read later; the system does not
/// say when they are chosen, so they are looked at with each block of bytes and every 100 ms. A user that chooses nothing finds what
/// the device has, and changes nothing.
class PtyHost final : public IKySerialBridgeHost
{
public:
    /// Makes the terminal. Throws OperationError when the system has none.
    explicit PtyHost(const PtyFollows& aFollows);
    /// Close(); the terminal is gone.
    ~PtyHost();
    PtyHost(const PtyHost&) = delete;
    PtyHost& operator=(const PtyHost&) = delete;

    /// The terminal that users open.
    std::string GetPath() const { return mTerminal.GetPath(); }

    /// Ends the reading. What is in the terminal then is lost, and counted. The bridge must have ended. Harmless when it
    /// has ended.
    void Close();

    ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, KySerialBridgeRequest& aRequest) override;
    uint32_t Write(const uint8_t* aData, uint32_t aSize) override;
    void EndTransfers() noexcept override;
    void NotifySettings(const KySerialPortConfiguration& aSettings) override;

    /// Whether the next user finds the settings of the last NotifySettings(). Any thread.
    bool IsSettled() const;

    // Counts of bytes. Any thread.

    /// From users.
    uint64_t GetTaken() const { return mTaken; }
    /// From users, that the bridge has not got before the end.
    uint64_t GetLeft() const { return mLeft; }
    /// From the bridge: nobody was there, or a user left them unread.
    uint64_t GetUnread() const { return mNobody + mTerminal.GetUnread(); }

private:
    /// What waits for the bridge, in order: bytes, or a request.
    struct Item
    {
        std::string mBytes{};
        KySerialBridgeRequest mRequest{};
    };

    void Listen();
    bool WaitForRoom();
    void LookAtLine();
    void Queue(const Item& aItem);

    const PtyFollows mFollows;
    KyToolPlatform::PseudoTerminal mTerminal;
    KyPlatform::StopEvent mStop;
    KyPlatform::HostLine mKnown{}; // of the user; the thread's, like the next one
    KyPlatform::HostLine mClean{}; // of those that choose nothing
    mutable JxUtilsLib::Mutex mLock;
    JxUtilsLib::Condition mChanged;
    std::deque<Item> mItems JX_GUARDED_BY(mLock);
    size_t mWaiting JX_GUARDED_BY(mLock) = 0;                          // bytes of them
    std::optional<KyPlatform::HostLine> mDevices JX_GUARDED_BY(mLock); // settings that users are to find
    bool mEnded JX_GUARDED_BY(mLock) = false;
    std::atomic<uint64_t> mTaken{0};
    std::atomic<uint64_t> mLeft{0};
    std::atomic<uint64_t> mNobody{0};
    std::thread mThread; // last: it uses the others
};

} // namespace KySerialTool
