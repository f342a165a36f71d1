#include "KySerialC/Log.h"

#include "ApiCall.h"
#include "JxUtilsLib/Logger.h"
#include "KyBase/KyPermanent.h"

#include <utility>

namespace
{

// An application's function as the log's sink.
class FunctionSink final : public JxUtilsLib::LogSink
{
public:
    FunctionSink(KyLogFunction aFunction, void* aContext) : mFunction(aFunction), mContext(aContext) {}

    void Write(const JxUtilsLib::LogRecord& aRecord) override
    {
        const KyLogRecord lRecord = {sizeof(KyLogRecord), aRecord.mPriority, aRecord.mCategory, aRecord.mFile,
                                     aRecord.mFunction,   aRecord.mMessage,  aRecord.mLine};
        mFunction(mContext, &lRecord);
    }

private:
    const KyLogFunction mFunction;
    void* const mContext;
};

// The sink in use, kept for as long as the log may call it.
struct Current
{
    JxUtilsLib::Mutex mMutex;
    FunctionSink* mSink JX_GUARDED_BY(mMutex) = nullptr;
};

Current& GetCurrent()
{
    static KyPermanent<Current> sCurrent; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sCurrent.Get();
}

} // namespace

KyCode KyLogSetSink(KyLogFunction aFunction, void* aContext)
{
    return KySerialCLib::Run(
        [&]() -> KyResult
        {
            auto lSink = aFunction != nullptr ? std::make_unique<FunctionSink>(aFunction, aContext) : nullptr;
            JxUtilsLib::LockScope lScope(GetCurrent().mMutex);
            JxUtilsLib::Logger::SetSink(lSink.get()); // returns when the former sink is not in use any more
            delete std::exchange(GetCurrent().mSink, lSink.release());
            return KyResult();
        });
}

KyCode KyLogSetPriority(int32_t aPriority)
{
    JxUtilsLib::Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(aPriority));
    return KySerialCLib::Finish(KyResult());
}

int32_t KyLogGetPriority(void)
{
    return JxUtilsLib::Logger::GetPriority();
}
