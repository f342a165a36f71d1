#ifndef KYSIMULATORC_KYSIMULATOR_H
#define KYSIMULATORC_KYSIMULATOR_H

#include <KySerialC/Adapter.h>
#include <KySerialC/Device.h>

/// \file
/// The simulated camera for C: a camera without hardware, as a KyAdapter. KySimulatorC.dll,
/// libKySimulatorC.so.
///
/// KySimCameraCreate() makes a camera, KySimCameraPlug() puts something on its ports, and
/// KySimCameraGetAdapter() gives the table for KyDeviceCreate(). Docs/simulated-camera.md says what is
/// modelled. Example: Examples/SerialPort.c.
///
/// Handles, results, texts and threads are those of kyserial.h.

#if defined(KYSIMULATORC_BUILD)
#define KYSIMULATORC_API KY_EXPORT
#else
#define KYSIMULATORC_API KY_IMPORT
#endif

#ifdef __cplusplus
extern "C"
{
#endif

    /// A camera that KySimCameraCreate() has made; 0 means no camera.
    typedef uint64_t KySimCameraHandle;

    /// How the camera is reached.
    enum
    {
        KY_SIM_GIGE_VISION = 0, ///< Registers and features.
        KY_SIM_ALTERNATE = 1,   ///< The other transport: features only.
        KY_SIM_NEITHER = 2      ///< Neither: features only.
    };

    /// What is connected to a port.
    enum
    {
        KY_SIM_NOTHING = 0,
        KY_SIM_LOOPBACK = 1, ///< Sends every byte back.
        KY_SIM_LENS = 2,     ///< A lens controller: lines of text, see Docs/lens-controller.md.
        KY_SIM_I2C = 3,      ///< An I2C bus: an EEPROM of 256 bytes at 0x50, a temperature sensor at 0x48.
        KY_SIM_FLASH = 4     ///< An SPI bus with a flash memory of 64 KiB.
    };

    /// What a camera is.
    typedef struct KySimOptions
    {
        uint32_t mSize;             ///< sizeof(KySimOptions); another size is refused.
        int32_t mTransport;         ///< KY_SIM_GIGE_VISION and so on.
        uint32_t mUartCount;        ///< 0 to 2. Without UARTs bulk port 0 is driven through features.
        int32_t mUnlimitedLineRate; ///< Not 0: lines take no time.
    } KySimOptions;

    /// Fills in the default: GigE Vision, two UARTs, lines at their speed; and the size.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYSIMULATORC_API KyCode KySimOptionsInit(KySimOptions* aOptions);

    /// Makes a camera with nothing on its ports.
    /// \param aOptions  Null: the default.
    /// \param aCamera  Receives it; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: no place for the handle, another size, or an unknown transport.
    ///         KY_FAILURE: out of memory, or the system has no thread for the camera.
    KYSIMULATORC_API KyCode KySimCameraCreate(const KySimOptions* aOptions, KySimCameraHandle* aCamera);

    /// Ends a camera; a program that still has its adapter sees it disconnected. Waits for calls of the adapter's
    /// functions and for events that are being reported.
    /// \return KY_OK. KY_WRONG_STATE: from inside one of them.
    KYSIMULATORC_API KyCode KySimCameraDestroy(KySimCameraHandle aCamera);

    /// Gives the camera's table of functions.
    /// \param aAdapter  Its size has to be set: as many whole functions of the table are filled in, and the size
    ///        becomes that of these.
    /// \return KY_OK. KY_BAD_PARAMETER: null, or a size too small for mIsConnected.
    KYSIMULATORC_API KyCode KySimCameraGetAdapter(KySimCameraHandle aCamera, KyAdapter* aAdapter);

    /// Puts something on a port in place of what was there, and sets the port to the protocol that it speaks;
    /// what is on a UART or speaks as one needs none.
    /// \param aSerial  KY_UART0 to KY_BULK7.
    /// \param aWhat  KY_SIM_LENS and so on.
    /// \return KY_OK. KY_BAD_PARAMETER: no such port, no such thing, or a bus for a UART.
    KYSIMULATORC_API KyCode KySimCameraPlug(KySimCameraHandle aCamera, int32_t aSerial, int32_t aWhat);

    /// Lets bytes arrive at a port from its line, at the line's speed.
    /// \param aBytes  May be null when aSize is 0.
    /// \return KY_OK. KY_BAD_PARAMETER: no such port, or null.
    KYSIMULATORC_API KyCode KySimCameraInject(KySimCameraHandle aCamera, int32_t aSerial,
                                              const uint8_t* aBytes, uint32_t aSize);

    /// Gives what has gone out on a port's line, oldest first, and forgets it.
    /// \param aBytes  May be null when aSize is 0.
    /// \param aSize  Capacity; bytes that do not fit are dropped.
    /// \param aCount  Receives the number of bytes given; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: no such port, or null.
    KYSIMULATORC_API KyCode KySimCameraTakeWire(KySimCameraHandle aCamera, int32_t aSerial, uint8_t* aBytes,
                                                uint32_t aSize, uint32_t* aCount);

    /// Cuts the connection, or brings it back.
    /// \param aConnected  0 cuts it.
    /// \return KY_OK.
    KYSIMULATORC_API KyCode KySimCameraSetConnected(KySimCameraHandle aCamera, int32_t aConnected);

    /// Waits until every event that the camera has raised so far has been reported.
    /// \return KY_OK. KY_WRONG_STATE: from inside a report.
    KYSIMULATORC_API KyCode KySimCameraWaitForEvents(KySimCameraHandle aCamera);

#ifdef __cplusplus
}
#endif

#endif
