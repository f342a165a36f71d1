#include "Tests/clserzmo/RegistryFixture.h"

#include <cstring>
#include <vector>

using KyPlatform::NamedSemaphore;
using KySerialLib::SharedRegistry;
using KySerialLib::SharedRegistryEntry;

namespace
{

constexpr size_t cSectionSize = 11008;

/// A section that an enemy writes to.
class SharedRegistryHostileTest : public RegistryFixture
{
protected:
    /// Makes every operation once; none may touch anything outside the section or keep the lock.
    void UseEverything(const std::string& aName)
    {
        SharedRegistryEntry* lEntry = nullptr;
        if (mRegistry->Find(aName, lEntry))
        {
            const auto lOffset = static_cast<size_t>(reinterpret_cast<uint8_t*>(lEntry) - mBytesOfRegistry);
            EXPECT_LT(lOffset, cSectionSize);
            EXPECT_EQ(lOffset % 344, 0U);
            EXPECT_TRUE(mRegistry->SetServerActive(aName, true));
        }
        const std::vector<SharedRegistryEntry> lEntries = mRegistry->GetEntries();
        ASSERT_EQ(lEntries.size(), 32U);
        EXPECT_FALSE(mRegistry->GetPrefix(lEntries[0]).empty());
        NamedSemaphore lMine;
        if (mRegistry->AcquireServer(aName, mServer, mClient))
        {
            EXPECT_TRUE(mRegistry->AcquireClient(aName, lMine));
            SharedRegistry::ReleaseClient(lMine);
            SharedRegistry::ReleaseServer(mServer, mClient);
        }
    }

    void SetUp() override
    {
        ASSERT_TRUE(mRegistry->Register("First"));
        mBytesOfRegistry = reinterpret_cast<uint8_t*>(&GetEntry("First"));
        mBytes = MapSection();
        // The last entry carries a name, so that what follows it would be looked at by an endless
        // comparison.
        std::memset(mBytes + cSectionSize - 256, 'n', 255);
        mFresh.assign(mBytes, mBytes + cSectionSize);
    }

    void Restore() { std::memcpy(mBytes, mFresh.data(), cSectionSize); }

    uint8_t* mBytesOfRegistry = nullptr;
    uint8_t* mBytes = nullptr;
    std::vector<uint8_t> mFresh;
};

TEST_F(SharedRegistryHostileTest, EverySingleByteMayBeWrong)
{
    for (size_t lOffset = 0; lOffset < cSectionSize; ++lOffset)
    {
        Restore();
        mBytes[lOffset] ^= 0xFFU;
        // Only the name's own bytes decide whether it is found.
        const bool lNameHit = lOffset >= 88 && lOffset < 88 + 6;
        ASSERT_EQ(Has("First"), !lNameHit) << lOffset;
        ASSERT_NO_FATAL_FAILURE(UseEverything(lNameHit ? "First" : std::string(255, 'n'))) << lOffset;
    }
    Restore();
    EXPECT_EQ(GetEntry("First").mServerId, 1U);
}

TEST_F(SharedRegistryHostileTest, NameWithoutEndIsNoName)
{
    std::memset(mBytes + 88, 'x', 256);
    std::memset(mBytes + cSectionSize - 256, 'x', 256);
    for (const size_t lLength : {254U, 255U, 256U, 257U, 5000U})
    {
        EXPECT_FALSE(Has(std::string(lLength, 'x'))) << lLength;
    }
    EXPECT_EQ(GetName(mRegistry->GetEntries()[31]), std::string(256, 'x'));
}

TEST_F(SharedRegistryHostileTest, SectionOfTheWrongSizeIsRefused)
{
    mMemory.Close();
    for (const uint64_t lSize : {1U, 344U, 8192U, 12289U, 1U << 20U})
    {
        SCOPED_TRACE(lSize);
        mRegistry.reset();
        bool lNew = false;
        ASSERT_TRUE(mMemory.Create("Local\\KySerialBridgeRegistryMemory", lSize, lNew));
        ASSERT_TRUE(lNew);
        mRegistry.emplace(true);
        EXPECT_FALSE(mRegistry->IsValid());
        EXPECT_FALSE(mRegistry->Register("A"));
        EXPECT_FALSE(mRegistry->SetServerActive("A", true));
        EXPECT_TRUE(mRegistry->GetEntries().empty());
        EXPECT_FALSE(Has("A"));
        EXPECT_FALSE(mRegistry->AcquireServer("A", mServer, mClient));
        EXPECT_FALSE(mRegistry->AcquireClient("A", mClient));
        mMemory.Close();
    }
}

} // namespace
