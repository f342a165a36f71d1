#ifndef KYSERIALC_KYSERIAL_HPP
#define KYSERIALC_KYSERIAL_HPP

#include <KySerialC/kyserial.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

/// \file
/// The C interface for C++17 programs of every compiler: C++ classes do not cross from one compiler to another, C
/// functions do. Everything here is compiled into the program; the libraries are those of C.
///
/// Failures are results: what can fail gives an Outcome, which is looked at, or whose OrThrow() makes an ky::Error of
/// it:
///
///     ky::Port lPort = ky::Port::Open(lDevice, KY_UART0).OrThrow();
///     lPort.Write("STATUS?\r\n").OrThrow();
///     if (auto lLine = lPort.ReadUntil('\n', std::chrono::seconds(1)))
///     {
///         Use(lLine.GetValue());
///     }
///
/// Objects own their handles, can be moved and not copied, and give back what they have at their end. Nothing throws but
/// OrThrow(), and std::bad_alloc. Codes and threads are those of the C functions.
///
/// Where the libraries for them are installed, this header also has cameras on the network (KyGigEC/kygige.hpp) and the
/// simulated camera (KySimulatorC/kysimulator.hpp).

namespace ky
{

/// A failure as an exception: code and words.
class Error : public std::runtime_error
{
public:
    Error(KyCode aCode, const std::string& aText)
        : std::runtime_error(std::string(KyGetCodeName(aCode)) + ": " + aText), mCode(aCode)
    {
    }
    KyCode GetCode() const noexcept { return mCode; }

private:
    KyCode mCode;
};

/// What can fail: a code, and the words to it.
class [[nodiscard]] Status
{
public:
    /// The result of a C function that has just been called on this thread.
    explicit Status(KyCode aCode) : mCode(aCode), mText(aCode == KY_OK ? "" : KyGetLastText()) {}

    bool IsOK() const noexcept { return mCode == KY_OK; }
    explicit operator bool() const noexcept { return IsOK(); }
    KyCode GetCode() const noexcept { return mCode; }
    const std::string& GetText() const noexcept { return mText; }
    /// Does nothing after a success; throws Error otherwise.
    void OrThrow() const
    {
        if (!IsOK())
        {
            throw Error(mCode, mText);
        }
    }

private:
    KyCode mCode;
    std::string mText;
};

/// A Status with a value, which is there after a success.
template<typename Value>
class [[nodiscard]] Outcome
{
public:
    Outcome(Value aValue) : mStatus(KY_OK), mValue(std::move(aValue)) {} // NOLINT: a value is a success
    Outcome(Status aStatus) : mStatus(std::move(aStatus)) {}             // NOLINT: so is a failure one

    bool IsOK() const noexcept { return mValue.has_value(); }
    explicit operator bool() const noexcept { return IsOK(); }
    KyCode GetCode() const noexcept { return mStatus.GetCode(); }
    const std::string& GetText() const noexcept { return mStatus.GetText(); }
    /// Only after a success.
    Value& GetValue() & noexcept { return *mValue; }
    const Value& GetValue() const& noexcept { return *mValue; }
    /// The value; throws Error when there is none.
    Value OrThrow() &&
    {
        mStatus.OrThrow();
        return std::move(*mValue);
    }

private:
    Status mStatus;
    std::optional<Value> mValue{};
};

/// What a C function gives: a value, or why there is none. Right after the call, on its thread.
template<typename Value>
Outcome<Value> Made(KyCode aCode, Value aValue)
{
    return aCode == KY_OK ? Outcome<Value>(std::move(aValue)) : Outcome<Value>(Status(aCode));
}

/// Bytes of the caller's to read from: a pointer and a count, a literal without its NUL, or anything with data() and
/// size() in bytes. Nothing is copied.
class Bytes
{
public:
    Bytes(const void* aData, size_t aSize) : mData(static_cast<const uint8_t*>(aData)), mSize(aSize) {}
    template<size_t cSize>
    Bytes(const char (&aText)[cSize]) : Bytes(aText, cSize - 1) // NOLINT: literals are bytes
    {
    }
    template<typename Container,
             typename = std::enable_if_t<sizeof(*std::declval<const Container&>().data()) == 1>>
    Bytes(const Container& aBytes) : Bytes(aBytes.data(), aBytes.size()) // NOLINT: and so are containers
    {
    }

