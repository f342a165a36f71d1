#pragma once

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "Tests/Support/RingView.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/Support/UniqueName.h"

#include <chrono>
#include <cstring>

/// A FIFO and, beside it, its objects as another process has them.
class FifoFixture : public testing::Test
{
protected:
    explicit FifoFixture(uint32_t aCapacity = 1024) : mFifo(mName, aCapacity)
    {
        EXPECT_TRUE(mFifo.IsValid() && mRing.IsValid());
        EXPECT_TRUE(mMutex.Open("Local\\" + mName + "Mutex"));
        EXPECT_TRUE(mWriteEvent.Open("Local\\" + mName + "WriteEvent"));
        EXPECT_TRUE(mReadEvent.Open("Local\\" + mName + "ReadEvent"));
    }

    KySerialLib::SharedFifoHeader& GetHeader() const { return mRing.GetHeader(); }
    uint8_t* GetData() const { return mRing.GetBytes() + 16; }
    static bool IsSet(KyPlatform::NamedEvent& aEvent)
    {
        return aEvent.Wait(0) == KyPlatform::WaitResult::Done;
    }
    void ExpectEvents(bool aWritten, bool aRead)
    {
        EXPECT_EQ(IsSet(mWriteEvent), aWritten);
        EXPECT_EQ(IsSet(mReadEvent), aRead);
    }
    void ExpectAlive()
    {
        EXPECT_TRUE(mFifo.Write("alive"));
        EXPECT_EQ(mFifo.Read(), "alive");
    }

    using Clock = std::chrono::steady_clock;

    const std::string mName = UniqueName("KyFifo");
    KyTest::TextFifo mFifo;
    const KyTest::RingView mRing{mName};
    KyPlatform::NamedMutex mMutex;
    KyPlatform::NamedEvent mWriteEvent;
    KyPlatform::NamedEvent mReadEvent;
};
