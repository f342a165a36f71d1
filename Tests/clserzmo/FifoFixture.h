#pragma once

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/UniqueName.h"
#include "sharedfifo.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

/// A FIFO and, beside it, its objects as another process has them.
class FifoFixture : public testing::Test
{
protected:
    explicit FifoFixture(uint32_t aCapacity = 1024) : mFifo(mName, mPrefix, aCapacity, true)
    {
        EXPECT_TRUE(mFifo.IsValid());
        EXPECT_TRUE(mMutex.Open(mPrefix + mName + "Mutex"));
        EXPECT_TRUE(mWriteEvent.Open(mPrefix + mName + "WriteEvent"));
        EXPECT_TRUE(mReadEvent.Open(mPrefix + mName + "ReadEvent"));
        EXPECT_TRUE(mMemory.Open(mPrefix + mName + "Memory"));
    }

    KySerialLib::SharedFifoHeader& GetHeader() const
    {
        return *static_cast<KySerialLib::SharedFifoHeader*>(mMemory.GetBase());
    }
    uint8_t* GetData() const { return static_cast<uint8_t*>(mMemory.GetBase()) + 16; }
    static bool IsSet(KyPlatform::NamedEvent& aEvent)
    {
        return aEvent.Wait(0) == KyPlatform::WaitResult::Done;
    }

    bool Write(const std::string& aText, uint32_t aTimeout = 0)
    {
        return mFifo.Write(aText.data(), static_cast<uint32_t>(aText.size()), mWritten, aTimeout);
    }
    std::string Read(uint32_t aSize = 16384, uint32_t aTimeout = 0)
    {
        std::string lText(aSize, '?');
        uint32_t lRead = 0;
        const bool lDone = mFifo.Read(lText.data(), aSize, lRead, aTimeout);
        EXPECT_EQ(lDone, lRead != 0);
        lText.resize(lRead);
        return lText;
    }

    uint32_t GetAvailable()
    {
        uint32_t lCount = 7;
        EXPECT_TRUE(mFifo.GetAvailable(lCount));
        return lCount;
    }

    using Clock = std::chrono::steady_clock;

    const std::string mPrefix = "Local\\";
    const std::string mName = UniqueName("KyFifo");
    KySerialLib::SharedFifo mFifo;
    KyPlatform::NamedMutex mMutex;
    KyPlatform::NamedEvent mWriteEvent;
    KyPlatform::NamedEvent mReadEvent;
    KyPlatform::SharedMemory mMemory;
    uint32_t mWritten = 0;
};
