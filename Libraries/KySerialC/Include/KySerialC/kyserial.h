#ifndef KYSERIALC_KYSERIAL_H
#define KYSERIALC_KYSERIAL_H

/// \file
/// The serial library for C, and for every language and compiler that can call C: KySerialC.dll,
/// libKySerialC.so.
///
/// Its binary interface stays: functions are added, never changed or taken away; structures begin with their
/// size and grow at their end.
///
/// What a program does: it describes its way to the camera in a KyAdapter (Adapter.h), makes a device of it
/// with KyDeviceCreate() (Device.h), and opens ports (Port.h), buses (I2CBus.h, SPIBus.h) and bridges
/// (Bridge.h) on the device. Examples/SerialPort.c is a whole program.
///
/// Handles: objects are numbers, 0 being none. A number is never given twice, so that a call with the handle
/// of an object that is gone, or with one of another kind, gives KY_INVALID_HANDLE and does nothing else.
/// Objects that are still there when the process ends are left as they are: close ports while the device is
/// there.
///
/// Results: KY_OK, or a code; KyGetLastText() has the words to it. Null where a pointer is needed is
/// KY_BAD_PARAMETER. Numbers in out-parameters are 0 after KY_INVALID_HANDLE, where nothing else is said.
///
/// Texts: UTF-8 or any other bytes, ended by NUL. A function that gives a text takes a buffer and its size:
/// *aSize is the bytes at aBuffer, and afterwards those of the text with its NUL, also with
/// KY_BUFFER_TOO_SMALL, which leaves the buffer alone. aBuffer may be null then: the way to ask for the size.
///
/// Threads: any function by any thread at any time. Calls on one object that do not go together wait for each
/// other, as the parts say; whoever closes an object waits for the calls on it, and calls that come later
/// wait for that. Therefore no function may be called from a thread that holds a lock which the application's
/// adapter takes, and the adapter's functions call nothing of this library but KySetLastText(),
/// KyGetLastText(), KyReturnText(), KyDeviceNotifyEvent() and KyDeviceNotifyFeatureInvalidated(). No function
/// throws.

#include <KySerialC/Adapter.h>
#include <KySerialC/Bridge.h>
#include <KySerialC/Device.h>
#include <KySerialC/I2CBus.h>
#include <KySerialC/LineSettings.h>
#include <KySerialC/Log.h>
#include <KySerialC/Port.h>
#include <KySerialC/Result.h>
#include <KySerialC/SPIBus.h>

#endif
