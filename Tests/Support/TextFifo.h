#pragma once

#include "KyPlatform/NamedMutex.h"
#include "clserzmo/sharedfifo.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

namespace KyTest
{

/// A text in which no part comes twice, so that lost and doubled bytes show.
inline std::string MakeText(size_t aSize)
{
    std::string lText;
    uint32_t lState = 1;
    while (lText.size() < aSize)
    {
        lState = lState * 1664525U + 1013904223U;
        lText += static_cast<char>('a' + (lState >> 24U) % 26);
    }
    return lText;
}

/// A FIFO of this session whose bytes are texts.
class TextFifo : public KySerialLib::SharedFifo
{
public:
    explicit TextFifo(const std::string& aName, uint32_t aCapacity = 1024, bool aCreate = true)
        : SharedFifo(aName, "Local\\", aCapacity, aCreate)
    {
    }
    using SharedFifo::Read;
    using SharedFifo::Write;

    /// \return Whether all of it is stored; GetWritten() is how much of the last text is.
    bool Write(const std::string& aText, uint32_t aTimeout = 0, const std::atomic<bool>* aStop = nullptr)
    {
        uint32_t lWritten = 0;
        const bool lDone =
            Write(aText.data(), static_cast<uint32_t>(aText.size()), lWritten, aTimeout, aStop);
        mWritten = lWritten;
        return lDone;
    }
    uint32_t GetWritten() const { return mWritten; }

    /// \return At most aSize of the bytes that wait; empty when none came in time.
    std::string Read(uint32_t aSize = 16384, uint32_t aTimeout = 0, const std::atomic<bool>* aStop = nullptr)
    {
        std::string lText(aSize, '?');
        uint32_t lRead = 0;
        const bool lDone = Read(lText.data(), aSize, lRead, aTimeout, aStop);
        EXPECT_EQ(lDone, lRead != 0);
        lText.resize(lRead);
        return lText;
    }

    /// Reads until it has aCount bytes, or none come for a minute.
    std::string ReadAll(size_t aCount)
    {
        std::string lAll;
        for (std::string lPart = "?"; lAll.size() < aCount && !lPart.empty(); lAll += lPart)
        {
            lPart = Read(16384, 60000);
        }
        return lAll;
    }

    uint32_t CountAvailable()
    {
        uint32_t lCount = 7;
        EXPECT_TRUE(GetAvailable(lCount));
        return lCount;
    }

private:
    std::atomic<uint32_t> mWritten{0}; // several threads may write
};

/// Takes a named lock, does something under it, and leaves it as a process does that dies there.
class DeadOwner
{
public:
    explicit DeadOwner(
        const std::string& aLock, const std::function<void()>& aDeed = [] {})
    {
        EXPECT_TRUE(mMutex.Open("Local\\" + aLock));
        std::thread(
            [&]
            {
                EXPECT_TRUE(IsOwned(mMutex.Wait(5000)));
                aDeed();
            })
            .join();
    }

private:
    // Its own: the thread sanitizer does not see that another object of the name frees the lock.
    KyPlatform::NamedMutex mMutex;
};

} // namespace KyTest
