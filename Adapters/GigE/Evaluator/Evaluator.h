#pragma once

#include "Adapters/GigE/Evaluator/DeviceDescription.h"
#include "Adapters/GigE/Evaluator/Formula.h"
#include "Adapters/GigE/Evaluator/Number.h"
#include "Adapters/GigE/Evaluator/RegisterCache.h"
#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace KyGigE
{

// Statuses of GigE Vision that features are refused with.
constexpr uint32_t cNoSuchFeature = 0x8001;
constexpr uint32_t cInvalidParameter = 0x8002;
constexpr uint32_t cWriteProtect = 0x8004;
constexpr uint32_t cAccessDenied = 0x8006;

/// What can be done with a node now.
struct Access
{
    bool mAvailable = true; ///< Implemented and available.
    bool mReadable = true;
    bool mWritable = true; ///< By its access mode.
    bool mLocked = false;

    bool CanRead() const { return mAvailable && mReadable; }
    bool CanWrite() const { return mAvailable && mWritable && !mLocked; }
};

/// What a number may be.
struct Range
{
    std::optional<Number> mMin; ///< Nothing: no limit but that of the type.
    std::optional<Number> mMax;
    std::optional<Number> mInc;
};

/// Where a register lies now.
struct RegisterSpot
{
    uint64_t mAddress = 0;
    uint64_t mLength = 0;
    bool mIsEvent = false;
};

/// Works nodes out and sets them. A description is not trusted, so each use has a budget of nodes visited,
/// device accesses and bytes, and a depth; what one use has worked out is not worked out again in it.
///
/// Each operation returns false on a failure, which GetFailure() explains then. Begin() starts the next use.
/// The object is for one thread at a time.
class Evaluator
{
public:
    using Clock = std::function<uint64_t()>; ///< Milliseconds since anything.

    // One use of the evaluator.
    static constexpr int64_t cMostVisits = 1'000'000; ///< Properties of visited nodes, steps of formulas.
    static constexpr unsigned cMostAccesses = 1'000;
    static constexpr uint64_t cMostBytes = uint64_t{4} << 20U;
    /// Milliseconds that the device may take for the accesses of one use. One that is slow counts with the most at the
    /// largest: the device may have asked for the time.
    static constexpr uint64_t cMostDeviceTime = 4'000;
    static constexpr uint64_t cMostOfOneAccess = 1'000;
    static constexpr int cDeepest = 200;
    static constexpr uint64_t cLongestValue = uint64_t{1} << 20U;

    Evaluator(const DeviceDescription& aDescription, IRegisterSpace& aSpace, Clock aClock);

    void Begin();
    /// What this use has taken from the budget of visits; over cMostVisits it has failed, and goes no further.
    int64_t GetVisits() const { return cMostVisits - mVisitsLeft; }
    KyResult GetFailure() const { return mFailure.value_or(KyResult()); }

    const NodeTable& GetNodes() const { return mNodes; }

    // Values.cpp
    bool GetNumber(NodeId aNode, Number& aValue);
    bool GetInteger(NodeId aNode, int64_t& aValue);
    bool GetString(NodeId aNode, std::string& aValue);
    /// The entry that an enumeration has now; cNoNode when its value has none.
    bool GetEntry(NodeId aEnumeration, NodeId& aEntry);
    /// A command that is executed has its value until the device has done it.
    bool IsDone(NodeId aCommand, bool& aDone);
    std::string_view GetEntryText(NodeId aEntry) const;
    Representation GetRepresentation(NodeId aNode) const;

    // Access.cpp
    bool GetAccess(NodeId aNode, Access& aAccess);

    // Ranges.cpp
    bool GetRange(NodeId aNode, Range& aRange);
    /// \return Also false when the range does not allow the value.
    bool CheckRange(NodeId aNode, const Number& aValue);

    // Registers.cpp
    bool GetSpot(NodeId aNode, RegisterSpot& aSpot);

    // Writes.cpp
    bool SetNumber(NodeId aNode, const Number& aValue);
    bool SetString(NodeId aNode, const std::string& aValue);
    bool Execute(NodeId aCommand);
    /// To be called when a feature was set, or was to be: what depends on it is read anew.
    void EndWrite(NodeId aNode);

    bool Fail(uint32_t aStatus, const std::string& aText);
    /// "The feature X cannot be evaluated: ..."
    bool FailAt(NodeId aNode, const std::string& aProblem);
    std::string NameOf(NodeId aNode) const;

private:
    /// The stay at a node: takes from the budgets, and fails where they end.
    class Visit
    {
    public:
        Visit(Evaluator& aEvaluator, NodeId aNode);
        ~Visit();
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        bool IsGood() const { return mGood; }

    private:
        Evaluator& mEvaluator;
        bool mGood;
    };

    /// The conditions of one kind that a node has; without any, all of them are true and none is.
    struct Conditions
    {
        bool mAll = true;
        bool mAny = false;
    };

    /// What this use has worked out for a node.
    struct Memo
    {
        uint32_t mValueUse = 0;
        uint32_t mAccessUse = 0;
        Number mValue;
        Access mAccess;
    };

    /// Where a node's value comes from: another node, or a text of the description.
    struct Source
    {
        NodeId mNode = cNoNode;
        const Property* mConstant = nullptr;
    };

    /// A value that TO or FROM stands for in a formula.
    struct Argument
    {
        std::string_view mName;
        Number mValue;
    };

    /// A register that was written, for the cache.
    struct Written
    {
        NodeId mNode;
        RegisterSpot mSpot;
        std::vector<uint8_t> mBytes;
    };

    // Values.cpp
    bool FindNumber(NodeId aNode, Number& aValue);
    bool GetSource(NodeId aNode, Source& aSource);
    bool GetIndexed(NodeId aNode, const Property& aIndex, Source& aSource);
    bool GetSourceNumber(NodeId aNode, Number& aValue);
    bool GetConstant(NodeId aNode, const Property& aProperty, Number& aValue);
    bool GetBoolean(NodeId aNode, Number& aValue);
    bool GetProperty(NodeId aNode, PropertyId aConstant, PropertyId aReference,
                     std::optional<Number>& aValue);
    bool Follow(NodeId aNode, const Property& aReference);
    bool GetEntryNumber(NodeId aEnumeration, std::string_view aName, Number& aValue);

    // Formulas.cpp
    bool RunFormula(NodeId aNode, const Property& aFormula, const Argument* aArgument, Number& aValue);
    bool EvaluateFormula(NodeId aNode, const Property* aFormula, const Argument* aArgument, Number& aValue);
    bool GetVariable(NodeId aNode, std::string_view aName, const Argument* aArgument, Number& aValue);
    bool GetExpression(NodeId aNode, const Property& aExpression, const Argument* aArgument, Number& aValue);
    bool GetSuffixed(NodeId aNode, const Property& aVariable, std::string_view aSuffix, Number& aValue);
    std::shared_ptr<const Formula> GetFormula(NodeId aNode, const Property& aFormula);

    // Access.cpp
    bool FindAccess(NodeId aNode, Access& aAccess);
    bool GetBaseAccess(NodeId aNode, Access& aAccess);
    bool GetConditions(NodeId aNode, PropertyId aId, Conditions& aConditions);

    // Ranges.cpp
    bool FindRange(NodeId aNode, Range& aRange);
    bool GetConverterRange(NodeId aNode, Range& aRange);
    void GetRegisterRange(NodeId aNode, Range& aRange);
    bool IsInSet(NodeId aNode, const Number& aValue);

    // Registers.cpp
    struct Field
    {
        unsigned mShift = 0;
        unsigned mWidth = 0;
        bool mSigned = false;
        bool mLittle = false;
    };
    bool GetAddress(NodeId aNode, uint64_t& aAddress);
    bool GetLength(NodeId aNode, uint64_t& aLength);
    bool GetPort(NodeId aNode, RegisterSpot& aSpot);
    bool GetNumberSpot(NodeId aNode, RegisterSpot& aSpot);
    bool GetField(NodeId aNode, const RegisterSpot& aSpot, Field& aField);
    bool ReadBits(NodeId aNode, const RegisterSpot& aSpot, bool aLittle, uint64_t& aBits);
    bool ReadInteger(NodeId aNode, Number& aValue);
    bool ReadFloat(NodeId aNode, Number& aValue);
    bool ReadString(NodeId aNode, std::string& aValue);
    bool ReadBytes(NodeId aNode, const RegisterSpot& aSpot, uint8_t* aBytes);
    bool WriteInteger(NodeId aNode, int64_t aValue);
    bool WriteFloat(NodeId aNode, double aValue);
    bool WriteString(NodeId aNode, const std::string& aValue);
    bool WriteBytes(NodeId aNode, const RegisterSpot& aSpot, std::vector<uint8_t> aBytes);
    bool TakeAccess(NodeId aNode, uint64_t aSize);
    bool TakeTime(NodeId aNode);
    template<typename Access>
    KyResult Timed(const Access& aAccess);
    bool ReadDevice(NodeId aNode, const RegisterSpot& aSpot, uint8_t* aBytes);
    bool CheckDevice(const KyResult& aResult);
    bool IsPlainRegister(const RegisterSpot& aSpot) const;
    bool MayKeep(NodeId aNode, const RegisterSpot& aSpot) const;
    void Keep(NodeId aNode, const RegisterSpot& aSpot, std::span<const uint8_t> aBytes);

    // Writes.cpp
    bool SetByKind(NodeId aNode, const Number& aValue);
    bool SetSource(NodeId aNode, const Number& aValue);
    bool SetEnumeration(NodeId aNode, const Number& aValue);
    bool SetConverter(NodeId aNode, const Number& aValue);
    bool MayKeepWritten(NodeId aRegister, const std::vector<NodeId>& aStale) const;

    const DeviceDescription& mDescription;
    const NodeTable& mNodes;
    const Dependencies& mGraph;
    IRegisterSpace& mSpace;
    const Clock mClock;

    RegisterCache mCache;
    uint64_t mForeignWrites = 0;
    /// What was written to values that are in the description, not in the device.
    std::unordered_map<const Property*, Number> mLocalNumbers;
    std::unordered_map<const Property*, std::string> mLocalStrings;
    std::unordered_map<const Property*, std::shared_ptr<const Formula>> mFormulas;
    size_t mFormulaSteps = 0;

    // Of this use.
    uint32_t mUse = 0;
    int64_t mVisitsLeft = 0;
    unsigned mAccessesLeft = 0;
    uint64_t mBytesLeft = 0;
    uint64_t mDeviceTime = 0;
    int mDepth = 0;
    std::optional<KyResult> mFailure;
    std::vector<Memo> mMemos;
    std::unordered_map<const Property*, Number> mExpressions;
    std::unordered_map<NodeId, Range> mRanges;
    std::vector<Written> mWritten;
};

} // namespace KyGigE