    const uint8_t* GetData() const noexcept { return mData; }
    /// Cut at what the C interface takes in one call.
    uint32_t GetSize() const noexcept
    {
        return mSize < UINT32_MAX ? static_cast<uint32_t>(mSize) : UINT32_MAX;
    }

private:
    const uint8_t* mData;
    size_t mSize;
};

/// Room of the caller's to write to: a pointer and a count, or anything with data() and size() in bytes.
class Buffer
{
public:
    Buffer(void* aData, size_t aSize) : mData(static_cast<uint8_t*>(aData)), mSize(aSize) {}
    template<typename Container, typename = std::enable_if_t<sizeof(*std::declval<Container&>().data()) == 1>>
    Buffer(Container& aBytes) : Buffer(aBytes.data(), aBytes.size()) // NOLINT: containers are room
    {
    }

    uint8_t* GetData() const noexcept { return mData; }
    uint32_t GetSize() const noexcept
    {
        return mSize < UINT32_MAX ? static_cast<uint32_t>(mSize) : UINT32_MAX;
    }

private:
    uint8_t* mData;
    size_t mSize;
};

/// Milliseconds as the C functions take them: rounded up, at least 0, at most 49 days.
template<typename Representation, typename Period>
uint32_t Milliseconds(std::chrono::duration<Representation, Period> aTime)
{
    using std::chrono::duration;
    const double lTime = duration<double, std::milli>(aTime).count();
    if (!(lTime > 0))
    {
        return 0;
    }
    if (lTime >= 4294967294.0)
    {
        return UINT32_MAX;
    }
    const auto lWhole = static_cast<uint32_t>(lTime);
    return lWhole + (lTime > lWhole ? 1 : 0);
}

/// Calls a function that gives a text into a buffer. \param aGet  Gets the buffer and its size, gives a code.
template<typename Get>
Outcome<std::string> GetText(const Get& aGet)
{
    std::string lText(256, '\0');
    while (true)
    {
        auto lSize = static_cast<uint32_t>(lText.size());
        const KyCode lCode = aGet(&lText[0], &lSize);
        if (lCode == KY_BUFFER_TOO_SMALL && lSize > lText.size())
        {
            lText.resize(lSize);
            continue;
        }
        if (lCode != KY_OK)
        {
            return Status(lCode);
        }
        lText.resize(lSize - 1);
        return lText;
    }
}

/// A handle that is given back at the object's end.
template<KyCode (*cDestroy)(uint64_t)>
class Handle
{
public:
    explicit Handle(uint64_t aHandle = 0) noexcept : mHandle(aHandle) {}
    ~Handle() { Reset(); }
    Handle(Handle&& aOther) noexcept : mHandle(std::exchange(aOther.mHandle, 0)) {}
    Handle& operator=(Handle&& aOther) noexcept
    {
        if (this != &aOther)
        {
            Reset();
            mHandle = std::exchange(aOther.mHandle, 0);
        }
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    uint64_t Get() const noexcept { return mHandle; }
    /// Gives it back now. \return The C function's code; KY_OK without a handle.
    KyCode Reset() noexcept
    {
        const KyCode lCode = mHandle != 0 ? cDestroy(mHandle) : KyCode{KY_OK};
        mHandle = lCode == KY_OK || lCode == KY_INVALID_HANDLE ? 0 : mHandle;
        return lCode;
    }

private:
    uint64_t mHandle;
};

/// An object of the C interface that is made and opened, or started, in one step. GetHandle() is for what else the C
/// interface offers.
template<typename Object, KyCode (*cCreate)(uint64_t*), KyCode (*cDestroy)(uint64_t)>
class Owner
{
public:
    uint64_t GetHandle() const noexcept { return mHandle.Get(); }

protected:
    /// \param aCall  Opens or starts the object with this handle; gives a code.
    template<typename Call>
    static Outcome<Object> Begin(const Call& aCall)
    {
        uint64_t lHandle = 0;
        KyCode lCode = cCreate(&lHandle);
        Object lObject;
        lObject.mHandle = Handle<cDestroy>(lHandle);
        lCode = lCode == KY_OK ? aCall(lHandle) : lCode;
        if (lCode == KY_OK)
        {
            return Outcome<Object>(std::move(lObject));
        }
        Status lFailed(lCode); // its words, before the object's end says something itself
        static_cast<void>(lObject.mHandle.Reset());
        return lFailed;
    }
    Handle<cDestroy> mHandle{};
};

/// A camera as ports, buses and bridges take it: a device's handle that somebody else owns.
class DeviceRef
{
public:
    explicit DeviceRef(KyDeviceHandle aDevice = 0) noexcept : mDevice(aDevice) {}

