#include "RetiredEngines.h"

#include "IRegisterSerialPort.h"
#include "JxUtilsLib/LockScope.h"
#include "KyBase/KyPermanent.h"

namespace KySerialLib
{

void RetiredEngines::Add(std::unique_ptr<SerialPort> aEngine) noexcept
{
    // Permanent: adapters may call their sinks until the last moment of the process.
    static KyPermanent<RetiredEngines> sEngines; // GCOVR_EXCL_BR_LINE: the compiler's guard
    if (aEngine == nullptr)
    {
        return;
    }
    aEngine->Retire();
    // The kind is asked for, because the engines' table of virtual functions is fixed.
    if (auto* const lEngine = dynamic_cast<IRegisterSerialPort*>(aEngine.get()))
    {
        lEngine->ReleaseBuffers();
    }
    RetiredEngines& lEngines = sEngines.Get();
    const JxUtilsLib::LockScope lLock(lEngines.mMutex);
    aEngine->mNextRetired = lEngines.mFirst;
    lEngines.mFirst = aEngine.release();
}

void RetireEngine(std::unique_ptr<SerialPort> aEngine) noexcept
{
    // A closed engine has left the adapter's list of sinks, so nobody calls it any more.
    if (aEngine != nullptr && aEngine->IsOpened())
    {
        RetiredEngines::Add(std::move(aEngine));
    }
}

} // namespace KySerialLib
