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
        Write(mWaiting);
        mWritten.Open("Local\\" + mName + "WriteEvent");
        mRead.Open("Local\\" + mName + "ReadEvent");
    }

protected:
    /// Requires that the lock is to be had at once, and that the events tell the truth.
    /// \return Bytes waiting.
    uint32_t CheckLock()
    {
        const UndisturbedTimer lWatch;
        uint32_t lCount = 0;
        if (Require(mFifo.GetAvailable(lCount), "the FIFO refuses"))
        {
            NoteIfLate(lWatch, cBeyondTimeout, "the lock came");
            Require(lCount == 0 || mWritten.Wait(0) == KyPlatform::WaitResult::Done,
                    "bytes wait and the written event is not set");
        }
        return lCount;
    }

    std::string Read(uint32_t aSize = cCapacity, uint32_t aTimeout = 0)
    {
        std::string lText(cCapacity, '\0');
        uint32_t lRead = 0;
        mFifo.Read(lText.data(), aSize, lRead, aTimeout);
        return lText.substr(0, lRead);
    }
    bool Write(const std::string& aText, uint32_t aTimeout = 0)
    {
        uint32_t lWritten = 0;
        return mFifo.Write(aText.data(), static_cast<uint32_t>(aText.size()), lWritten, aTimeout);
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

    void Steps() override { Write(mText); }

    void Check() override
    {
        CheckLock();
        const std::string lGot = Read();
        Require(lGot.size() >= mWaiting.size() && (mWaiting + mText).starts_with(lGot), "no prefix");
    }

protected:
    const std::string mText;
};

class WriterDiesBesideASleepingReader : public WriterDies
{
public:
    WriterDiesBesideASleepingReader(uint32_t aPlace, uint32_t aSize) : WriterDies(aPlace, 0, aSize)
    {
        mSleeper.emplace([this] { mGot = Read(cCapacity, KyPlatform::cInfinite); });
    }

    void Check() override
    {
        const auto lHasWoken = [this] { return mSleeper->HasWoken(); };
        // Without a byte it sleeps on, rightly. Else it wakes, at the latest at its own look.
        const auto lGoesOn = [&] { return lHasWoken() || mRing.IsEmpty(); };
        Require(Await(lGoesOn, GetDeath(), "the reader woke"), "bytes wait and the reader sleeps");
        CheckLock();
        const UndisturbedTimer lWatch;
        Write("!");
        Require(Await(lHasWoken, lWatch, "the next byte came"), "the reader sleeps for ever");
        mSleeper.reset();
        Require(mText.starts_with(mGot) || mGot == "!" || mGot == mText + "!", "no prefix");
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

    void Steps() override { Read(mSize, mTimeout); }

    void Check() override
    {
        Require(CheckLock() == mWaiting.size() || mRead.Wait(0) == KyPlatform::WaitResult::Done,
                "bytes were taken and the read event is not set");
        const std::string lGot = Read();
        const std::string lRest = mWaiting.substr(std::min<size_t>(mSize, mWaiting.size()));
        Require(lGot == mWaiting || lGot == lRest, "what is left is wrong");
        Require(Write("!") && Read() == "!", "no byte comes through");
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
        mSleeper.emplace([this] { Write("ab", KyPlatform::cInfinite); });
    }

    void Steps() override { Read(10); }

    void Check() override
    {
        const auto lHasWoken = [this] { return mSleeper->HasWoken(); };
        const auto lGoesOn = [&] { return lHasWoken() || mRing.IsFull(); };
        Require(Await(lGoesOn, GetDeath(), "the writer woke"), "there is room and the writer sleeps");
        CheckLock();
        const UndisturbedTimer lWatch;
        std::string lGot = Read();
        Require(Await(lHasWoken, lWatch, "the next room came"), "the writer sleeps for ever");
        mSleeper.reset();
        lGot += Read();
        Require(lGot == mWaiting + "ab" || lGot == mWaiting.substr(10) + "ab", "bytes were lost");
    }

private:
    std::optional<Sleeper> mSleeper;
};

/// Whether a byte that one FIFO takes waits in the other one.
bool IsAlive(SharedFifo& aFirst, SharedFifo& aSecond)
{
    uint32_t lCount = 0;
    return aFirst.Write("abc", 3, lCount, 0) && aSecond.GetAvailable(lCount) && lCount == 3;
}

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

    void Check() override
    {
        CheckLock();
        Require(Read() == mWaiting, "bytes were lost");
        // Nothing is left of what the dead alone held, and the name can be used.
        KyPlatform::SharedMemory lMemory;
        Require(!lMemory.Open("Local\\" + mName + "NewMemory"), "the memory of the dead lives");
        lMemory.Close();
        SharedFifo lNew(mName + "New", "Local\\", 10, true);
        NoteIfLate(GetDeath(), cProgress, "the name was used again");
        Require(IsAlive(lNew, lNew), "the name is burnt");
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

    void Check() override
    {
        SharedFifo lFifo(mName, "Local\\", cCapacity, true);
        SharedFifo lSecond(mName, "Local\\", cCapacity, false);
        NoteIfLate(GetDeath(), cProgress, "the name was used again");
        Require(IsAlive(lFifo, lSecond), "the name is burnt");
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
