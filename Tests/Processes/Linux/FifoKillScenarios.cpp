#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/SharedMemory.h"
#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Processes/Linux/RingView.h"
#include "Tests/Processes/Linux/Sleeper.h"
#include "Tests/Support/UniqueName.h"
#include "sharedfifo.h"

#include <optional>

using KySerialLib::SharedFifo;

namespace
{

constexpr uint32_t cCapacity = 64;

std::string MakeText(size_t aFirst, size_t aSize)
{
    std::string lText;
    while (lText.size() < aSize)
    {
        lText += static_cast<char>('0' + (aFirst + lText.size()) % 64);
    }
    return lText;
}

/// A FIFO that begins at any place of the ring with any number of bytes waiting.
class FifoScenario : public KillScenario
{
public:
    FifoScenario(uint32_t aPlace, uint32_t aWaiting) : mWaiting(MakeText(0, aWaiting))
    {
        mRing.Move(aPlace);
        uint32_t lWritten = 0;
        mFifo.Write(mWaiting.data(), aWaiting, lWritten, 0);
        mWritten.Open("Local\\" + mName + "WriteEvent");
        mRead.Open("Local\\" + mName + "ReadEvent");
    }

protected:
    /// The lock is to be had at once, and the events tell the truth. aCount: bytes waiting.
    std::string CheckLock(uint32_t& aCount)
    {
        const UndisturbedTimer lWatch;
        if (!mFifo.GetAvailable(aCount))
        {
            return "the FIFO refuses";
        }
        NoteIfLate(lWatch, cBeyondTimeout, "the lock came");
        if (aCount > 0 && mWritten.Wait(0) != KyPlatform::WaitResult::Done)
        {
            return "bytes wait and the written event is not set";
        }
        return {};
    }

    std::string ReadAll()
    {
        std::string lText(cCapacity, '\0');
        uint32_t lRead = 0;
        mFifo.Read(lText.data(), cCapacity, lRead, 0);
        return lText.substr(0, lRead);
    }

    const std::string mName = UniqueName("KyKill");
    SharedFifo mFifo{mName, "Local\\", cCapacity, true};
    const RingView mRing{"Local\\" + mName};
    const std::string mWaiting;
    KyPlatform::NamedEvent mWritten;
    KyPlatform::NamedEvent mRead;
};

class WriterDies : public FifoScenario
{
public:
    WriterDies(uint32_t aPlace, uint32_t aWaiting, uint32_t aSize)
        : FifoScenario(aPlace, aWaiting), mText(MakeText(aWaiting, aSize))
    {
    }

    void Steps() override
    {
        uint32_t lWritten = 0;
        mFifo.Write(mText.data(), static_cast<uint32_t>(mText.size()), lWritten, 0);
    }

    std::string Check() override
    {
        uint32_t lCount = 0;
        const std::string lWrong = CheckLock(lCount);
        const std::string lGot = lWrong.empty() ? ReadAll() : std::string();
        const std::string lAll = mWaiting + mText;
        if (!lWrong.empty())
        {
            return lWrong;
        }
        return lGot.size() >= mWaiting.size() && lAll.compare(0, lGot.size(), lGot) == 0 ? "" : "no prefix";
    }

protected:
    const std::string mText;
};

class WriterDiesBesideASleepingReader : public WriterDies
{
public:
    WriterDiesBesideASleepingReader(uint32_t aPlace, uint32_t aSize) : WriterDies(aPlace, 0, aSize)
    {
        mSleeper.emplace(
            [this]
            {
                char lBytes[cCapacity];
                uint32_t lRead = 0;
                mFifo.Read(lBytes, cCapacity, lRead, KyPlatform::cInfinite);
                mGot.assign(lBytes, lRead);
            });
    }

