// Aravis and our evaluator on the same descriptions and registers. Where they differ on purpose, the test
// says so and why; everything else has to be equal.

#include "GenApi/AravisJudge.h"
#include "GenApi/RandomDescription.h"

#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/RegisterMap.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <set>

namespace
{

using KyGigE::NodeKind;
using KyTest::AravisJudge;
using KyTest::RandomDescription;

bool IsClose(double aOne, double aOther)
{
    const double lScale = std::max({1.0, std::fabs(aOne), std::fabs(aOther)});
    return (std::isnan(aOne) && std::isnan(aOther)) || aOne == aOther ||
           std::fabs(aOne - aOther) <= 1e-9 * lScale;
}

/// Compares every answer about features.
class Comparison
{
public:
    Comparison(const std::string& aXml, KyGigE::IRegisterSpace& aSpace) : mJudge(aXml, aSpace)
    {
        EXPECT_THAT(KyGigE::DeviceDescription::Parse(aXml, mDescription), KyTest::IsOK());
        mMap = std::make_unique<KyGigE::NodeMap>(*mDescription, aSpace);
    }

    void Compare(const std::string& aName)
    {
        const NodeKind lKind = mMap->GetKind(aName);
        const bool lAvailable = mMap->IsAvailable(aName);
        const bool lJudged = mJudge.IsAvailable(aName);
        // Aravis asks the feature only; ours also what its value comes from: conditions and access modes of a
        // register count for every feature on it.
        EXPECT_TRUE(lAvailable == lJudged || (lJudged && !lAvailable)) << aName;
        if (lKind == NodeKind::Enumeration)
        {
            CompareEntries(aName);
        }
        if (!lAvailable || lKind == NodeKind::Category || lKind == NodeKind::Command ||
            lKind == NodeKind::Register || !mMap->IsReadable(aName))
        {
            return;
        }
        CompareAccess(aName);
        CompareValue(aName, lKind);
        if (lKind == NodeKind::Integer || lKind == NodeKind::Float)
        {
            CompareLimits(aName, lKind);
        }
    }

    size_t GetCount() const { return mCount; }
    KyGigE::NodeMap& GetMap() { return *mMap; }
    AravisJudge& GetJudge() { return mJudge; }
    const KyGigE::DeviceDescription& GetDescription() const { return *mDescription; }

private:
    void CompareEntries(const std::string& aName)
    {
        std::vector<std::string> lEntries;
        const bool lGood = mMap->GetEntries(aName, lEntries).IsOK();
        const auto lJudged = mJudge.GetEntries(aName);
        EXPECT_EQ(lGood, lJudged.has_value()) << aName;
        EXPECT_TRUE(!lGood || !lJudged || lEntries == *lJudged) << aName;
        ++mCount;
    }

    void CompareAccess(const std::string& aName)
    {
        const bool lJudged = mJudge.GetAccess(aName) != "RO" && !mJudge.IsLocked(aName);
        const bool lWritable = mMap->IsWritable(aName);
        EXPECT_TRUE(!lWritable || lJudged) << aName; // a lock below counts with ours only
    }

    void CompareValue(const std::string& aName, NodeKind aKind)
    {
        std::string lText;
        const bool lGood = mMap->GetText(aName, lText).IsOK();
        ++mCount;
        if (aKind == NodeKind::Integer)
        {
            int64_t lValue = 0;
            static_cast<void>(mMap->GetInteger(aName, lValue));
            const auto lJudged = mJudge.GetInteger(aName);
            EXPECT_EQ(lGood, lJudged.has_value()) << aName << ' ' << lText;
            EXPECT_TRUE(!lGood || lJudged == lValue) << aName << ' ' << lValue << ' ' << lJudged.value_or(0);
            return;
        }
        if (aKind == NodeKind::Float)
        {
            const auto lJudged = mJudge.GetFloat(aName);
            const double lValue = lGood ? std::strtod(lText.c_str(), nullptr) : 0;
            EXPECT_EQ(lGood, lJudged.has_value()) << aName << ' ' << lText;
            EXPECT_TRUE(!lGood || !lJudged || IsClose(lValue, *lJudged))
                << aName << ' ' << lText << ' ' << *lJudged;
            return;
        }
        const auto lJudged = mJudge.GetText(aName);
        EXPECT_EQ(lGood, lJudged.has_value()) << aName << ' ' << lText;
        EXPECT_TRUE(!lGood || !lJudged || lText == *lJudged) << aName << ' ' << lText << ' ' << *lJudged;
    }

