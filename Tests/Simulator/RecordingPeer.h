#pragma once

#include <Simulator/Camera/Lock.h>
#include <Simulator/Peers/SerialPeer.h>

#include <memory>
#include <vector>

/// Keeps what a camera sends.
class RecordingPeer : public KySimulator::SerialPeer
{
public:
    void OnPlugged(const std::shared_ptr<KySimulator::SerialLine>& aLine) override
    {
        KySimulator::LockScope lScope(mLock);
        mLine = aLine;
        ++mPlugged;
    }

    void OnReceived(const uint8_t* aData, size_t aSize) override
    {
        KySimulator::LockScope lScope(mLock);
        mBytes.insert(mBytes.end(), aData, aData + aSize);
    }

    void OnUnplugged() override
    {
        KySimulator::LockScope lScope(mLock);
        ++mUnplugged;
    }

    std::vector<uint8_t> GetBytes()
    {
        KySimulator::LockScope lScope(mLock);
        return mBytes;
    }

    std::shared_ptr<KySimulator::SerialLine> GetLine()
    {
        KySimulator::LockScope lScope(mLock);
        return mLine;
    }

    int GetPlugged()
    {
        KySimulator::LockScope lScope(mLock);
        return mPlugged;
    }

    int GetUnplugged()
    {
        KySimulator::LockScope lScope(mLock);
        return mUnplugged;
    }

private:
    KySimulator::Lock mLock;
    std::shared_ptr<KySimulator::SerialLine> mLine JX_GUARDED_BY(mLock);
    std::vector<uint8_t> mBytes JX_GUARDED_BY(mLock);
    int mPlugged JX_GUARDED_BY(mLock) = 0;
    int mUnplugged JX_GUARDED_BY(mLock) = 0;
};
