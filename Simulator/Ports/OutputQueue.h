#pragma once

#include "Simulator/Camera/CameraListener.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/SerialPeer.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace KySimulator
{

/// A feature has changed.
struct FeatureChange
{
    std::string mName;
};

/// Something for a peer: its line (plugged in), nothing (unplugged), or bytes.
struct PeerNews
{
    std::shared_ptr<SerialPeer> mPeer;
    std::variant<std::shared_ptr<SerialLine>, std::monostate, std::vector<uint8_t>> mWhat;
};

using Output = std::variant<DeviceEvent, FeatureChange, PeerNews>;

/// Hands the camera's output to listeners and peers, in order and without any lock.
///
/// The thread that has posted drains; a thread that finds another one draining leaves its output to that one, and a
/// callback that posts leaves it to the loop that called it.
class OutputQueue
{
public:
    void AddListener(CameraListener* aListener);
    /// No call into the listener runs when this returns, except the one it is called from.
    void RemoveListener(CameraListener* aListener);

    /// Appends. Makes no callback: may be used under the camera's lock.
    void Post(std::vector<Output> aOutputs);
    /// Calls until nothing is left, unless another thread, or a caller further up, does.
    void Drain();
    /// Waits until nothing is left and no callback runs, except on the draining thread itself.
    void WaitUntilDrained();
    /// Drops everything, now and from now on; waits for a callback that is running, except on its own thread.
    void Shut();

private:
    void Deliver(const Output& aOutput) JX_REQUIRES(mLock);
    void CallListeners(const Output& aOutput) JX_REQUIRES(mLock);

    Lock mLock;
    Condition mChanged;
    std::deque<Output> mOutputs JX_GUARDED_BY(mLock);
    std::vector<CameraListener*> mListeners JX_GUARDED_BY(mLock);
    CameraListener* mCurrent JX_GUARDED_BY(mLock) = nullptr;
    uint64_t mCalls JX_GUARDED_BY(mLock) = 0; // finished calls of listeners
    bool mDraining JX_GUARDED_BY(mLock) = false;
    std::thread::id mDrainer JX_GUARDED_BY(mLock);
    bool mShut JX_GUARDED_BY(mLock) = false;
};

} // namespace KySimulator
