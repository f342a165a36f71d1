#pragma once

#include "kyserial/Serve/Tcp/Acceptor.h"
#include "kyserial/Serve/Tcp/ClientOutput.h"
#include "kyserial/Serve/Tcp/ClientQueue.h"
#include "kyserial/Serve/Tcp/ComPortAnswers.h"
#include "kyserial/Serve/Tcp/ReservedCall.h"
#include "kyserial/Serve/Tcp/TcpHost.h"
#include "kyserial/Serve/Tcp/Telnet.h"

#include <JxUtilsLib/Condition.h>
#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KySerialTool
{

/// A client of a TcpHost.
struct TcpClient
{
    TcpClient(boost::asio::io_context& aContext, boost::asio::ip::tcp::socket aSocket, bool aTelnet)
        : mSocket(std::move(aSocket)), mIdle(aContext), mOutput(aTelnet)
    {
    }

    // The network's thread only.
    boost::asio::ip::tcp::socket mSocket;
    boost::asio::steady_timer mIdle;
    Telnet mTelnet{};
    std::array<uint8_t, 4096> mPiece{}; // that is read at once
    bool mReading = false;
    bool mNeverBlocks = false; // set before others know the client

    // Under the lock of the host side.
    bool mPaused = false; // its own wish: flow control
    bool mHeld = false;   // not read, because bytes wait for the device
    ClientOutput mOutput;
    bool mSends = false; // the system has a part of mOutput in hand
    uint64_t TcpCounts::*mLeftOver =
        nullptr;                      // where to count what the system gives back of a client that is gone
    uint8_t mControls = cAllControls; // kept for the client: a camera has no such lines
};

/// What the clients and the bridge of a TcpHost share.
///
/// The bridge's side (TcpHost.cpp) runs on the threads of the bridge, the clients' side (TcpClients.cpp) and what they ask of the
/// line (TcpCommands.cpp) on the network's. They meet under mMutex.
class TcpHost::State final : public std::enable_shared_from_this<State>
{
public:
    State(const TcpSettings& aSettings, boost::asio::io_context& aContext)
        : mSettings(aSettings), mContext(aContext)
    {
    }

    void Open();
    void Close();
    ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, KySerialBridgeRequest& aRequest);
    uint32_t Write(const uint8_t* aData, uint32_t aSize);
    void EndTransfers() noexcept;
    void NotifySettings(const KySerialPortConfiguration& aSettings);
    bool Insert(const std::string& aBytes);
    TcpCounts GetCounts() const;
    std::vector<std::string> TakeNews();
    uint16_t GetPort() const { return mPort; }

private:
    using ClientPtr = std::shared_ptr<TcpClient>;
    class Hearer;

    // The clients' side.
    void Admit(boost::asio::ip::tcp::socket aSocket);
    bool Enter(const ClientPtr& aClient);
    void Watch(const ClientPtr& aClient);
    template<typename Work>
    void WorkFor(const ClientPtr& aClient, const Work& aWork);
    void Receive(const ClientPtr& aClient);
    void TakePiece(const ClientPtr& aClient, size_t aCount);
    void Flush(const ClientPtr& aClient);
    void Send(const ClientPtr& aClient);
    bool SendAtOnce(TcpClient& aClient) JX_REQUIRES(mMutex);
    void CountSent(TcpClient& aClient, size_t aCount);
    void FlushAll();
    void PostFlush() JX_REQUIRES(mMutex);
    void Remove(const ClientPtr& aClient, bool aByUs);
    void CloseAll();
    bool IsWriter(const TcpClient& aClient) const JX_REQUIRES(mMutex);
    void TakeBytes(TcpClient& aClient, const uint8_t* aBytes, size_t aCount);

    // What they ask of the line.
    void TakeCommand(const ClientPtr& aClient, ComPortCommand aCommand, const std::string& aValue);
    void Obey(const ClientPtr& aClient, ComPortCommand aCommand, uint32_t aValue) JX_REQUIRES(mMutex);
    void Purge(TcpClient& aClient, uint32_t aWhat) JX_REQUIRES(mMutex);

    // The bridge's side.
    bool HasRoom() const JX_REQUIRES(mMutex);
    void WaitForRoom() JX_REQUIRES(mMutex);
    bool IsBehind(const TcpClient& aClient) const
    {
        return aClient.mOutput.GetSize() >= mSettings.mMostWaiting;
    }

    const TcpSettings mSettings;
    boost::asio::io_context& mContext;
    std::shared_ptr<Acceptor> mAcceptor{};
    uint16_t mPort = 0;
    ReservedCall mClosing;
    News mFull{};
    mutable JxUtilsLib::Mutex mMutex;
    // Two, since a byte to a client would wake the thread that waits for one from it.
    JxUtilsLib::Condition mForDevice;                    // something waits for the bridge
    JxUtilsLib::Condition mHasRoom;                      // a client has taken bytes, or is gone
    std::list<ClientPtr> mClients JX_GUARDED_BY(mMutex); // in the order of their coming
    ClientQueue mQueue JX_GUARDED_BY(mMutex);
    std::optional<ClientQueue::Request> mAnswer JX_GUARDED_BY(mMutex); // that NotifySettings() gives
    KySerialPortConfiguration mLine JX_GUARDED_BY(mMutex);
    TcpCounts mCounts JX_GUARDED_BY(mMutex);
    bool mEnded JX_GUARDED_BY(mMutex) = false;
    bool mClosed JX_GUARDED_BY(mMutex) = false;
    bool mFlushing JX_GUARDED_BY(mMutex) = false;
    uint32_t mSends JX_GUARDED_BY(mMutex) = 0; // that the system has in hand
};

} // namespace KySerialTool
