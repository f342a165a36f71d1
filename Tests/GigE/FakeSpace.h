#pragma once

#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KyTest
{

/// A register space that is a table of bytes; what nobody has put there reads as 0. Can fail when a test wants it.
class FakeSpace : public KyGigE::IRegisterSpace
{
public:
    using Bytes = std::vector<uint8_t>;

    /// What the next accesses answer; nothing: they work.
    std::optional<KyResult> mFailure;
    /// "R 0x10 4", "W 0x10 4", "RR 0x10", "WR 0x10": what was asked.
    std::vector<std::string> mAccesses;
    uint64_t mForeignWrites = 0;
    /// What goes on during each access.
    std::function<void()> mMeanwhile;

    uint64_t GetForeignWrites() const override { return mForeignWrites; }
    void Put(uint64_t aAddress, const Bytes& aBytes)
    {
        for (size_t lIndex = 0; lIndex < aBytes.size(); ++lIndex)
        {
            mBytes[aAddress + lIndex] = aBytes[lIndex];
        }
    }
    void PutWord(uint64_t aAddress, uint32_t aValue)
    {
        Put(aAddress, {static_cast<uint8_t>(aValue >> 24U), static_cast<uint8_t>(aValue >> 16U),
                       static_cast<uint8_t>(aValue >> 8U), static_cast<uint8_t>(aValue)});
    }
    Bytes Get(uint64_t aAddress, size_t aSize)
    {
        Bytes lBytes(aSize);
        for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
        {
            lBytes[lIndex] = mBytes[aAddress + lIndex];
        }
        return lBytes;
    }
    uint32_t GetWord(uint64_t aAddress)
    {
        const Bytes lBytes = Get(aAddress, 4);
        return static_cast<uint32_t>(lBytes[0]) << 24U | static_cast<uint32_t>(lBytes[1]) << 16U |
               static_cast<uint32_t>(lBytes[2]) << 8U | lBytes[3];
    }

    KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) override
    {
        Note("R ", aAddress, aSize);
        const Bytes lBytes = Get(aAddress, aSize);
        std::copy(lBytes.begin(), lBytes.end(), aBuffer);
        return Answer();
    }
    KyResult WriteMemory(uint64_t aAddress, const uint8_t* aBuffer, uint64_t aSize) override
    {
        Note("W ", aAddress, aSize);
        if (!mFailure)
        {
            Put(aAddress, Bytes(aBuffer, aBuffer + aSize));
        }
        return Answer();
    }
    KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) override
    {
        Note("RR ", aAddress, 4);
        aValue = GetWord(aAddress);
        return Answer();
    }
    KyResult WriteRegister(uint64_t aAddress, uint32_t aValue) override
    {
        Note("WR ", aAddress, 4);
        PutWord(aAddress, aValue);
        return Answer();
    }

private:
    void Note(const char* aWhat, uint64_t aAddress, uint64_t aSize)
    {
        char lText[64];
        std::snprintf(lText, sizeof(lText), "%s0x%llX %llu", aWhat, static_cast<unsigned long long>(aAddress),
                      static_cast<unsigned long long>(aSize));
        mAccesses.emplace_back(lText);
        if (mMeanwhile)
        {
            mMeanwhile();
        }
    }
    KyResult Answer() const { return mFailure.value_or(KyResult()); }

    std::map<uint64_t, uint8_t> mBytes;
};

/// A description with aNodes in it.
inline std::string Description(const std::string& aNodes, const std::string& aMinor = "1")
{
    return R"(<?xml version="1.0" encoding="utf-8"?>
<RegisterDescription ModelName="Test" VendorName="Korvo" ToolTip="" StandardNameSpace="None"
 SchemaMajorVersion="1" SchemaMinorVersion=")" +
           aMinor + R"(" SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0"
 SubMinorVersion="0" ProductGuid="00000000-0000-0000-0000-000000000000"
 VersionGuid="00000000-0000-0000-0000-000000000000"
 xmlns="http://www.genicam.org/GenApi/Version_1_)" +
           aMinor + R"(">)" + aNodes + "<Port Name=\"Device\"/></RegisterDescription>";
}

/// A big-endian integer register.
inline std::string IntReg(const std::string& aName, const std::string& aAddress,
                          const std::string& aAccess = "RW", const std::string& aMore = "",
                          const std::string& aPort = "Device")
{
    return "<IntReg Name=\"" + aName + "\">" + aMore + "<Address>" + aAddress +
           "</Address><Length>4</Length><AccessMode>" + aAccess + "</AccessMode><pPort>" + aPort +
           "</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>";
}

} // namespace KyTest
