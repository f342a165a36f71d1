#pragma once

#include "KyGvcp/UdpSocket.h"
#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Network/DatagramGate.h"
#include "Simulator/Network/GvcpServer.h"
#include "Simulator/Network/MessageChannel.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace KySimulator
{

/// Where a network camera stands.
struct NetworkPlace
{
    /// The address is one of this computer's; port 0 lets the system choose.
    KyGvcp::Endpoint mEndpoint{0x7F000001, KyGvcp::cControlPort};
    /// Answers discovery that is broadcast too. Only at the usual port, which broadcasts go to, and only when
    /// the system allows it. Windows gives broadcasts to every socket: there a camera at the usual port always
    /// answers them.
    bool mBroadcast = true;
};

/// A simulated camera as a GigE Vision device: sockets, a thread that serves them, and faults on demand.
///
/// Start() and Stop() on one thread; everything else on any, but not from inside the camera's callbacks.
class NetworkCamera final : private GvcpServer::Host
{
public:
    struct Statistics
    {
        GvcpServer::Counters mControl;
        MessageChannel::Counters mMessages;
        DatagramGate::Counters mFaults;
        uint64_t mUnheard = 0; ///< Datagrams that came while frozen.
    };

    /// \param aCamera  Not null; kept alive.
    NetworkCamera(std::shared_ptr<CameraModel> aCamera, const NetworkPlace& aPlace,
                  const NetworkForms& aForms = {});
    ~NetworkCamera();
    NetworkCamera(const NetworkCamera&) = delete;
    NetworkCamera& operator=(const NetworkCamera&) = delete;

    /// Opens the sockets and serves them from now on. \return False, with GetError(), when the system
    /// refuses.
    bool Start();
    void Stop();
    const std::string& GetError() const { return mError; }

    CameraModel& GetCamera() const { return *mCamera; }
    /// Where it is now; the chosen port in place of 0.
    KyGvcp::Endpoint GetEndpoint();
    bool HearsBroadcasts() const { return mHearsBroadcasts; }

    /// Changes the faults, between two datagrams.
    void ChangeFaults(const std::function<void(NetworkFaults&)>& aChange);
    /// Hangs: hears nothing, says nothing, does nothing; or goes on.
    void Freeze(bool aFrozen);
    /// Takes the camera off the network until Plug() or a further Restart(): its ports are closed, as with a program
    /// that ended. The camera itself goes on. One that is away for a restart does not come back at its end.
    void Unplug();
    /// Starts it anew: off the network at once, and back after aAway unless it is unplugged meanwhile, with no
    /// application in control and no command of before, its message channel closed and its serial interrupts
    /// off. Features keep their values. It comes back at the address that is stored in it, if that is switched
    /// on, else at its first one.
    void Restart(Time aAway);
    /// Unplugs it with the n-th command from now on, which is not executed any more; 0: never.
    void UnplugAt(uint64_t aCommand);
    /// Puts it back, at the same place. \return False when the system refuses; GetError().
    bool Plug();
    /// Forgets the application in control.
    void ReleaseControl();
    /// The application in control; zeros when there is none.
    KyGvcp::Endpoint GetController();
    Statistics GetStatistics();

private:
    void SendAcknowledge(const KyGvcp::Endpoint& aTo, KyGvcp::Bytes aPacket) override;
    void OnChannelChanged(const ChannelSettings& aSettings) override;
    bool MoveTo(const ForcedAddress& aAddress) override;

    /// Does something on the serving thread and waits for it.
    void Ask(const std::function<void()>& aRequest);
    void RunRequests();
    ForcedAddress PowerUpAddress() const;
    bool OpenSockets();
    void CloseSockets();
    void Run();
    void Step();
    void WaitAndReceive();
    void Receive(KyGvcp::UdpSocket& aSocket, DatagramKind aKind);
    void Dispatch(DatagramKind aKind, const KyGvcp::Endpoint& aPeer, KyGvcp::Bytes aData);
    static Time Now();

    const std::shared_ptr<CameraModel> mCamera;
    NetworkPlace mPlace;
    uint32_t mFirstAddress = 0;
    KyGvcp::Waker mWaker;
    RegisterMap mRegisters;
    NetworkFaults mFaults;
    DatagramGate mGate;
    MessageChannel mChannel;
    GvcpServer mServer;
    KyGvcp::UdpSocket mControl;
    KyGvcp::UdpSocket mBroadcast;
    KyGvcp::UdpSocket mMessages;
    uint16_t mMessagePort = 0;
    std::atomic<bool> mHearsBroadcasts = false; // written where the sockets are opened, on any of the threads
    std::string mError;

    // The serving thread's, or everybody's while it does not run.
    bool mFrozen = false;
    uint64_t mUnheard = 0;
    uint64_t mUntilUnplugged = 0;
    Time mBack = cNever; // when a restart is done

    std::thread mThread;
    std::thread::id mThreadID;
    std::atomic<bool> mStop{false};
    Lock mLock;
    Condition mChanged;
    std::deque<const std::function<void()>*> mRequests JX_GUARDED_BY(mLock);
    uint64_t mAnswered JX_GUARDED_BY(mLock) = 0;
    uint64_t mAsked JX_GUARDED_BY(mLock) = 0;
};

} // namespace KySimulator
