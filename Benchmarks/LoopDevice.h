#pragma once

#include "Benchmarks/BenchDevice.h"

#include <cstring>
#include <functional>

namespace KyBench
{

/// A device whose bulk ports are driven through features. What it is sent it gives to mOnData, or else sends
/// back; Emit() is what it says by itself. The library is notified inside those calls, so that no thread of the
/// device's own is in the figures.
class LoopDevice : public BenchDevice
{
public:
    explicit LoopDevice(int64_t aAddress) { mAddress = aAddress; }

    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        if (std::strstr(aName.GetAscii(), "Upstream") == nullptr)
        {
            return BenchDevice::GetIntegerValue(aName, aValue);
        }
        aValue = mUpstreamLength;
        return KyResult();
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        std::memcpy(aBuffer, mUpstream, static_cast<size_t>(aLength));
        return KyResult();
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* aBuffer, int64_t /*aLength*/) override
    {
        // Eight bytes of header; the second word, in network order, is the number of bytes that follow.
        const auto lSize = static_cast<uint32_t>(aBuffer[6]) << 8U | aBuffer[7];
        if (mOnData)
        {
            mOnData(aBuffer + 8, lSize);
            return KyResult();
        }
        Emit(aBuffer + 8, lSize);
        return KyResult();
    }

    /// The device says something. By one thread at a time.
    void Emit(const uint8_t* aData, uint32_t aSize)
    {
        static const KyString cBuffer(KyDeviceProtocol::UpstreamBufferFeature(1).c_str());
        mUpstream = aData;
        mUpstreamLength = aSize;
        mSink->NotifyFeatureInvalidated(&cBuffer);
    }

    std::function<void(const uint8_t*, uint32_t)> mOnData;

private:
    const uint8_t* mUpstream = nullptr;
    uint32_t mUpstreamLength = 0;
};

} // namespace KyBench
