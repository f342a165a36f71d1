#ifndef KYGIGEC_KYGIGE_H
#define KYGIGEC_KYGIGE_H

#include <KySerialC/Device.h>

/// \file
/// GigE Vision cameras for C, and for every language and compiler that can call C: KyGigEC.dll, libKyGigEC.so.
///
/// KyCameraFind() looks for cameras, KyCameraOpen() connects one, and KyCameraGetDevice() gives the device that
/// ports, buses and bridges of kyserial.h are opened on. Examples/NetworkCamera.c is a whole program.
///
/// Handles, results, texts and threads are those of kyserial.h. Structures begin with their size, which the
/// caller sets: a size smaller than the structure of this header is refused, and what a larger one has beyond it
/// is not looked at. Failures are also logged.
///
/// A lost camera: when the camera does not answer any more, KyCameraGetState() says so, every operation on it
/// gives KY_NO_CONNECTION, and reads from its ports find nothing. The camera is connected again by itself when it
/// is back, under another generation; it has forgotten what was set up in it. Ports are opened anew then:
/// KyPortDestroy() is possible at any time, and once KyCameraGetState() says that the camera is connected,
/// KyPortCreate() and KyPortOpen() give the port back. KyCameraClose() and KyCameraOpen() between them do no harm.

#if defined(KYGIGEC_BUILD)
#define KYGIGEC_API KY_EXPORT
#else
#define KYGIGEC_API KY_IMPORT
#endif

