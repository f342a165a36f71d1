#include "RetiredEngines.h"

#include "JxUtilsLib/LockScope.h"

#include <new>

namespace KySerialLib
{

namespace
{

struct Node
{
    std::unique_ptr<SerialPort> mEngine;
    Node* mNext;
};

// Never destroyed: adapters may call their sinks until the last moment of the process.
struct RetiredEngines
{
    JxUtilsLib::Mutex mMutex;
    Node* mFirst JX_GUARDED_BY(mMutex) = nullptr;
};

RetiredEngines& GetRetiredEngines()
{
    alignas(RetiredEngines) static unsigned char sStorage[sizeof(RetiredEngines)];
    static auto* const cEngines = new (sStorage) RetiredEngines; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return *cEngines;
}

} // namespace

void RetireEngine(std::unique_ptr<SerialPort> aEngine) noexcept
{
    if (aEngine == nullptr || !aEngine->IsOpened())
    {
        return; // deleted here
    }
    Node* const lNode = new (std::nothrow) Node{nullptr, nullptr};
    if (lNode == nullptr)
    {
        static_cast<void>(aEngine.release()); // no memory to remember it; it must not go all the same
        return;
    }
    RetiredEngines& lEngines = GetRetiredEngines();
    const JxUtilsLib::LockScope lLock(lEngines.mMutex);
    lNode->mEngine = std::move(aEngine);
    lNode->mNext = lEngines.mFirst;
    lEngines.mFirst = lNode;
}

} // namespace KySerialLib
