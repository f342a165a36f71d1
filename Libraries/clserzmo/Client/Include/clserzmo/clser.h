#ifndef CLSERZMO_CLSER_H
#define CLSERZMO_CLSER_H

/**
 * \file
 * Serial ports of Camera Link devices, as the Camera Link standard names the functions. This library's ports
 * are the bridge servers that run on this machine, in any process: each is a serial port of a device.
 *
 * Order of calls: clGetNumSerialPorts(), clGetSerialPortIdentifier() to choose, clSerialInit(), then reads
 * and writes, clSerialClose(). A port has one client at a time. It comes up at 9600 bit/s, or at the lowest
 * rate that its server offers if 9600 is not among them; always eight data bits, no parity, one stop bit.
 *
 * Results: CL_ERR_NO_ERR, or a negative code. A pointer or reference that is not one of this library's is
 * answered with a code; references are looked up, never followed, and a closed one never becomes valid again.
 *
 * Threads: any function by any thread at any time. On one port reads happen one after the other, each whole,
 * and so do writes; a read and a write happen at the same time. A call that waits for its turn counts that as
 * part of its time-out.
 *
 * Closing: clSerialClose() ends the calls that wait on the port; they return CL_ERR_INVALID_REFERENCE within
 * 100 ms, and clSerialClose() returns after them.
 *
 * The server may stop or die while a client is attached. The client stays attached: what had arrived can
 * still be read, further reads and writes time out, and when a server of the same name starts, everything
 * goes on, with the bytes that were on their way. A client that dies without closing its port keeps the port
 * in use until the server is started again.
 *
 * Times are milliseconds: 0 does not wait, 0xFFFFFFFF waits without end. A process that holds one of the
 * locks between the processes, stopped in a debugger for example, can hold a call up for 5 s beyond its time.
 */

#include <clserzmo/Export.h>

