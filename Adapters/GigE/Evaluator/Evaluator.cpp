#include "Adapters/GigE/Evaluator/Evaluator.h"

#include <utility>

namespace KyGigE
{

Evaluator::Evaluator(const DeviceDescription& aDescription, IRegisterSpace& aSpace, Clock aClock)
    : mDescription(aDescription)
    , mNodes(aDescription.GetNodes())
    , mGraph(aDescription.GetGraph())
    , mSpace(aSpace)
    , mClock(std::move(aClock))
    , mMemos(mNodes.GetCount())
{
}

void Evaluator::Begin()
{
    ++mUse;
    mVisitsLeft = cMostVisits;
    mAccessesLeft = cMostAccesses;
    mBytesLeft = cMostBytes;
    mDeviceTime = 0;
    mFailure.reset();
    mExpressions.clear();
    mRanges.clear();
    mWritten.clear();
    // A write past the features may have changed any register.
    const uint64_t lForeignWrites = mSpace.GetForeignWrites();
    if (lForeignWrites != mForeignWrites)
    {
        mForeignWrites = lForeignWrites;
        mCache.Clear();
    }
}

bool Evaluator::Fail(uint32_t aStatus, const std::string& aText)
{
    if (!mFailure)
    {
        // The first one is the cause; those that follow from it say less.
        mFailure = KyResult(aStatus, KyString(aText.c_str(), aText.size()));
    }
    return false;
}

bool Evaluator::FailAt(NodeId aNode, const std::string& aProblem)
{
    return Fail(KyResult::FAILURE,
                "The feature " + NameOf(aNode) + " cannot be evaluated: " + aProblem + ".");
}

std::string Evaluator::NameOf(NodeId aNode) const
{
    constexpr size_t cLongest = 200; // of a message
    const std::string_view lName = mNodes.Get(aNode).mName;
    return std::string(lName.empty() ? "without a name" : lName.substr(0, cLongest));
}

Evaluator::Visit::Visit(Evaluator& aEvaluator, NodeId aNode) : mEvaluator(aEvaluator), mGood(true)
{
    ++mEvaluator.mDepth;
    mEvaluator.mVisitsLeft -= mEvaluator.mNodes.Get(aNode).mCount + 1;
    if (mEvaluator.mDepth > cDeepest)
    {
        mGood = mEvaluator.FailAt(aNode, "it depends on itself, or on too many others");
    }
    else if (mEvaluator.mVisitsLeft < 0)
    {
        mGood = mEvaluator.FailAt(aNode, "this takes too long");
    }
}

Evaluator::Visit::~Visit()
{
    --mEvaluator.mDepth;
}

} // namespace KyGigE
