#pragma once

#include <JxUtilsLib/Event.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

namespace KySerialTool
{

/// A call on the network's thread whose memory is reserved beforehand: what ends something must not fail for lack of memory.
class ReservedCall
{
public:
    ReservedCall() = default;
    ReservedCall(const ReservedCall&) = delete;
    ReservedCall& operator=(const ReservedCall&) = delete;

    /// Calls aWhat on the thread of aContext; blocks until it has returned. One call at a time, and not on that thread.
    /// \param aOwner  Of this object. It lives at least until that thread has left the call.
    template<typename What>
    // NOLINTNEXTLINE(bugprone-exception-escape): the network's library throws only for lack of memory
    void Run(boost::asio::io_context& aContext, std::shared_ptr<void> aOwner, const What& aWhat) noexcept
    {
        mDone.Reset();
        boost::asio::post(aContext, Handler<What>{*this, std::move(aOwner), aWhat});
        mDone.Wait_ms(JxUtilsLib::Event::cInfinite);
    }

private:
    // NOLINTBEGIN(readability-identifier-naming): the names that the standard and the network's library give
    static constexpr size_t cSize = 256; // bytes; what a compiled handler needs is compared with it

    template<typename T>
    struct Allocator
    {
        using value_type = T;

        explicit Allocator(ReservedCall& aCall) noexcept : mCall(&aCall) {}
        template<typename Other>
        Allocator(const Allocator<Other>& aOther) noexcept : mCall(aOther.mCall)
        {
        }

        T* allocate(size_t /*aCount*/) noexcept // one: the former call has given its memory back
        {
            static_assert(sizeof(T) <= cSize);
            static_assert(alignof(T) <= alignof(std::max_align_t));
            return reinterpret_cast<T*>(mCall->mMemory.data());
        }
        void deallocate(T* /*aMemory*/, size_t /*aCount*/) noexcept {}
        template<typename Other>
        bool operator==(const Allocator<Other>& aOther) const noexcept
        {
            return mCall == aOther.mCall;
        }

        ReservedCall* mCall;
    };

    template<typename What>
    struct Handler
    {
        using allocator_type = Allocator<void>;
        allocator_type get_allocator() const noexcept { return allocator_type(mCall); }

        void operator()() const
        {
            const Ended lEnded{mCall.mDone}; // however the call ends, its caller goes on
            mWhat();
        }

        ReservedCall& mCall;
        std::shared_ptr<void> mOwner;
        const What& mWhat;
    };

    // NOLINTEND(readability-identifier-naming)
    struct Ended
    {
        ~Ended() { mDone.Set(); }
        JxUtilsLib::Event& mDone;
    };

    JxUtilsLib::Event mDone{true};
    alignas(std::max_align_t) std::array<std::byte, cSize> mMemory{};
};

} // namespace KySerialTool