    KyDeviceHandle GetHandle() const noexcept { return mDevice; }
    bool IsConnected() const
    {
        int32_t lAnswer = 0;
        return KyDeviceIsConnected(mDevice, &lAnswer) == KY_OK && lAnswer != 0;
    }
    Outcome<std::string> GetFeature(const std::string& aName) const
    {
        return GetText([&](char* aText, uint32_t* aSize)
                       { return KyDeviceGetFeature(mDevice, aName.c_str(), aText, aSize); });
    }
    Status SetFeature(const std::string& aName, const std::string& aValue) const
    {
        return Status(KyDeviceSetFeature(mDevice, aName.c_str(), aValue.c_str()));
    }

private:
    KyDeviceHandle mDevice;
};

/// A device that is made of the application's own table of functions.
class Device
{
public:
    /// As KyDeviceCreate().
    static Outcome<Device> Create(const KyAdapter& aAdapter)
    {
        KyDeviceHandle lHandle = 0;
        const KyCode lCode = KyDeviceCreate(&aAdapter, &lHandle);
        return Made(lCode, Device(lHandle));
    }

    DeviceRef Get() const noexcept { return DeviceRef(mHandle.Get()); }
    operator DeviceRef() const noexcept { return Get(); } // NOLINT: it is one, and owns it too
    /// As KyDeviceDestroy(); the object's end does that too, but drops the result.
    Status Close() { return Status(mHandle.Reset()); }

private:
    explicit Device(KyDeviceHandle aHandle) : mHandle(aHandle) {}
    Handle<&KyDeviceDestroy> mHandle;
};

/// An open byte port. Its end gives the port back; that of a camera that is away can be opened again when it is back.
class Port : public Owner<Port, &KyPortCreate, &KyPortDestroy>
{
public:
    /// As KyPortOpen(). \param aSerial  KY_UART0 to KY_BULK7.
    static Outcome<Port> Open(DeviceRef aDevice, int32_t aSerial)
    {
        return Begin([&](uint64_t aHandle) { return KyPortOpen(aHandle, aDevice.GetHandle(), aSerial); });
    }
    static bool IsSupported(DeviceRef aDevice, int32_t aSerial)
    {
        int32_t lAnswer = 0;
        return KyPortIsSupported(aDevice.GetHandle(), aSerial, &lAnswer) == KY_OK && lAnswer != 0;
    }
    ~Port() { static_cast<void>(Close()); }
    Port(Port&&) noexcept = default;
    Port& operator=(Port&& aOther) noexcept
    {
        if (this != &aOther)
        {
            static_cast<void>(Close());
            mHandle = std::move(aOther.mHandle);
        }
        return *this;
    }

