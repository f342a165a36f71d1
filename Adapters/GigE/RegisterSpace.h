#pragma once

#include "Adapters/GigE/Client/GvcpClient.h"
#include "Adapters/GigE/EventStore.h"
#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <atomic>
#include <cstdint>

namespace KyGigE
{

/// The registers of one connection to a device, and the events that it brought. Once there is another connection, everything but
/// the events is refused with NO_CONNECTION: a feature that is written meanwhile is not written on the new one.
class RegisterSpace final : public IRegisterSpace
{
public:
    /// All outlive this. \param aForeignWrites  What GetForeignWrites() answers.
    RegisterSpace(GvcpClient& aClient, EventStore& aStore, const std::atomic<uint64_t>& aForeignWrites)
        : mClient(aClient)
        , mStore(aStore)
        , mForeignWrites(aForeignWrites)
        , mConnection(aClient.GetControl().GetConnection())
    {
    }

    KyResult ReadMemory(uint64_t aAddress, uint8_t* aBuffer, uint64_t aSize) override;
    KyResult WriteMemory(uint64_t aAddress, const uint8_t* aBuffer, uint64_t aSize) override;
    KyResult ReadRegister(uint64_t aAddress, uint32_t& aValue) override;
    KyResult WriteRegister(uint64_t aAddress, uint32_t aValue) override;
    uint64_t GetForeignWrites() const override { return mForeignWrites.load(std::memory_order_relaxed); }

private:
    GvcpClient& mClient;
    EventStore& mStore;
    const std::atomic<uint64_t>& mForeignWrites;
    const uint64_t mConnection;
};

} // namespace KyGigE
