#include "KyPlatform/NamedEvent.h"
#include "Tests/Processes/Linux/KillScenario.h"
#include "Tests/Support/RingView.h"
#include "Tests/Support/TextFifo.h"
#include "Tests/Support/UniqueName.h"

using KyPlatform::cInfinite;
using KyTest::MakeText;
using KyTest::RingView;
using KyTest::TextFifo;

namespace
{

constexpr uint32_t cCapacity = 64;

/// A FIFO that begins at any place of the ring with any number of bytes waiting.
class FifoScenario : public KillScenario
{
public:
    FifoScenario(uint32_t aPlace, uint32_t aWaiting) : mWaiting(MakeText(aWaiting))
    {
        mRing.Move(aPlace);
        mFifo.Write(mWaiting);
        mWritten.Open("Local\\" + mName + "WriteEvent");
        mRead.Open("Local\\" + mName + "ReadEvent");
    }

protected:
    /// Requires that the lock comes at once, and that the written event is set when bytes wait.
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

    const std::string mName = UniqueName("KyKill");
    TextFifo mFifo{mName, cCapacity};
    const RingView mRing{mName};
    const std::string mWaiting;
    KyPlatform::NamedEvent mWritten;
    KyPlatform::NamedEvent mRead;
};

/// What the dying process does with the FIFO.
struct Transfer
{
    uint32_t mPlace;   ///< In the ring, where the waiting bytes begin.
    uint32_t mWaiting; ///< Bytes.
    uint32_t mWrites;  ///< Bytes that it writes; 0: it reads.
    uint32_t mReads = 0;
    uint32_t mTimeout = 0;
    bool mSleeper = false; ///< The survivor sleeps at the other end.
};

class WriterOrReaderDies : public FifoScenario
{
public:
    explicit WriterOrReaderDies(const Transfer& aDeed)
        : FifoScenario(aDeed.mPlace, aDeed.mWaiting)
        , mDeed(aDeed)
        , mText(MakeText(aDeed.mWaiting + aDeed.mWrites).substr(aDeed.mWaiting))
    {
        if (mDeed.mSleeper)
        {
            StartSleeper([this] { mWriterDies ? Get(cInfinite) : Put(cInfinite); });
        }
    }

    void Steps() override
    {
        mWriterDies ? mFifo.Write(mText) : !mFifo.Read(mDeed.mReads, mDeed.mTimeout).empty();
    }

    void Check() override
    {
        // A sleeper may sleep on if there is nothing for it. Else it wakes, at the latest at its own look.
        const auto lGoesOn = [this]
        { return HasWoken() || (mWriterDies ? mRing.IsEmpty() : mRing.IsFull()); };
        Require(Await(lGoesOn, GetDeath(), "the survivor woke"),
                "there is reason to wake and the survivor sleeps");
        const bool lTaken = CheckLock() != mWaiting.size();
        Require(mWriterDies || mDeed.mSleeper || !lTaken || mRead.Wait(0) == KyPlatform::WaitResult::Done,
                "bytes were taken and the read event is not set");
        const bool lReaderSleeps = mDeed.mSleeper && mWriterDies;
        RequireWaking([&] { lReaderSleeps ? Put(0) : Get(0); });
        if (!mDeed.mSleeper)
        {
            Put(0);
        }
        Get(0);
        if (!Require(mGot.ends_with(cEnd), "no byte comes through"))
        {
            return;
        }
        mGot.resize(mGot.size() - cEnd.size());
        const std::string lRest = mWaiting.substr(std::min<size_t>(mDeed.mReads, mWaiting.size()));
        const bool lIsPrefix = mGot.size() >= mWaiting.size() && (mWaiting + mText).starts_with(mGot);
        Require(mWriterDies ? lIsPrefix : mGot == mWaiting || mGot == lRest, "what is left is wrong");
    }

private:
    // What the survivor does.
    void Get(uint32_t aTimeout) { mGot += mFifo.Read(cCapacity, aTimeout); }
    void Put(uint32_t aTimeout) { mFifo.Write(cEnd, aTimeout); }

    static inline const std::string cEnd = "!?";
    const Transfer mDeed;
    const bool mWriterDies = mDeed.mWrites != 0;
    const std::string mText;
    std::string mGot;
};

/// A second holder, or the maker of a second FIFO, comes or goes.
class HolderDies : public FifoScenario
{
public:
    using Deed = void (HolderDies::*)();

    explicit HolderDies(Deed aDeed) : FifoScenario(0, 5), mDeed(aDeed) {}

    void Open() { mSecond.emplace(mName, cCapacity, false); }
    void Create() { mSecond.emplace(mName + "New", cCapacity); }
    void Close() { mSecond.reset(); }
    void CreateAndClose()
    {
        Create();
        Close();
    }

    void Before() override
    {
        if (mDeed == &HolderDies::Close)
        {
            Open();
        }
    }
    void Steps() override { (this->*mDeed)(); }

    void Check() override
    {
        CheckLock();
        Require(mFifo.Read() == mWaiting, "bytes were lost");
        // Nothing is left of what the dead alone held, and the name can be used.
        Require(!RingView(mName + "New").IsValid(), "the memory of the dead lives");
        TextFifo lNew(mName + "New", 10);
        TextFifo lSecond(mName + "New", 10, false);
        NoteIfLate(GetDeath(), cProgress, "the name was used again");
        Require(lNew.Write("abc") && lSecond.CountAvailable() == 3, "the name is burnt");
    }

private:
    const Deed mDeed;
    std::optional<TextFifo> mSecond;
};

} // namespace

std::vector<KillCase> GetFifoKillCases()
{
    const auto lTransfer = [](const char* aName, const Transfer& aDeed)
    { return MakeKillCase<WriterOrReaderDies>(aName, aDeed); };
    return {lTransfer("WriteWithRoom", {0, 7, 20}),
            lTransfer("WriteThatFills", {0, 7, 56}),
            lTransfer("WriteOfMoreThanFits", {0, 7, 80}),
            lTransfer("WriteThatWraps", {55, 7, 20}),
            lTransfer("WriteOnFull", {30, 63, 3}),
            lTransfer("WriteBesideASleepingReader", {0, 0, 20, 0, 0, true}),
            lTransfer("FillBesideASleepingReader", {33, 0, 63, 0, 0, true}),
            lTransfer("ReadOfSome", {0, 30, 0, 10}),
            lTransfer("ReadOfAll", {0, 30, 0, 64}),
            lTransfer("ReadThatWraps", {50, 30, 0, 64}),
            lTransfer("ReadOfFull", {20, 63, 0, 5}),
            lTransfer("ReadOfNothing", {0, 0, 0, 64}),
            lTransfer("ReadThatTimesOut", {0, 0, 0, 64, 1}),
            lTransfer("ReadBesideASleepingWriter", {40, 63, 0, 10, 0, true}),
            MakeKillCase<HolderDies>("Open", &HolderDies::Open),
            MakeKillCase<HolderDies>("Create", &HolderDies::Create),
            MakeKillCase<HolderDies>("Close", &HolderDies::Close),
            MakeKillCase<HolderDies>("CreateAndClose", &HolderDies::CreateAndClose)};
}