    /// As KyPortWrite(). \param aWritten  Receives the number of bytes, also after a failure; may be null.
    Status Write(Bytes aBytes, uint32_t* aWritten = nullptr)
    {
        uint32_t lWritten = 0;
        return Status(KyPortWrite(mHandle.Get(), aBytes.GetData(), aBytes.GetSize(),
                                  aWritten != nullptr ? aWritten : &lWritten));
    }
    /// As KyPortRead(): waits for the first byte only. KY_TIMED_OUT: nothing came.
    template<typename Representation, typename Period>
    Outcome<uint32_t> Read(Buffer aBuffer, std::chrono::duration<Representation, Period> aTimeout)
    {
        uint32_t lCount = 0;
        const KyCode lCode =
            KyPortRead(mHandle.Get(), aBuffer.GetData(), aBuffer.GetSize(), &lCount, Milliseconds(aTimeout));
        return Made(lCode, lCount);
    }
    /// Reads up to and with a byte. \return KY_TIMED_OUT: it did not come in time; what came is lost.
    template<typename Representation, typename Period>
    Outcome<std::string> ReadUntil(char aEnd, std::chrono::duration<Representation, Period> aTimeout)
    {
        const auto lDeadline = std::chrono::steady_clock::now() + aTimeout;
        std::string lText;
        while (lText.empty() || lText.back() != aEnd)
        {
            uint8_t lByte = 0;
            const Outcome<uint32_t> lCount =
                Read(Buffer(&lByte, 1), lDeadline - std::chrono::steady_clock::now());
            if (!lCount)
            {
                return Status(lCount.GetCode());
            }
            lText.append(lCount.GetValue(), static_cast<char>(lByte));
        }
        return lText;
    }
    Status Flush() { return Status(KyPortFlushRxBuffer(mHandle.Get())); }
    /// Received bytes that wait.
    Outcome<uint32_t> GetBytesReady()
    {
        uint32_t lCount = 0;
        const KyCode lCode = KyPortGetRxBytesReady(mHandle.Get(), &lCount);
        return Made(lCode, lCount);
    }
    /// As KyPortSetRxBufferSize().
    Status SetBufferSize(uint32_t aCells) { return Status(KyPortSetRxBufferSize(mHandle.Get(), aCells)); }
    /// Gives the port back, that of a camera that is away included. \return The first failure of another kind.
    Status Close()
    {
        if (mHandle.Get() == 0)
        {
            return Status(KY_OK);
        }
        const Status lClosed(KyPortClose(mHandle.Get()));
        const Status lDestroyed(mHandle.Reset());
        return lClosed.IsOK() || lClosed.GetCode() == KY_NO_CONNECTION ? lDestroyed : lClosed;
    }

private:
    friend class Owner<Port, &KyPortCreate, &KyPortDestroy>;
    Port() = default;
};

/// An open I2C bus; see I2CBus.h for the arguments.
class I2CBus : public Owner<I2CBus, &KyI2CBusCreate, &KyI2CBusDestroy>
{
public:
    static Outcome<I2CBus> Open(DeviceRef aDevice, int32_t aSerial)
    {
        return Begin([&](uint64_t aHandle) { return KyI2CBusOpen(aHandle, aDevice.GetHandle(), aSerial); });
    }

