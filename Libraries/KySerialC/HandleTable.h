#pragma once

#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Mutex.h"
#include "KyBase/KyPermanent.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace KySerialCLib
{

/// What a handle stands for; part of each number, so that a port's is never taken for a bus's.
enum class HandleKind : uint64_t
{
    Device = 1,
    Port = 2,
    I2CBus = 3,
    SPIBus = 4,
    Bridge = 5,
    SimulatedCamera = 6,
    NetworkCamera = 7
};

/// Objects by handles: numbers that are looked up and never followed, and that are never given twice.
///
/// A handle is 8 bits of kind, 32 bits of generation and 24 bits of place. A place whose generations are used
/// up is not used again.
///
/// Threads: any. An object lives until its handle is removed and the last call that found it has let it go.
template<typename Object>
class HandleTable
{
public:
    /// \param aMostPlaces  How many objects there may be at a time, not more than the number of a place
    ///                     holds.
    explicit HandleTable(HandleKind aKind, size_t aMostPlaces = cPlaceMask + 1)
        : mKind(aKind), mMostPlaces(aMostPlaces)
    {
    }
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

    /// \return The object's handle; 0 when all places are taken. Throws std::bad_alloc.
    uint64_t Add(std::shared_ptr<Object> aObject)
    {
        JxUtilsLib::LockScope lScope(mMutex);
        if (mFree.empty())
        {
            if (mPlaces.size() >= mMostPlaces)
            {
                return 0;
            }
            // Room for every place, so that Remove() needs no memory.
            mFree.reserve(mPlaces.size() + 1);
            mPlaces.emplace_back();
            mFree.push_back(mPlaces.size() - 1);
        }
        const size_t lPlace = mFree.back();
        mFree.pop_back();
        mPlaces[lPlace].mObject = std::move(aObject);
        return HandleOf(lPlace);
    }

    /// \return The object; null when the handle is not, or no longer, one of this table.
    std::shared_ptr<Object> Find(uint64_t aHandle)
    {
        JxUtilsLib::LockScope lScope(mMutex);
        const size_t lPlace = aHandle & cPlaceMask;
        return IsValid(aHandle, lPlace) ? mPlaces[lPlace].mObject : nullptr;
    }

    /// Makes a handle invalid. \return The object, to be destroyed without the table's lock; null as Find().
    std::shared_ptr<Object> Remove(uint64_t aHandle)
    {
        JxUtilsLib::LockScope lScope(mMutex);
        const size_t lPlace = aHandle & cPlaceMask;
        if (!IsValid(aHandle, lPlace))
        {
            return nullptr;
        }
        std::shared_ptr<Object> lObject = std::move(mPlaces[lPlace].mObject);
        mPlaces[lPlace].mObject.reset();
        if (++mPlaces[lPlace].mGeneration != 0)
        {
            mFree.push_back(lPlace);
        }
        return lObject;
    }

private:
    static constexpr uint64_t cPlaceMask = 0xFFFFFF;

    struct Place
    {
        std::shared_ptr<Object> mObject;
        uint32_t mGeneration = 1;
    };

    uint64_t HandleOf(size_t aPlace) const JX_REQUIRES(mMutex)
    {
        return static_cast<uint64_t>(mKind) << 56U |
               static_cast<uint64_t>(mPlaces[aPlace].mGeneration) << 24U | aPlace;
    }

    bool IsValid(uint64_t aHandle, size_t aPlace) const JX_REQUIRES(mMutex)
    {
        return aPlace < mPlaces.size() && mPlaces[aPlace].mObject != nullptr && HandleOf(aPlace) == aHandle;
    }

    const HandleKind mKind;
    const size_t mMostPlaces;
    mutable JxUtilsLib::Mutex mMutex;
    std::vector<Place> mPlaces JX_GUARDED_BY(mMutex);
    std::vector<size_t> mFree JX_GUARDED_BY(mMutex);
};

/// The process's table of a kind. Never destroyed, so that calls at the process's end find it.
template<HandleKind aKind, typename Object>
HandleTable<Object>& GetTable()
{
    static KyPermanent<HandleTable<Object>> sTable(aKind); // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sTable.Get();
}

} // namespace KySerialCLib
