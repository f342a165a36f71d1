// Whatever a device says of its port's settings: a bridge offers the rates that the device's entries name,
// and leaves the settings as it found them.

#include "Bridge.h"
#include "Fuzz/PlainAdapter.h"
#include "Fuzz/PortModel.h"
#include "clserzmo/BaudRateMask.h"

#include <string>

using namespace KyDeviceProtocol;
using namespace KyTest;

namespace
{

struct Bridge final : KySerialLib::Bridge
{
    ~Bridge() override { Release(); }
    bool IsBaudRateSupported(uint32_t aBaudRate) const override
    {
        uint32_t lMask = 0;
        return KySerialLib::BaudRateToMask(aBaudRate, lMask);
    }
    KyPlatform::WorkerThread::Routine GetUpThreadRoutine() const override { return nullptr; }
    KyPlatform::WorkerThread::Routine GetDownThreadRoutine() const override { return nullptr; }
    using KySerialLib::Bridge::SetConfiguration;
};

struct Settings final : PlainAdapter
{
    Settings() { mRegisters[cFunctionCapabilities] = cImplemented | 2U; }

    bool IsFeatureAvailable(const KyString& aName) override
    {
        return aName == KyString(cEventSelectorFeature) || aName == KyString(cEventNotificationFeature) ||
               Is(aName, mThere);
    }
    bool IsFeatureReadable(const KyString& aName) override { return Is(aName, mReadable); }
    bool IsFeatureWritable(const KyString& aName) override { return Is(aName, mWritable); }
    KyResult GetEnumEntries(const KyString& /*aName*/, KyStringList& aEntries) override
    {
        aEntries.Clear();
        for (const std::string& lEntry : mEntries)
        {
            aEntries.Add(lEntry.c_str());
        }
        return KyResult(mEntriesRefused ? 0x7777U : 0U);
    }
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override
    {
        aValue = KyString(mTexts[aName.GetAscii()].c_str());
        return KyResult(Is(aName, mUnknown) ? 0x7777U : 0U);
    }
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override
    {
        if (Is(aName, mRefused))
        {
            return KyResult(0x7777);
        }
        mTexts[aName.GetAscii()] = aValue.GetAscii();
        return KyResult(KyResult::OK);
    }
    KyResult RegisterFeatureInterest(const KyString& aName) override
    {
        ++mInterest[aName.GetAscii()];
        return KyResult(KyResult::OK);
    }
    KyResult UnregisterFeatureInterest(const KyString& aName) override
    {
        --mInterest[aName.GetAscii()];
        return KyResult(KyResult::OK);
    }

    // One bit for each of the port's features.
    static bool Is(const KyString& aName, uint8_t aMask)
    {
        const std::string lName = aName.GetAscii();
        unsigned lBit = 0;
        for (const char* const lEnd : {"BaudRate", "Parity", "NumOfStopBits", "BulkMode", "BulkSelector"})
        {
            if (lName.size() >= std::strlen(lEnd) &&
                lName.compare(lName.size() - std::strlen(lEnd), std::string::npos, lEnd) == 0)
            {
                return (aMask >> lBit & 1U) != 0;
            }
            ++lBit;
        }
        return false;
    }

