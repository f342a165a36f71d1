#include "clserzmo/clser.h"

#include "ClientTable.h"

#include <bit>
#include <cstring>
#include <string>
#include <utility>

using KySerialLib::ClientPort;
using KySerialLib::ClientResult;
using KySerialLib::ClientTable;

namespace
{

constexpr char cManufacturer[] = "Korvo";

struct ErrorText
{
    CLINT32 mCode;
    const char* mText;
};

constexpr ErrorText cErrorTexts[] = {{CL_ERR_NO_ERR, "No error."},
                                     {CL_ERR_BUFFER_TOO_SMALL, "The buffer is too small."},
                                     {CL_ERR_MANU_DOES_NOT_EXIST, "There is no such manufacturer."},
                                     {CL_ERR_PORT_IN_USE, "The port is in use."},
                                     {CL_ERR_TIMEOUT, "The operation has timed out."},
                                     {CL_ERR_INVALID_INDEX, "There is no port of this index."},
                                     {CL_ERR_INVALID_REFERENCE, "The reference is not that of an open port."},
                                     {CL_ERR_ERROR_NOT_FOUND, "There is no such error code."},
                                     {CL_ERR_BAUD_RATE_NOT_SUPPORTED, "The baud rate is not supported."},
                                     {CL_ERR_OUT_OF_MEMORY, "There is not enough memory."},
                                     {CL_ERR_REGISTRY_KEY_NOT_FOUND, "The registry key was not found."},
                                     {CL_ERR_INVALID_PTR, "A pointer is null."},
                                     {CL_ERR_IN_USE, "The object is in use."},
                                     {CL_ERR_INVALID_ARG, "An argument is invalid."},
                                     {CL_ERR_UNABLE_TO_LOAD_DLL, "The library could not be loaded."},
                                     {CL_ERR_FUNCTION_NOT_FOUND, "The function was not found."}};

CLINT32 ToCode(ClientResult aResult)
{
    switch (aResult)
    {
    case ClientResult::Done:
        return CL_ERR_NO_ERR;
    case ClientResult::TimedOut:
        return CL_ERR_TIMEOUT;
    case ClientResult::InUse:
        return CL_ERR_PORT_IN_USE;
    case ClientResult::Gone:
        return CL_ERR_INVALID_INDEX;
    case ClientResult::Unsupported:
        return CL_ERR_BAUD_RATE_NOT_SUPPORTED;
    // Another thread has closed the port during the call, so the reference is not valid any more.
    case ClientResult::Closed:
        break;
    }
    return CL_ERR_INVALID_REFERENCE;
}

// Nothing throws out of the library.
template<typename Operation>
CLINT32 Guard(Operation&& aOperation) noexcept
{
    try
    {
        return aOperation();
    }
    catch (...) // only memory can be the reason
    {
        return CL_ERR_OUT_OF_MEMORY;
    }
}

template<typename Operation>
CLINT32 WithPort(hSerRef aReference, Operation&& aOperation) noexcept
{
    return Guard(
        [&]() -> CLINT32
        {
            const ClientTable::Use lUse(ClientTable::GetInstance(), aReference);
            return lUse.GetPort() != nullptr ? aOperation(*lUse.GetPort()) : CL_ERR_INVALID_REFERENCE;
        });
}

CLINT32 CopyText(const char* aText, CLINT8* aBuffer, CLUINT32* aSize)
{
    const auto lNeeded = static_cast<CLUINT32>(std::strlen(aText) + 1);
    // The size comes before the buffer, because callers ask for the size with a null buffer.
    if (*aSize < lNeeded)
    {
        *aSize = lNeeded;
        return CL_ERR_BUFFER_TOO_SMALL;
    }
    if (aBuffer == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    std::memcpy(aBuffer, aText, lNeeded);
    *aSize = lNeeded;
    return CL_ERR_NO_ERR;
}

CLINT32 Read(hSerRef aReference, CLINT8* aBuffer, CLUINT32* aCount, CLUINT32 aTimeout, bool aWhole)
{
    if (aCount == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    const CLUINT32 lWanted = std::exchange(*aCount, 0);
    return WithPort(aReference,
                    [&](ClientPort& aPort)
                    {
                        // The reference is looked at first, since a wrong one is an error even for no bytes.
                        if (lWanted == 0)
                        {
                            return CL_ERR_NO_ERR;
                        }
                        return aBuffer != nullptr
                                   ? ToCode(aPort.Read(aBuffer, lWanted, aWhole, aTimeout, *aCount))
                                   : CL_ERR_INVALID_PTR;
                    });
}

} // namespace

// NOLINTBEGIN(readability-identifier-naming): the names of the Camera Link standard

CLINT32 CLSER_CALL clGetNumSerialPorts(CLUINT32* numSerialPorts)
{
    if (numSerialPorts == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    *numSerialPorts = 0;
    return Guard(
        [&]
        { return ClientTable::GetInstance().Renew(*numSerialPorts) ? CL_ERR_NO_ERR : CL_ERR_OUT_OF_MEMORY; });
}

CLINT32 CLSER_CALL clGetSerialPortIdentifier(CLUINT32 serialIndex, CLINT8* portID, CLUINT32* bufferSize)
{
    if (bufferSize == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    return Guard(
        [&]() -> CLINT32
        {
            const std::string lName = ClientTable::GetInstance().GetName(serialIndex);
            return lName.empty() ? CL_ERR_INVALID_INDEX : CopyText(lName.c_str(), portID, bufferSize);
        });
}

CLINT32 CLSER_CALL clGetManufacturerInfo(CLINT8* manufacturerName, CLUINT32* bufferSize, CLUINT32* version)
{
    if (bufferSize == nullptr || version == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    *version = CL_DLL_VERSION_1_1;
    return CopyText(cManufacturer, manufacturerName, bufferSize);
}

CLINT32 CLSER_CALL clSerialInit(CLUINT32 serialIndex, hSerRef* serialRefPtr)
{
    if (serialRefPtr == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    *serialRefPtr = nullptr;
    return Guard([&] { return ToCode(ClientTable::GetInstance().Open(serialIndex, *serialRefPtr)); });
}

void CLSER_CALL clSerialClose(hSerRef serialRef)
{
    static_cast<void>(Guard( // ignored: closing does not fail, and there is no result to say so
        [&]
        {
            ClientTable::GetInstance().Close(serialRef);
            return CL_ERR_NO_ERR;
        }));
}

CLINT32 CLSER_CALL clSerialRead(hSerRef serialRef, CLINT8* buffer, CLUINT32* numBytes, CLUINT32 serialTimeout)
{
    return Read(serialRef, buffer, numBytes, serialTimeout, true);
}

CLINT32 CLSER_CALL clSerialReadEx(hSerRef serialRef, CLINT8* buffer, CLUINT32* numBytes,
                                  CLUINT32 serialTimeout)
{
    return Read(serialRef, buffer, numBytes, serialTimeout, false);
}

CLINT32 CLSER_CALL clSerialWrite(hSerRef serialRef, CLINT8* buffer, CLUINT32* bufferSize,
                                 CLUINT32 serialTimeout)
{
    if (bufferSize == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    const CLUINT32 lCount = std::exchange(*bufferSize, 0);
    return WithPort(serialRef,
                    [&](ClientPort& aPort)
                    {
                        if (lCount == 0)
                        {
                            return CL_ERR_NO_ERR;
                        }
                        return buffer != nullptr
                                   ? ToCode(aPort.Write(buffer, lCount, serialTimeout, *bufferSize))
                                   : CL_ERR_INVALID_PTR;
                    });
}

CLINT32 CLSER_CALL clGetNumBytesAvail(hSerRef serialRef, CLUINT32* numBytes)
{
    if (numBytes == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    *numBytes = 0;
    return WithPort(serialRef,
                    [&](ClientPort& aPort)
                    {
                        *numBytes = aPort.GetAvailable();
                        return CL_ERR_NO_ERR;
                    });
}

CLINT32 CLSER_CALL clFlushPort(hSerRef serialRef)
{
    return WithPort(serialRef,
                    [](ClientPort& aPort)
                    {
                        aPort.Flush();
                        return CL_ERR_NO_ERR;
                    });
}

CLINT32 CLSER_CALL clGetSupportedBaudRates(hSerRef serialRef, CLUINT32* baudRates)
{
    if (baudRates == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    *baudRates = 0;
    return WithPort(serialRef,
                    [&](const ClientPort& aPort)
                    {
                        *baudRates = aPort.GetSupportedBaudRates();
                        return CL_ERR_NO_ERR;
                    });
}

CLINT32 CLSER_CALL clSetBaudRate(hSerRef serialRef, CLUINT32 baudRate)
{
    return WithPort(serialRef,
                    [&](ClientPort& aPort)
                    {
                        // The bits are in the order of the rates, so the highest bit is the fastest rate.
                        const bool lHighest = baudRate == CL_BAUDRATE_AUTOMAX;
                        const CLUINT32 lMask =
                            lHighest ? std::bit_floor(aPort.GetSupportedBaudRates()) : baudRate;
                        return ToCode(aPort.SetBaudRate(lMask));
                    });
}

CLINT32 CLSER_CALL clGetErrorText(CLINT32 errorCode, CLINT8* errorText, CLUINT32* errorTextSize)
{
    if (errorTextSize == nullptr)
    {
        return CL_ERR_INVALID_PTR;
    }
    for (const ErrorText& lText : cErrorTexts)
    {
        if (lText.mCode == errorCode)
        {
            return CopyText(lText.mText, errorText, errorTextSize);
        }
    }
    return CL_ERR_ERROR_NOT_FOUND;
}

// NOLINTEND(readability-identifier-naming)