    void CompareLimits(const std::string& aName, NodeKind aKind)
    {
        KyGigE::Range lRange;
        if (!mMap->GetRange(aName, lRange).IsOK())
        {
            return;
        }
        for (const bool lMax : {false, true})
        {
            const auto& lOurs = lMax ? lRange.mMax : lRange.mMin;
            // Aravis has a type's limit instead of none, and no negative numbers for the upper half of an unsigned
            // register of 8 bytes.
            if (!lOurs || lOurs->Rounded() == std::numeric_limits<int64_t>::min())
            {
                continue;
            }
            const std::string lWhich = aName + (lMax ? " max" : " min");
            ++mCount;
            if (aKind == NodeKind::Float)
            {
                const auto lLimit = mJudge.GetFloatLimit(aName, lMax);
                EXPECT_TRUE(lLimit && IsClose(*lLimit, lOurs->AsFloat()))
                    << lWhich << ' ' << lOurs->AsFloat() << ' ' << lLimit.value_or(0);
            }
            else
            {
                EXPECT_EQ(mJudge.GetLimit(aName, lMax), lOurs->Rounded()) << lWhich;
            }
        }
    }

    AravisJudge mJudge;
    std::unique_ptr<KyGigE::DeviceDescription> mDescription;
    std::unique_ptr<KyGigE::NodeMap> mMap;
    size_t mCount = 0;
};

/// Compares each feature that a description names.
void CompareAll(Comparison& aComparison)
{
    const KyGigE::NodeTable& lNodes = aComparison.GetDescription().GetNodes();
    for (KyGigE::NodeId lNode = 0; lNode < lNodes.GetCount(); ++lNode)
    {
        const std::string lName(lNodes.Get(lNode).mName);
        if (!lName.empty() && aComparison.GetMap().GetKind(lName) != NodeKind::None)
        {
            aComparison.Compare(lName);
        }
    }
}

TEST(AravisComparisonTest, AgreesOnItsSimulatedCamera)
{
    const auto lSpace = AravisJudge::MakeFakeSpace();
    Comparison lComparison(AravisJudge::GetFakeXml(), *lSpace);
    CompareAll(lComparison);
    EXPECT_GT(lComparison.GetCount(), 80U);
    EXPECT_FALSE(testing::Test::HasFailure());
}

/// A description at hand, of a camera or from somebody's tests, on registers that all read 0.
TEST(AravisComparisonTest, AgreesOnAGivenDescription)
{
    const char* const lName =
        std::getenv("KYSERIAL_DESCRIPTION"); // NOLINT(concurrency-mt-unsafe): no thread changes it
    if (lName == nullptr)
    {
        GTEST_SKIP() << "KYSERIAL_DESCRIPTION names no file with a description";
    }
    std::ifstream lFile(lName);
    const std::string lXml((std::istreambuf_iterator<char>(lFile)), std::istreambuf_iterator<char>());
    ASSERT_FALSE(lXml.empty()) << lName;
    KyTest::FakeSpace lSpace;
    Comparison lComparison(lXml, lSpace);
    CompareAll(lComparison);
    EXPECT_GT(lComparison.GetCount(), 0U);
}

/// The registers of the simulated camera of this project, without a network.
class CameraSpace final : public KyGigE::IRegisterSpace
{
public:
    explicit CameraSpace(KySimulator::RegisterMap& aRegisters) : mRegisters(aRegisters) {}

    KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) override
    {
        constexpr uint64_t cWord = 4;
        std::vector<uint8_t> lData;
        const auto lResult = mRegisters.ReadMemory(static_cast<uint32_t>(aAddress),
                                                   (aSize + cWord - 1) / cWord * cWord, lData);
        std::copy_n(lData.begin(), std::min<size_t>(lData.size(), aSize), aBuffer);
        return lResult.IsOk() ? KyResult() : KyResult(KyResult::FAILURE);
    }
    KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) override
    {
        return ReadMemory(aAddress, reinterpret_cast<uint8_t*>(&aValue), sizeof(aValue));
    }
    KyResult WriteMemory(uint64_t /*aAddress*/, const uint8_t* /*aBuffer*/, uint64_t /*aSize*/) override
    {
        return KyResult(KyResult::FAILURE);
    }
    KyResult WriteRegister(uint64_t /*aAddress*/, uint32_t /*aValue*/) override
    {
        return KyResult(KyResult::FAILURE);
    }

private:
    KySimulator::RegisterMap& mRegisters;
};

TEST(AravisComparisonTest, AgreesOnTheCameraOfThisProject)
{
    KySimulator::CameraModel lCamera{KySimulator::CameraConfiguration()};
    KySimulator::RegisterMap lRegisters(lCamera);
    std::string lXml;
    std::vector<uint8_t> lPart;
    for (uint32_t lPlace = KySimulator::RegisterMap::cDescription;
         lRegisters.ReadMemory(lPlace, 4, lPart).IsOk(); lPlace += 4)
    {
        lXml.append(lPart.begin(), lPart.end());
    }
    lXml.erase(lXml.find_last_of('>') + 1);
    CameraSpace lSpace(lRegisters);
    Comparison lComparison(lXml, lSpace);
    // Aravis reads no events.
    std::map<uint16_t, std::vector<std::string>> lFed;
    ASSERT_TRUE(lComparison.GetDescription().GetGraph().CollectFed(lFed));
    std::set<std::string> lOfEvents;
    for (const auto& [lEvent, lNames] : lFed)
    {
        lOfEvents.insert(lNames.begin(), lNames.end());
    }
    for (const KyGigE::ListedFeature& lFeature : lComparison.GetDescription().GetGraph().GetFeatures())
    {
        if (lOfEvents.count(lFeature.mName) == 0)
        {
            lComparison.Compare(lFeature.mName);
        }
    }
    EXPECT_GT(lComparison.GetCount(), 30U);
}

TEST(AravisComparisonTest, AgreesOnRandomDescriptions)
{
    const char* const lRounds =
        std::getenv("KYSERIAL_RANDOM_DESCRIPTIONS"); // NOLINT(concurrency-mt-unsafe): no thread changes it
    const unsigned lCount = lRounds != nullptr ? static_cast<unsigned>(std::atoi(lRounds)) : 100;
    size_t lCompared = 0;
    for (unsigned lSeed = 1; lSeed <= lCount && !testing::Test::HasFailure(); ++lSeed)
    {
        const RandomDescription lDescription(lSeed);
        KyTest::FakeSpace lSpace;
        std::mt19937 lRandom(lSeed);
        for (uint64_t lAddress = 0; lAddress < 512; lAddress += 4)
        {
            lSpace.PutWord(lAddress, lRandom() % 4 == 0   ? lRandom() % 4
                                     : lRandom() % 4 == 0 ? 0
                                                          : lRandom() & 0x7FFFFFFFU);
        }
        Comparison lComparison(lDescription.GetXml(), lSpace);
        for (const std::string& lName : lDescription.GetNames())
        {
            lComparison.Compare(lName);
        }
        lCompared += lComparison.GetCount();
        EXPECT_FALSE(testing::Test::HasFailure()) << "seed " << lSeed << '\n' << lDescription.GetXml();
    }
    EXPECT_GE(lCompared, size_t{lCount} * 10);
}

} // namespace