    Status Write(uint8_t aSlave, Bytes aBytes, bool aFast = true, bool aStop = true)
    {
        return Status(KyI2CBusWrite(mHandle.Get(), aSlave, aBytes.GetData(), aBytes.GetSize(), aFast ? 1 : 0,
                                    aStop ? 1 : 0));
    }
    Outcome<uint32_t> Read(uint8_t aSlave, Buffer aBuffer, bool aFast = true, bool aStop = true)
    {
        uint32_t lCount = 0;
        const KyCode lCode = KyI2CBusRead(mHandle.Get(), aSlave, aBuffer.GetData(), aBuffer.GetSize(),
                                          &lCount, aFast ? 1 : 0, aStop ? 1 : 0);
        return Made(lCode, lCount);
    }
    Status WriteAt(uint8_t aSlave, uint8_t aOffset, Bytes aBytes, bool aFast = true)
    {
        return Status(KyI2CBusIndirectWrite(mHandle.Get(), aSlave, aOffset, aBytes.GetData(),
                                            aBytes.GetSize(), aFast ? 1 : 0));
    }
    Outcome<uint32_t> ReadAt(uint8_t aSlave, uint8_t aOffset, Buffer aBuffer, bool aFast = true,
                             bool aCombined = true)
    {
        uint32_t lCount = 0;
        const KyCode lCode =
            KyI2CBusIndirectRead(mHandle.Get(), aSlave, aOffset, aBuffer.GetData(), aBuffer.GetSize(),
                                 &lCount, aFast ? 1 : 0, aCombined ? 1 : 0);
        return Made(lCode, lCount);
    }

private:
    friend class Owner<I2CBus, &KyI2CBusCreate, &KyI2CBusDestroy>;
    I2CBus() = default;
};

/// An open SPI bus; see SPIBus.h for the arguments.
class SPIBus : public Owner<SPIBus, &KySPIBusCreate, &KySPIBusDestroy>
{
public:
    static Outcome<SPIBus> Open(DeviceRef aDevice, int32_t aSerial)
    {
        return Begin([&](uint64_t aHandle) { return KySPIBusOpen(aHandle, aDevice.GetHandle(), aSerial); });
    }

    Status Transfer(Bytes aBytes, uint32_t aRead, bool aSimultaneous = false, bool aFinal = true)
    {
        return Status(KySPIBusTransfer(mHandle.Get(), aBytes.GetData(), aBytes.GetSize(), aRead,
                                       aSimultaneous ? 1 : 0, aFinal ? 1 : 0));
    }
    template<typename Representation, typename Period>
    Outcome<uint32_t> Read(Buffer aBuffer, std::chrono::duration<Representation, Period> aTimeout)
    {
        uint32_t lCount = 0;
        const KyCode lCode = KySPIBusRead(mHandle.Get(), aBuffer.GetData(), aBuffer.GetSize(), &lCount,
                                          Milliseconds(aTimeout));
        return Made(lCode, lCount);
    }

private:
    friend class Owner<SPIBus, &KySPIBusCreate, &KySPIBusDestroy>;
    SPIBus() = default;
};

/// A bridge that runs until Stop() or its end.
class Bridge : public Owner<Bridge, &KyBridgeCreate, &KyBridgeDestroy>
{
public:
    /// As KyBridgeStartHost(). \param aSettings  Null: those of KyLineSettingsInit().
    static Outcome<Bridge> StartHost(const std::string& aHostPort, DeviceRef aDevice, int32_t aSerial,
                                     const KyLineSettings* aSettings = nullptr)
    {
        return Begin(
            [&](KyBridgeHandle aBridge) {
                return KyBridgeStartHost(aBridge, aHostPort.c_str(), aSettings, aDevice.GetHandle(), aSerial);
            });
    }
    /// As KyBridgeStartClients().
    static Outcome<Bridge> StartClients(const std::string& aName, DeviceRef aDevice, int32_t aSerial)
    {
        return Begin([&](KyBridgeHandle aBridge)
                     { return KyBridgeStartClients(aBridge, aName.c_str(), aDevice.GetHandle(), aSerial); });
    }

    Status Stop() { return Status(KyBridgeStop(mHandle.Get())); }

private:
    friend class Owner<Bridge, &KyBridgeCreate, &KyBridgeDestroy>;
    Bridge() = default;
};

} // namespace ky

#if __has_include(<KyGigEC/kygige.hpp>)
#include <KyGigEC/kygige.hpp>
#endif
#if __has_include(<KySimulatorC/kysimulator.hpp>)
#include <KySimulatorC/kysimulator.hpp>
#endif

#endif
