#include "Benchmarks/Linux/Channels.h"

#include "Benchmarks/Linux/ByteFifo.h"
#include "sharedfifo.h"

#include <array>
#include <atomic>
#include <climits>
#include <linux/futex.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

class FileChannel : public Channel
{
public:
    explicit FileChannel(bool aSocket)
    {
        const int lError =
            aSocket ? ::socketpair(AF_UNIX, SOCK_STREAM, 0, mEnds.data()) : ::pipe(mEnds.data());
        if (lError != 0)
        {
            throw std::runtime_error("no pipe or socket");
        }
    }
    ~FileChannel() override
    {
        ::close(mEnds[0]);
        ::close(mEnds[1]);
    }

    void Send(const void* aData, size_t aSize) override
    {
        for (size_t lDone = 0; lDone < aSize;)
        {
            const ssize_t lSent = ::write(mEnds[1], static_cast<const char*>(aData) + lDone, aSize - lDone);
            lDone += lSent > 0 ? static_cast<size_t>(lSent) : 0;
        }
    }
    size_t Receive(void* aBuffer, size_t aSize) override
    {
        const ssize_t lGot = ::read(mEnds[0], aBuffer, aSize);
        return lGot > 0 ? static_cast<size_t>(lGot) : 0;
    }

private:
    std::array<int, 2> mEnds{};
};

class FifoChannel : public Channel
{
public:
    explicit FifoChannel(uint32_t aCapacity)
        : mFifo("KyBench" + std::to_string(::getpid()) + "x" + std::to_string(++sCount), "Local\\", aCapacity,
                true)
    {
    }

    void Send(const void* aData, size_t aSize) override
    {
        uint32_t lWritten = 0;
        mFifo.Write(aData, static_cast<uint32_t>(aSize), lWritten, KyPlatform::cInfinite);
    }
    size_t Receive(void* aBuffer, size_t aSize) override
    {
        uint32_t lRead = 0;
        mFifo.Read(aBuffer, static_cast<uint32_t>(aSize), lRead, KyPlatform::cInfinite);
        return lRead;
    }

private:
    static inline int sCount = 0;
    KySerialLib::SharedFifo mFifo;
};

class ByteChannel : public Channel
{
public:
    explicit ByteChannel(uint32_t aCapacity) : mFifo(aCapacity) {}

    void Send(const void* aData, size_t aSize) override { mFifo.Write(aData, aSize); }
    size_t Receive(void* aBuffer, size_t aSize) override { return mFifo.Read(aBuffer, aSize); }

private:
    ByteFifo mFifo;
};

class FutexChannel : public Channel
{
public:
    explicit FutexChannel(FutexSleep aSleep)
        : mSleep(aSleep)
        , mWord(static_cast<uint32_t*>(
              ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~FutexChannel() override { ::munmap(mWord, 4096); }

    void Send(const void* /*aData*/, size_t /*aSize*/) override
    {
        std::atomic_ref<uint32_t>(*mWord).store(1);
        ::syscall(SYS_futex, mWord, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    }
    size_t Receive(void* /*aBuffer*/, size_t /*aSize*/) override
    {
        const std::atomic_ref<uint32_t> lWord(*mWord);
        const timespec lTime{0, 50000000};
        if (mSleep == FutexSleep::YieldFirst && lWord.load() == 0)
        {
            ::sched_yield();
        }
        while (lWord.exchange(0) == 0)
        {
            ::syscall(SYS_futex, mWord, FUTEX_WAIT, 0, mSleep == FutexSleep::Timed ? &lTime : nullptr,
                      nullptr, 0);
        }
        return 1;
    }

private:
    const FutexSleep mSleep;
    uint32_t* const mWord;
};

} // namespace

std::unique_ptr<Channel> MakePipe()
{
    return std::make_unique<FileChannel>(false);
}

std::unique_ptr<Channel> MakeUnixStream()
{
    return std::make_unique<FileChannel>(true);
}

std::unique_ptr<Channel> MakeFifo(uint32_t aCapacity)
{
    return std::make_unique<FifoChannel>(aCapacity);
}

std::unique_ptr<Channel> MakeByteFifo(uint32_t aCapacity)
{
    return std::make_unique<ByteChannel>(aCapacity);
}

std::unique_ptr<Channel> MakeFutex(FutexSleep aSleep)
{
    return std::make_unique<FutexChannel>(aSleep);
}

#if !defined(KYSERIAL_HAS_BOOST)
std::unique_ptr<Channel> MakeBoostQueue(size_t /*aLargest*/, size_t /*aMessages*/)
{
    return nullptr;
}
#endif
