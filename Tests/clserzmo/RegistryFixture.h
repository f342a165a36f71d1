#pragma once

#include "KyPlatform/SharedMemory.h"
#include "Tests/Support/PrivateSession.h"
#include "sharedregistry.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

/// A registry of the test's own.
class RegistryFixture : public testing::Test
{
protected:
    static std::string GetName(const KySerialLib::SharedRegistryEntry& aEntry)
    {
        return {aEntry.mName, strnlen(aEntry.mName, sizeof(aEntry.mName))};
    }
    /// The entry of this name in the section. Without one: an entry of the test itself.
    KySerialLib::SharedRegistryEntry& GetEntry(const std::string& aName)
    {
        KySerialLib::SharedRegistryEntry* lEntry = nullptr;
        EXPECT_TRUE(mRegistry->Find(aName, lEntry));
        return lEntry != nullptr ? *lEntry : mNoEntry;
    }
    bool Has(const std::string& aName)
    {
        KySerialLib::SharedRegistryEntry* lEntry = &mNoEntry;
        const bool lFound = mRegistry->Find(aName, lEntry);
        EXPECT_EQ(lFound, lEntry != nullptr);
        return lFound;
    }
    uint8_t* MapSection()
    {
        EXPECT_TRUE(mMemory.Open("Local\\KySerialBridgeRegistryMemory"));
        return static_cast<uint8_t*>(mMemory.GetBase());
    }

    PrivateSession mSession;
    std::optional<KySerialLib::SharedRegistry> mRegistry{std::in_place, true};
    KyPlatform::SharedMemory mMemory;
    KyPlatform::NamedSemaphore mServer; // of the first server
    KyPlatform::NamedSemaphore mClient;

private:
    KySerialLib::SharedRegistryEntry mNoEntry{};
};