    std::string Check() override
    {
        const auto lHasWoken = [this] { return mSleeper->HasWoken(); };
        // Without a byte it sleeps on, rightly. Else it wakes, at the latest at its own look.
        const auto lGoesOn = [&] { return lHasWoken() || mRing.IsEmpty(); };
        const bool lWoken = Await(lGoesOn, GetDeath(), "the reader woke");
        uint32_t lCount = 0;
        std::string lWrong = CheckLock(lCount);
        if (!lWoken)
        {
            lWrong = "bytes wait and the reader sleeps";
        }
        const UndisturbedTimer lWatch;
        uint32_t lWritten = 0;
        mFifo.Write("!", 1, lWritten, 0);
        if (!Await(lHasWoken, lWatch, "the next byte came"))
        {
            lWrong = "the reader sleeps for ever";
        }
        mSleeper.reset();
        return mText.compare(0, mGot.size(), mGot) == 0 || mGot == "!" || mGot == mText + "!" ? lWrong
                                                                                              : "no prefix";
    }

private:
    std::string mGot;
    std::optional<Sleeper> mSleeper;
};

class ReaderDies : public FifoScenario
{
public:
    ReaderDies(uint32_t aPlace, uint32_t aWaiting, uint32_t aSize, uint32_t aTimeout)
        : FifoScenario(aPlace, aWaiting), mSize(aSize), mTimeout(aTimeout)
    {
    }

    void Steps() override
    {
        char lBytes[cCapacity];
        uint32_t lRead = 0;
        mFifo.Read(lBytes, mSize, lRead, mTimeout);
    }

    std::string Check() override
    {
        uint32_t lCount = 0;
        const std::string lWrong = CheckLock(lCount);
        if (!lWrong.empty())
        {
            return lWrong;
        }
        if (lCount != mWaiting.size() && mRead.Wait(0) != KyPlatform::WaitResult::Done)
        {
            return "bytes were taken and the read event is not set";
        }
        const std::string lGot = ReadAll();
        uint32_t lWritten = 0;
        const bool lAlive = mFifo.Write("!", 1, lWritten, 0) && ReadAll() == "!";
        const bool lRest =
            lGot == mWaiting || lGot == mWaiting.substr(std::min<size_t>(mSize, mWaiting.size()));
        return lAlive && lRest ? "" : "what is left is wrong";
    }

private:
    const uint32_t mSize;
    const uint32_t mTimeout;
};

class ReaderDiesBesideASleepingWriter : public FifoScenario
{
public:
    explicit ReaderDiesBesideASleepingWriter(uint32_t aPlace) : FifoScenario(aPlace, cCapacity - 1)
    {
        mSleeper.emplace(
            [this]
            {
                uint32_t lWritten = 0;
                mFifo.Write("ab", 2, lWritten, KyPlatform::cInfinite);
            });
    }

    void Steps() override
    {
        char lBytes[10];
        uint32_t lRead = 0;
        mFifo.Read(lBytes, sizeof(lBytes), lRead, 0);
    }

    std::string Check() override
    {
        const auto lHasWoken = [this] { return mSleeper->HasWoken(); };
        const auto lGoesOn = [&] { return lHasWoken() || mRing.IsFull(); };
        const bool lWoken = Await(lGoesOn, GetDeath(), "the writer woke");
        uint32_t lCount = 0;
        std::string lWrong = CheckLock(lCount);
        if (!lWoken)
        {
            lWrong = "there is room and the writer sleeps";
        }
        const UndisturbedTimer lWatch;
        std::string lGot = ReadAll();
        if (!Await(lHasWoken, lWatch, "the next room came"))
        {
            lWrong = "the writer sleeps for ever";
        }
        mSleeper.reset();
        lGot += ReadAll();
        return lGot == mWaiting + "ab" || lGot == mWaiting.substr(10) + "ab" ? lWrong : "bytes were lost";
    }

private:
    std::optional<Sleeper> mSleeper;
};

/// A second holder comes or goes.
class OpenerDies : public FifoScenario
{
public:
    OpenerDies(bool aClose, bool aCreate) : FifoScenario(0, 5), mClose(aClose), mCreate(aCreate) {}

