#pragma once

#include "BulkWithI2C.h"
#include "RefCounted.h"

namespace KySerialLib
{

/// What the buses have in common: an engine, and the refusal of operations before there is one.
///
/// No engine -- the bus's Open() --> engine, open or not as its own Open() said -- Close() --> engine, closed.
/// Threads: one caller at a time.
class DeviceBus : public RefCounted
{
protected:
    /// \param aSourceFile  What the log names as the place of a refusal. Must stay.
    /// \param aNotOpen     The refusal: a format for the operation's name. Must stay.
    DeviceBus(const char* aSourceFile, const char* aNotOpen);
    /// Closes an open engine.
    ~DeviceBus();

    /// \param aFunction  The operation, and the line where it asks.
    /// \return OK. NOT_OPEN, logged: there is no engine yet.
    [[nodiscard]] KyResult CheckEngine(const char* aFunction, int aLine) const;

    /// The bus's Close(). \return As the engine's, or as CheckEngine().
    KyResult CloseEngine(const char* aFunction, int aLine);
    /// The bus's IsOpened(). \return False, and logged, while there is no engine yet.
    bool IsEngineOpen(const char* aFunction, int aLine) const;

    std::unique_ptr<BulkWithI2C> mBulk;
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;

private:
    const char* const mSourceFile;
    const char* const mNotOpen;
};

} // namespace KySerialLib
