#pragma once

#include <atomic>
#include <cstdint>

namespace KySerialLib
{

/// An object that several public shells may share: assigning one shell to another makes both refer to it, and
/// the last one frees it. Any thread.
class RefCounted
{
public:
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;

    /// One more owner.
    void AddOwner() noexcept { mOwners.fetch_add(1, std::memory_order_relaxed); }

    /// One owner less. \return True for the last owner, which has to delete the object.
    [[nodiscard]] bool RemoveOwner() noexcept { return mOwners.fetch_sub(1, std::memory_order_acq_rel) == 1; }

protected:
    RefCounted() = default; // with one owner
    ~RefCounted() = default;

private:
    std::atomic<uint32_t> mOwners{1};
};

/// Gives up one ownership; null does nothing.
template<typename Object>
void ReleaseOwner(Object* aObject) noexcept
{
    if (aObject != nullptr && aObject->RemoveOwner())
    {
        delete aObject;
    }
}

/// Makes aTarget refer to what aSource refers to, as a shell's assignment does.
template<typename Object>
void ShareOwner(Object*& aTarget, Object* aSource) noexcept
{
    if (aSource != nullptr)
    {
        aSource->AddOwner(); // first: aTarget may be the same object
    }
    ReleaseOwner(aTarget);
    aTarget = aSource;
}

} // namespace KySerialLib