#ifdef __cplusplus
extern "C"
{
#endif

    typedef int CLINT32;
    typedef unsigned int CLUINT32;
    typedef char CLINT8;

    /** A port that clSerialInit() has opened. */
    typedef void* hSerRef;

/** Done. */
#define CL_ERR_NO_ERR 0
/** The buffer does not hold the text; the size needed has been stored. */
#define CL_ERR_BUFFER_TOO_SMALL (-10001)
/** No such manufacturer; not used here. */
#define CL_ERR_MANU_DOES_NOT_EXIST (-10002)
/** Another client has the port. */
#define CL_ERR_PORT_IN_USE (-10003)
/** The time has passed first. */
#define CL_ERR_TIMEOUT (-10004)
/** There is no port of that index. */
#define CL_ERR_INVALID_INDEX (-10005)
/** Not an open port, or closed meanwhile. */
#define CL_ERR_INVALID_REFERENCE (-10006)
/** No such error code. */
#define CL_ERR_ERROR_NOT_FOUND (-10007)
/** The server does not offer the rate, or it is not one rate. */
#define CL_ERR_BAUD_RATE_NOT_SUPPORTED (-10008)
/** Out of memory. */
#define CL_ERR_OUT_OF_MEMORY (-10009)
/** Not used here. */
#define CL_ERR_REGISTRY_KEY_NOT_FOUND (-10010)
/** A pointer is null. */
#define CL_ERR_INVALID_PTR (-10011)
/** Not used here. */
#define CL_ERR_IN_USE (-10012)
/** Not used here. */
#define CL_ERR_INVALID_ARG (-10097)
/** Not used here. */
#define CL_ERR_UNABLE_TO_LOAD_DLL (-10098)
/** Not used here. */
#define CL_ERR_FUNCTION_NOT_FOUND (-10099)

/* Rates, one bit each. Servers offer the first five at most. */
#define CL_BAUDRATE_9600 0x01U
#define CL_BAUDRATE_19200 0x02U
#define CL_BAUDRATE_38400 0x04U
#define CL_BAUDRATE_57600 0x08U
#define CL_BAUDRATE_115200 0x10U
#define CL_BAUDRATE_230400 0x20U
#define CL_BAUDRATE_460800 0x40U
#define CL_BAUDRATE_921600 0x80U
/** The highest rate that the server offers. */
#define CL_BAUDRATE_AUTOMAX 0x40000000U

/* Versions of the standard. */
#define CL_DLL_VERSION_NO_VERSION 1U
#define CL_DLL_VERSION_1_0 2U
#define CL_DLL_VERSION_1_1 3U
#define CL_DLL_VERSION_2_0 4U
#define CL_DLL_VERSION_2_1 5U

    /* NOLINTBEGIN(readability-identifier-naming): the names of the Camera Link standard */

    /**
     * Counts the ports, and numbers them anew: clGetSerialPortIdentifier() and clSerialInit() mean these
     * numbers until the next call. They number anew by themselves when a number is too high or its server has
     * gone. \param numSerialPorts  Receives the number; 0 on failure. \return CL_ERR_INVALID_PTR: null.
     * CL_ERR_OUT_OF_MEMORY: the list of servers cannot be opened, for want of memory, descriptors or room for
     * shared memory, or because another user's folder is in its place.
     */
    CLSER_API CLINT32 CLSER_CALL clGetNumSerialPorts(CLUINT32* numSerialPorts);

    /**
     * Gives a port's name: that of its server.
     * \param serialIndex  0 to the number of ports less 1.
     * \param portID       Receives the name, ended by NUL; may be null when *bufferSize is too small for it.
     * \param bufferSize   Bytes at portID. Receives the bytes written, or on CL_ERR_BUFFER_TOO_SMALL the
     * bytes needed, both with the NUL. \return CL_ERR_INVALID_INDEX, CL_ERR_BUFFER_TOO_SMALL,
     * CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clGetSerialPortIdentifier(CLUINT32 serialIndex, CLINT8* portID,
                                                           CLUINT32* bufferSize);

    /**
     * Gives the manufacturer's name and the version of the standard that this library follows.
     * \param manufacturerName, bufferSize  As in clGetSerialPortIdentifier().
     * \param version                       Receives CL_DLL_VERSION_1_1, also when the buffer is too small.
     * \return CL_ERR_BUFFER_TOO_SMALL, CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clGetManufacturerInfo(CLINT8* manufacturerName, CLUINT32* bufferSize,
                                                       CLUINT32* version);

    /**
     * Opens a port. Bytes that have arrived before are kept; clFlushPort() drops them.
     * \param serialRefPtr  Receives the port; null on failure.
     * \return CL_ERR_PORT_IN_USE, CL_ERR_INVALID_INDEX, CL_ERR_INVALID_PTR, CL_ERR_OUT_OF_MEMORY.
     */
    CLSER_API CLINT32 CLSER_CALL clSerialInit(CLUINT32 serialIndex, hSerRef* serialRefPtr);

    /** Closes a port; anything that is not an open port is ignored. */
    CLSER_API void CLSER_CALL clSerialClose(hSerRef serialRef);

    /**
     * Reads all of a number of bytes, or none. On CL_ERR_TIMEOUT nothing is consumed: the bytes that had come
     * are there for the next read. \param buffer         Receives the bytes; untouched on failure. May be
     * null for 0 bytes. \param numBytes       Bytes wanted; 0 is done at once. Receives the bytes read: all,
     * or 0 on failure. \param serialTimeout  Milliseconds to wait for all of them. \return CL_ERR_TIMEOUT,
     * CL_ERR_INVALID_REFERENCE, CL_ERR_INVALID_PTR, CL_ERR_OUT_OF_MEMORY.
     */
    CLSER_API CLINT32 CLSER_CALL clSerialRead(hSerRef serialRef, CLINT8* buffer, CLUINT32* numBytes,
                                              CLUINT32 serialTimeout);

    /**
     * As clSerialRead(), but CL_ERR_TIMEOUT gives the bytes that have come, and *numBytes says how many.
     */
    CLSER_API CLINT32 CLSER_CALL clSerialReadEx(hSerRef serialRef, CLINT8* buffer, CLUINT32* numBytes,
                                                CLUINT32 serialTimeout);

    /**
     * Writes bytes. Done means that the server has them or will have them next. While no server is there,
     * nothing is written: no server that starts later gets a command that was given up long ago. \param
     * buffer         The bytes; not changed. May be null for 0 bytes. \param bufferSize     Number of bytes;
     * 0 is done at once. Receives the bytes written, on failure too. \param serialTimeout  Milliseconds to
     * wait until the server has taken enough. \return CL_ERR_TIMEOUT, CL_ERR_INVALID_REFERENCE,
     * CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clSerialWrite(hSerRef serialRef, CLINT8* buffer, CLUINT32* bufferSize,
                                               CLUINT32 serialTimeout);

    /**
     * \param numBytes  Receives the number of bytes that can be read without waiting; 0 on failure.
     * \return CL_ERR_INVALID_REFERENCE, CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clGetNumBytesAvail(hSerRef serialRef, CLUINT32* numBytes);

    /**
     * Drops the bytes that have arrived and were not read. What was written is not touched.
     * \return CL_ERR_INVALID_REFERENCE.
     */
    CLSER_API CLINT32 CLSER_CALL clFlushPort(hSerRef serialRef);

    /**
     * \param baudRates  Receives the rates that the server offers, one bit each; 0 on failure.
     * \return CL_ERR_INVALID_REFERENCE, CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clGetSupportedBaudRates(hSerRef serialRef, CLUINT32* baudRates);

    /**
     * Asks for a rate. The server sets the device to it before the next bytes that it passes on.
     * \param baudRate  One bit of those offered, or CL_BAUDRATE_AUTOMAX.
     * \return CL_ERR_BAUD_RATE_NOT_SUPPORTED, CL_ERR_INVALID_REFERENCE.
     */
    CLSER_API CLINT32 CLSER_CALL clSetBaudRate(hSerRef serialRef, CLUINT32 baudRate);

    /**
     * Gives an English text for a code.
     * \param errorText, errorTextSize  As in clGetSerialPortIdentifier().
     * \return CL_ERR_ERROR_NOT_FOUND, CL_ERR_BUFFER_TOO_SMALL, CL_ERR_INVALID_PTR.
     */
    CLSER_API CLINT32 CLSER_CALL clGetErrorText(CLINT32 errorCode, CLINT8* errorText,
                                                CLUINT32* errorTextSize);

    /* NOLINTEND(readability-identifier-naming) */

#ifdef __cplusplus
}
#endif

#endif