    uint8_t mThere = 0;
    uint8_t mReadable = 0;
    uint8_t mWritable = 0;
    uint8_t mUnknown = 0;
    uint8_t mRefused = 0;
    bool mEntriesRefused = false;
    std::vector<std::string> mEntries{};
    std::map<std::string, std::string> mTexts{};
    std::map<std::string, int> mInterest{};
};

std::string TakeText(FuzzInput& aInput)
{
    const std::vector<uint8_t> lBytes = aInput.TakeBytes(aInput.TakeByte() % 24U);
    const std::string lText(lBytes.begin(), lBytes.end());
    return lText.substr(0, lText.find('\0')); // up to the first NUL: texts of features have no others
}

// "Baud" and a number as C writes it: decimal, octal after 0, hexadecimal after 0x.
uint32_t GetRate(const std::string& aEntry)
{
    if (aEntry.compare(0, 4, "Baud") != 0)
    {
        return 0;
    }
    const char* lText = aEntry.c_str() + 4;
    char* lEnd = nullptr;
    const long lRate = std::strtol(lText, &lEnd, 0);
    return lEnd != lText && lRate > 0 && lRate <= 115200 ? static_cast<uint32_t>(lRate) : 0;
}

void CheckRates(Bridge& aBridge, const Settings& aDevice)
{
    std::vector<uint32_t> lRates;
    for (const std::string& lEntry : aDevice.mEntries)
    {
        const uint32_t lRate = GetRate(lEntry);
        if (aBridge.IsBaudRateSupported(lRate))
        {
            lRates.push_back(lRate);
        }
    }
    if (!aBridge.RefreshSupportedBaudRates().IsOK())
    {
        KY_REQUIRE(aBridge.GetSupportedBaudRateCount() == 0);
        return;
    }
    KY_REQUIRE(aBridge.GetSupportedBaudRateCount() == lRates.size());
    for (uint32_t lIndex = 0; lIndex < lRates.size(); ++lIndex)
    {
        KY_REQUIRE(aBridge.GetSupportedBaudRate(lIndex) == lRates[lIndex]);
    }
}

void Configure(Bridge& aBridge, Settings& aDevice, FuzzInput& aInput)
{
    constexpr uint32_t cRates[] = {9600, 14400, 19200, 28800, 38400, 57600, 115200, 4800};
    KySerialPortConfiguration lConfiguration;
    lConfiguration.mBaudRate = cRates[aInput.TakeByte() % 8U];
    lConfiguration.mParity = static_cast<KyParity>(aInput.TakeByte() % 4U);
    lConfiguration.mStopBits = 1U + aInput.TakeByte() % 3U;
    aBridge.SetConfiguration(lConfiguration);
    const KyResult lResult = aBridge.ConfigurePort();
    KY_REQUIRE(lResult.GetCode() == (lConfiguration.IsValid().IsOK()
                                         ? lResult.IsOK() ? KyResult::OK : KyResult::UNSUPPORTED
                                         : KyResult::BAD_PARAMETER));
    if (lResult.IsOK() &&
        Settings::Is("BaudRate", aDevice.mThere & ~aDevice.mUnknown & ~aDevice.mRefused & 1U))
    {
        KY_REQUIRE(aBridge.GetBaudRate() == lConfiguration.mBaudRate);
    }
}

void Run(FuzzInput& aInput)
{
    Settings lDevice;
    const auto lPort = static_cast<KyDeviceSerial>(aInput.TakeByte() % 10U);
    if (lPort > KyDeviceSerialUart1)
    {
        lDevice.mRegisters[cFunctionCapabilities] = 0; // through features
    }
    lDevice.mThere = aInput.TakeByte();
    lDevice.mReadable = aInput.TakeByte();
    lDevice.mWritable = aInput.TakeByte();
    const std::string lBulk = "Bulk" + std::to_string(static_cast<int>(lPort) - 2);
    const std::string lName = lPort < 2 ? "Uart" + std::to_string(static_cast<int>(lPort))
                              : (lDevice.mThere & 0x10U) != 0 ? "Bulk"
                                                              : lBulk;
    for (const char* const lEnd : {"BaudRate", "Parity", "NumOfStopBits"})
    {
        lDevice.mTexts[lName + lEnd] = TakeText(aInput);
    }
    lDevice.mTexts["BulkMode"] = TakeText(aInput);
    lDevice.mTexts["BulkSelector"] = lBulk;
    const std::map<std::string, std::string> lBefore = lDevice.mTexts;
    {
        Bridge lBridge;
        KY_REQUIRE(lBridge.OpenDevicePort(&lDevice, lPort).IsOK());
        while (aInput.HasStep())
        {
            lDevice.mEntriesRefused = (aInput.TakeByte() & 7U) == 7;
            lDevice.mEntries.clear();
            for (unsigned lCount = aInput.TakeByte() % 8U; lCount > 0; --lCount)
            {
                lDevice.mEntries.push_back(aInput.TakeFlag() ? "Baud" + TakeText(aInput) : TakeText(aInput));
            }
            CheckRates(lBridge, lDevice);
            lDevice.mUnknown = aInput.TakeByte() & aInput.TakeByte();
            lDevice.mRefused = aInput.TakeByte() & aInput.TakeByte();
            Configure(lBridge, lDevice, aInput);
            lDevice.mUnknown = 0;
            lDevice.mRefused = 0;
        }
    }
    KY_REQUIRE(lDevice.mSinks.empty());
    for (const auto& [lFeature, lInterest] : lDevice.mInterest)
    {
        KY_REQUIRE(lInterest == 0);
    }
    for (const auto& [lFeature, lText] : lBefore)
    {
        const KyString lKey(lFeature.c_str());
        if (Settings::Is(lKey, lDevice.mThere & lDevice.mReadable & lDevice.mWritable) && !lText.empty())
        {
            KY_REQUIRE(lDevice.mTexts[lFeature] == lText);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    static const HostileDevice cHostile{};
    FuzzInput lInput(aData, aSize);
    Run(lInput);
    return 0;
}