#ifdef __cplusplus
extern "C"
{
#endif

    /// Where cameras are looked for.
    typedef struct KyCameraSearch
    {
        uint32_t mSize;         ///< sizeof(KyCameraSearch).
        uint32_t mTime;         ///< Milliseconds to wait for answers.
        const char* mAddress;   ///< IPv4 address of one camera; null or empty: all that a broadcast reaches.
        const char* mInterface; ///< Own address or name of the interface to look on; null or empty: all.
        uint32_t mPort;         ///< UDP port of the cameras' control channel, 65535 at most.
        int32_t mAskControl;    ///< Not 0: each camera is asked who controls it.
    } KyCameraSearch;

    /// Fills in the usual values: 1000 ms, all cameras, all interfaces, port 3956, control is asked; and the size.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYGIGEC_API KyCode KyCameraSearchInit(KyCameraSearch* aSearch);

    /// Who controls a camera.
    enum
    {
        KY_CONTROL_UNKNOWN = 0,  ///< Not asked, or the camera does not say it.
        KY_CONTROL_FREE = 1,     ///< Nobody.
        KY_CONTROL_TAKEN = 2,    ///< An application; others may read.
        KY_CONTROL_EXCLUSIVE = 3 ///< An application; others may not even read.
    };

    /// A camera that answered. Texts are never null, and end with the call that they are given to.
    typedef struct KyFoundCamera
    {
        uint32_t mSize;       ///< Bytes of this structure, as the library knows it; it grows at its end.
        uint32_t mPort;       ///< UDP port that it answered from.
        const char* mDevice;  ///< What KyCameraOpen() takes: "gev://192.168.0.5".
        const char* mAddress; ///< IPv4 address that it answered from.
        const char* mMac;     ///< "00:11:22:33:44:55".
        const char* mSerialNumber;
        const char* mUserName;
        const char* mVendor;
        const char* mModel;
        const char* mVersion;
        const char* mInformation; ///< The maker's own words.
        const char* mInterface;   ///< Name of the interface that it was found on.
        int32_t mControl;         ///< KY_CONTROL_UNKNOWN and so on.
        uint32_t mControllerPort; ///< UDP port of the application in control; 0: not known.
        const char* mController;  ///< IPv4 address of the application in control; empty: not known.
    } KyFoundCamera;

    /// Takes a camera, on the thread that searches. It may call anything but KyCameraFind() and
    /// KyCameraClose().
    typedef void (*KyFoundCameraFunction)(void* aContext, const KyFoundCamera* aCamera);

    /// Looks for cameras. A broadcast leaves the computer on each interface that is searched. Blocks for
    /// KyCameraSearch::mTime, and for those that are asked about control and answer nothing 0.8 s each.
    /// \param aSearch  Null: the usual values.
    /// \param aFunction  Called for each camera after the search, by interface and MAC address; a camera comes once
    ///         for each interface that reaches it. May be null: they are counted.
    /// \param aContext  Passed on.
    /// \param aCount  Receives the number of cameras; 0 on a failure. May be null.
    /// \return KY_OK, also when none answers. KY_BAD_PARAMETER: the size is not set, or no such port.
    ///         KY_FAILURE: nothing could be asked; the text says why.
    KYGIGEC_API KyCode KyCameraFind(const KyCameraSearch* aSearch, KyFoundCameraFunction aFunction,
                                    void* aContext, uint32_t* aCount);

    /// How a camera is kept.
    typedef struct KyCameraOptions
    {
        uint32_t mSize;         ///< sizeof(KyCameraOptions).
        int32_t mReadOnly;      ///< Not 0: no control is taken, which another application may have. Registers
                                ///< and features can be read, nothing can be written, and no events come.
        const char* mInterface; ///< Own address or name of the interface to use; null or empty: as the
                                ///< camera's text says, or else as the system chooses.
        int32_t mReconnect;     ///< Not 0: it is connected again by itself when it is back.
        uint32_t mSearchTime;   ///< Milliseconds of a search for a name.
        uint32_t mConnectLimit; ///< Milliseconds for the connection as a whole; 0: no limit.
        uint32_t mTimeout;      ///< Milliseconds until a command is sent again.
        uint32_t mAttempts;     ///< How often it is sent; then the camera counts as lost. Not 0.
        uint32_t mPending;      ///< The most milliseconds that a camera may ask for in all.
        uint32_t mHeartbeatPeriod;  ///< Milliseconds between two signs of life. Not 0.
        uint32_t mHeartbeatTimeout; ///< Milliseconds after which the camera gives up a silent application.
        uint32_t mEventTimeout;     ///< Milliseconds after which the camera sends an event again.
        uint32_t mEventRetries;     ///< How often it does.
    } KyCameraOptions;

    /// Fills in the usual values: control, no interface, reconnecting, 1000 ms of search, 30 s to connect, commands
    /// 4 times each 200 ms, 10 s of pending, signs of life each 500 ms for 3 s, events 60 times each 15 ms; and
    /// the size.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYGIGEC_API KyCode KyCameraOptionsInit(KyCameraOptions* aOptions);

    /// A connected camera; 0 means no camera.
    typedef uint64_t KyCameraHandle;

    /// Connects a camera and makes a device of it.
    /// \param aName  "gev://ADDRESS[:PORT][?interface=ADDRESS-OR-NAME]"; ADDRESS[:PORT] alone; or a name that the
    ///         camera is looked for by: its MAC address, serial number, user name or model, letter case ignored.
    /// \param aOptions  Null: the usual values.
    /// \param aCamera  Receives the camera; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: null, the size is not set, or a number that must not be 0 is.
    ///         KY_NO_CONNECTION: no camera answers there, or has that name. KY_TIMED_OUT: not within the limit.
    ///         0x8006: another application controls it. KY_FAILURE: several cameras have that name or address, the
    ///         name is malformed, this computer has no such interface, or out of memory. Others: passed on from
    ///         the camera. The text says more. Blocks for the search, and for the camera's answers: about a second
    ///         when nobody answers.
    KYGIGEC_API KyCode KyCameraOpen(const char* aName, const KyCameraOptions* aOptions,
                                    KyCameraHandle* aCamera);

    /// Gives the camera back and ends its device. Also a lost camera can be closed.
    /// \return KY_OK. KY_WRONG_STATE: a port, bus or bridge is open on its device, or this is called from inside
    ///         one of its events; nothing has changed then. Blocks until calls on the camera have returned.
    KYGIGEC_API KyCode KyCameraClose(KyCameraHandle aCamera);

    /// Gives the camera's device, for ports, buses, bridges and KyDeviceGetFeature(). It ends with the camera;
    /// KyDeviceDestroy() is not called for it.
    /// \param aDevice  Receives it; 0 on a failure.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYGIGEC_API KyCode KyCameraGetDevice(KyCameraHandle aCamera, KyDeviceHandle* aDevice);

    /// What a camera said about itself when it was connected.
    /// \param aFunction  Not null; called once, before this returns, with mControl KY_CONTROL_UNKNOWN and an empty
    ///         mInterface where the system has chosen it.
    /// \return KY_OK. KY_BAD_PARAMETER: null.
    KYGIGEC_API KyCode KyCameraGetInformation(KyCameraHandle aCamera, KyFoundCameraFunction aFunction,
                                              void* aContext);

    /// The connection to a camera.
    typedef struct KyCameraState
    {
        uint32_t mSize;       ///< sizeof(KyCameraState).
        int32_t mIsConnected; ///< 1 or 0.
        uint64_t mGeneration; ///< 1 for the first connection, one more each time that the camera is connected
                              ///< again, however quickly; stays while it is lost.
        uint64_t mLosses;     ///< How often the connection was lost.
        uint64_t mRepeatedCommands; ///< Packets that had to be sent again.
        uint64_t mRepeatedEvents;   ///< Events that came again and were left out.
        uint64_t mForeignEvents;    ///< Packets for the event channel that were not the camera's.
    } KyCameraState;

    /// Gives the state of the connection, without blocking.
    /// \param aState  Its size has to be set. Its members are 0 after KY_INVALID_HANDLE.
    /// \return KY_OK. KY_BAD_PARAMETER: null, or the size is not set.
    KYGIGEC_API KyCode KyCameraGetState(KyCameraHandle aCamera, KyCameraState* aState);

    /// Waits until the camera is lost, or connected again: until mIsConnected or mGeneration are others than those in
    /// aState, which receives the state of then. A caller that begins with a state of zeros gets the present one at once.
    /// \param aTimeout  Milliseconds; 0 does not wait, 0xFFFFFFFF has no end.
    /// \return KY_OK. KY_TIMED_OUT: they are still the same; the figures are those of then. KY_BAD_PARAMETER: null,
    ///         or the size is not set. KY_INVALID_HANDLE: also when the camera is closed meanwhile.
    KYGIGEC_API KyCode KyCameraWaitForChange(KyCameraHandle aCamera, KyCameraState* aState,
                                             uint32_t aTimeout);

    /// Connects a lost camera again now, for one that was opened without mReconnect, or that is not waited for.
    /// \return KY_OK, also when it is not lost. Otherwise as KyCameraOpen(). Blocks as that does.
    KYGIGEC_API KyCode KyCameraReconnect(KyCameraHandle aCamera);

    /// Kinds of features.
    enum
    {
        KY_FEATURE_OTHER = 0, ///< A category.
        KY_FEATURE_INTEGER = 1,
        KY_FEATURE_FLOAT = 2,
        KY_FEATURE_BOOLEAN = 3,
        KY_FEATURE_ENUMERATION = 4,
        KY_FEATURE_STRING = 5,
        KY_FEATURE_REGISTER = 6,
        KY_FEATURE_COMMAND = 7
    };

    /// What can be done with a feature now; bits of KyFeature::mAccess.
    enum
    {
        KY_ACCESS_AVAILABLE = 1, ///< The camera has it, in its present state.
        KY_ACCESS_READ = 2,
        KY_ACCESS_WRITE = 4 ///< For a command: it can be executed.
    };

    /// A feature. Texts are never null, and end with the call that they are given to.
    typedef struct KyFeature
    {
        uint32_t mSize;    ///< Bytes of this structure, as the library knows it; it grows at its end.
        int32_t mKind;     ///< KY_FEATURE_OTHER and so on.
        int32_t mAccess;   ///< Sum of KY_ACCESS_AVAILABLE and so on.
        int32_t mReserved; ///< 0.
        const char* mName;
        const char* mCategory; ///< Empty for one that is not listed.
        const char*
            mVisibility; ///< "Beginner", "Expert", "Guru" or "Invisible"; empty for one that is not listed.
        const char* mToolTip;
    } KyFeature;

    /// Takes a feature, on the calling thread. It may call anything but KyCameraClose().
    typedef void (*KyFeatureFunction)(void* aContext, const KyFeature* aFeature);

    /// Lists the features for users, in the camera's order.
    /// \param aFunction  Called for each; may be null: they are counted.
    /// \param aCount  Receives their number; 0 on a failure. May be null.
    /// \return KY_OK. KY_NO_CONNECTION: the camera is lost. Blocks for the registers that decide about access.
    KYGIGEC_API KyCode KyCameraListFeatures(KyCameraHandle aCamera, KyFeatureFunction aFunction,
                                            void* aContext, uint32_t* aCount);

    /// Describes one feature, also one that is not listed.
    /// \param aName  Not null.
    /// \param aFunction  Not null; called once, before this returns KY_OK.
    /// \return KY_OK. KY_UNSUPPORTED: there is no such feature. KY_NO_CONNECTION. KY_BAD_PARAMETER: null. Blocks as
    ///         KyCameraListFeatures().
    KYGIGEC_API KyCode KyCameraDescribeFeature(KyCameraHandle aCamera, const char* aName,
                                               KyFeatureFunction aFunction, void* aContext);

    /// Takes a text that ends with the call, on the calling thread.
    typedef void (*KyTextFunction)(void* aContext, const char* aText);

    /// Lists the entries that an enumeration offers now, in the camera's order.
    /// \param aName,  aFunction  Not null.
    /// \return KY_OK. KY_NO_CONNECTION. KY_BAD_PARAMETER: null. 0x8001: no such feature. 0x8002: no enumeration.
    KYGIGEC_API KyCode KyCameraListEntries(KyCameraHandle aCamera, const char* aName,
                                           KyTextFunction aFunction, void* aContext);

    /// Reads a feature as text: decimal integers, entry names, "true" and "false".
    /// \param aName  Not null.
    /// \param aBuffer,  aSize  See kyserial.h.
    /// \return KY_OK. KY_BUFFER_TOO_SMALL. KY_NO_CONNECTION. KY_BAD_PARAMETER: null. 0x8001: no such feature.
    ///         0x8002: a kind without text. 0x8006: not readable, or not now. Others: the camera's. Blocks for the
    ///         registers that it needs.
    KYGIGEC_API KyCode KyCameraGetFeature(KyCameraHandle aCamera, const char* aName, char* aBuffer,
                                          uint32_t* aSize);

    /// Writes a feature from text.
    /// \param aName,  aValue  Not null.
    /// \return KY_OK. KY_NO_CONNECTION. KY_BAD_PARAMETER: null. 0x8001: no such feature. 0x8002: a value that does not
    ///         fit. 0x8004: only readable. 0x8006: not now, or the camera is read only. Others: the camera's.
    KYGIGEC_API KyCode KyCameraSetFeature(KyCameraHandle aCamera, const char* aName, const char* aValue);

    /// Executes a command of the camera. Does not wait until the camera is done with it.
    /// \param aName  Not null.
    /// \return KY_OK. KY_NO_CONNECTION. KY_BAD_PARAMETER: null. 0x8001: no such feature. 0x8002: no command. 0x8006: not
    ///         now, or the camera is read only. Others: the camera's.
    KYGIGEC_API KyCode KyCameraExecute(KyCameraHandle aCamera, const char* aName);

#ifdef __cplusplus
}
#endif

#endif