    void Before() override
    {
        if (mClose)
        {
            mSecond.emplace(mName, "Local\\", cCapacity, false);
        }
    }
    void Steps() override
    {
        if (mClose)
        {
            mSecond.reset();
        }
        else
        {
            mSecond.emplace(mName + (mCreate ? "New" : ""), "Local\\", cCapacity, mCreate);
        }
    }

    std::string Check() override
    {
        uint32_t lCount = 0;
        const std::string lWrong = CheckLock(lCount);
        if (!lWrong.empty() || ReadAll() != mWaiting)
        {
            return lWrong.empty() ? "bytes were lost" : lWrong;
        }
        // Nothing is left of what the dead alone held, and the name can be used.
        KyPlatform::SharedMemory lMemory;
        if (lMemory.Open("Local\\" + mName + "NewMemory"))
        {
            return "the memory of the dead lives";
        }
        SharedFifo lNew(mName + "New", "Local\\", 10, true);
        NoteIfLate(GetDeath(), cProgress, "the name was used again");
        uint32_t lWritten = 0;
        return lNew.Write("abc", 3, lWritten, 0) && lNew.GetAvailable(lCount) && lCount == 3
                   ? ""
                   : "the name is burnt";
    }

private:
    const bool mClose;
    const bool mCreate;
    std::optional<SharedFifo> mSecond;
};

/// Several processes make the same FIFO: one dies while another comes.
class MakerDies : public KillScenario
{
public:
    void Steps() override { const SharedFifo lFifo(mName, "Local\\", cCapacity, true); }

    std::string Check() override
    {
        SharedFifo lFifo(mName, "Local\\", cCapacity, true);
        SharedFifo lSecond(mName, "Local\\", cCapacity, false);
        NoteIfLate(GetDeath(), cProgress, "the name was used again");
        uint32_t lWritten = 0;
        uint32_t lCount = 0;
        return lFifo.Write("abc", 3, lWritten, 0) && lSecond.GetAvailable(lCount) && lCount == 3
                   ? ""
                   : "the name is burnt";
    }

private:
    const std::string mName = UniqueName("KyKill");
};

template<typename tScenario, typename... tArguments>
KillCase MakeCase(const char* aName, tArguments... aArguments)
{
    return {aName,
            [=]() -> std::unique_ptr<KillScenario> { return std::make_unique<tScenario>(aArguments...); }};
}

} // namespace

std::vector<KillCase> GetFifoKillCases()
{
    return {MakeCase<WriterDies>("WriteWithRoom", 0U, 7U, 20U),
            MakeCase<WriterDies>("WriteThatFills", 0U, 7U, 56U),
            MakeCase<WriterDies>("WriteOfMoreThanFits", 0U, 7U, 80U),
            MakeCase<WriterDies>("WriteThatWraps", 55U, 7U, 20U),
            MakeCase<WriterDies>("WriteOnFull", 30U, 63U, 3U),
            MakeCase<WriterDiesBesideASleepingReader>("WriteBesideASleepingReader", 0U, 20U),
            MakeCase<WriterDiesBesideASleepingReader>("FillBesideASleepingReader", 33U, 63U),
            MakeCase<ReaderDies>("ReadOfSome", 0U, 30U, 10U, 0U),
            MakeCase<ReaderDies>("ReadOfAll", 0U, 30U, 64U, 0U),
            MakeCase<ReaderDies>("ReadThatWraps", 50U, 30U, 64U, 0U),
            MakeCase<ReaderDies>("ReadOfFull", 20U, 63U, 5U, 0U),
            MakeCase<ReaderDies>("ReadOfNothing", 0U, 0U, 64U, 0U),
            MakeCase<ReaderDies>("ReadThatTimesOut", 0U, 0U, 64U, 1U),
            MakeCase<ReaderDiesBesideASleepingWriter>("ReadBesideASleepingWriter", 40U),
            MakeCase<OpenerDies>("Open", false, false),
            MakeCase<OpenerDies>("Create", false, true),
            MakeCase<OpenerDies>("Close", true, false),
            MakeCase<MakerDies>("CreateAndClose")};
}
