#ifndef KYSERIALC_ADAPTER_H
#define KYSERIALC_ADAPTER_H

#include <KySerialC/Result.h>
#include <stdint.h>

/// \file
/// The application's way to one connected camera, as a table of functions.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A device that KyDeviceCreate() has made; 0 is no device.
    typedef uint64_t KyDeviceHandle;

    /// What the library wants done with the camera. The application fills it in and gives it to
    /// KyDeviceCreate(), which copies it.
    ///
    /// Every function gets mContext first. Those that answer a question return 0 for no and anything else for
    /// yes; the others return KY_OK or a code, after KySetLastText() if there is something to say. Values
    /// that a failure leaves behind are not looked at. Names and texts that the functions get end with the
    /// call.
    ///
    /// A function may be null: a question is then answered with no, an operation with KY_UNSUPPORTED;
    /// mPostWrite and the four functions that begin and end reporting are then not needed and count as done.
    /// Only mIsConnected has to be there.
    ///
    /// Threads: any, also several at a time, and from inside KyDeviceNotifyEvent() and
    /// KyDeviceNotifyFeatureInvalidated() too. Nothing may be thrown or jumped out of.
    typedef struct KyAdapter
    {
        /// sizeof(KyAdapter), as the application was compiled with. Functions that do not lie in it as a whole
        /// count as null; a size too small for mIsConnected is refused.
        uint32_t mSize;
        uint32_t mReserved; ///< 0.
        void* mContext;     ///< The application's; not looked at.

        /// Whether the device can be reached now. Asked before every operation.
        int32_t (*mIsConnected)(void* aContext);
        /// Whether the device is one of the maker's video-interface engines; only they have serial registers.
        int32_t (*mIsKorvoVideoInterface)(void* aContext);
        /// Whether the device is reached over GigE Vision. Decides the byte order of message headers and
        /// which features identify the device.
        int32_t (*mIsGigEVision)(void* aContext);
        /// Whether the device is reached over the other transport.
        int32_t (*mIsAlternateTransport)(void* aContext);

        /// Reads a 32-bit register of the device's GigE Vision register space.
        KyCode (*mReadRegister)(void* aContext, uint32_t aAddress, uint32_t* aValue);
        /// Writes one.
        KyCode (*mWriteRegister)(void* aContext, uint32_t aAddress, uint32_t aValue);
        /// Writes exactly aLength bytes, no padding, at an address of the register space.
        KyCode (*mWriteMemory)(void* aContext, const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength);

        /// Whether aName is a feature, of any kind, available now.
        int32_t (*mIsFeatureAvailable)(void* aContext, const char* aName);
        /// Whether aName is an integer feature and available now.
        int32_t (*mIsIntegerFeatureAvailable)(void* aContext, const char* aName);
        /// Whether aName is a register feature (a block of bytes) and available now.
        int32_t (*mIsRegisterFeatureAvailable)(void* aContext, const char* aName);
        /// Whether the feature's value can be read now.
        int32_t (*mIsFeatureReadable)(void* aContext, const char* aName);
        /// Whether the feature's value can be written now.
        int32_t (*mIsFeatureWritable)(void* aContext, const char* aName);
        /// Whether the enumeration aName exists and offers aEntry now.
        int32_t (*mIsEnumEntryAvailable)(void* aContext, const char* aName, const char* aEntry);

        /// Reads an integer feature.
        KyCode (*mGetIntegerValue)(void* aContext, const char* aName, int64_t* aValue);
        /// Gives the names of an enumeration's entries, in the device's order: one KyReturnText() each.
        KyCode (*mGetEnumEntries)(void* aContext, const char* aName);
        /// Gives any feature's value with KyReturnText(): decimal integers, entry names.
        KyCode (*mGetFeatureAsString)(void* aContext, const char* aName);
        /// Writes any feature's value from text.
        KyCode (*mSetFeatureFromString)(void* aContext, const char* aName, const char* aValue);
        /// Gives a string feature's value with KyReturnText().
        KyCode (*mGetStringValue)(void* aContext, const char* aName);

        /// Length in bytes of a register feature.
        KyCode (*mGetRegisterLength)(void* aContext, const char* aName, int64_t* aLength);
        /// Reads the first aLength bytes of a register feature.
        KyCode (*mGetRegisterData)(void* aContext, const char* aName, uint8_t* aBuffer, int64_t aLength);
        /// Writes exactly aLength bytes, no padding, to the start of a register feature.
        KyCode (*mSetRegisterData)(void* aContext, const char* aName, const uint8_t* aBuffer,
                                   int64_t aLength);
        /// Called with 1000 after each message that was written with mSetRegisterData: time for whatever the
        /// application has to do then, polling features for example. The result is ignored.
        KyCode (*mPostWrite)(void* aContext, uint32_t aMilliseconds);

        /// Somebody wants KyDeviceNotifyFeatureInvalidated() when the feature changes. Counted per name.
        KyCode (*mRegisterFeatureInterest)(void* aContext, const char* aName);
        /// One of them no longer does.
        KyCode (*mUnregisterFeatureInterest)(void* aContext, const char* aName);
        /// A port, bus or bridge begins to listen: its events are wanted, through KyDeviceNotifyEvent() and
        /// KyDeviceNotifyFeatureInvalidated() for aDevice. Once for each listener; each event is reported
        /// once however many there are.
        KyCode (*mRegisterEventSink)(void* aContext, KyDeviceHandle aDevice);
        /// One of them no longer listens. The library sees to it that nobody hears what comes late.
        KyCode (*mUnregisterEventSink)(void* aContext, KyDeviceHandle aDevice);
    } KyAdapter;

    /// Gives a text to the library, from inside mGetFeatureAsString and mGetStringValue (the last one counts)
    /// and mGetEnumEntries (one call per entry), on the thread that runs them.
    /// \param aText  Copied.
    /// \return KY_OK. KY_BAD_PARAMETER: null. KY_WRONG_STATE: not inside one of these functions.
    KYSERIALC_API KyCode KyReturnText(const char* aText);

#ifdef __cplusplus
}
#endif

#endif
