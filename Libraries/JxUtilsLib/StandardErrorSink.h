#pragma once

#include "JxUtilsLib/Logger.h"

#include <string>

namespace JxUtilsLib
{

/// The default sink: one line to standard error,
/// "2026-11-21 08:33:01.042 WARN  KySerialLib KyDeviceSerialPort::~KyDeviceSerialPort: text", local time.
class StandardErrorSink final : public LogSink
{
public:
    void Write(const LogRecord& aRecord) override;

    /// The line without its end, for a given moment: milliseconds since 1970, UTC.
    static std::string Format(const LogRecord& aRecord, int64_t aTimeMs);
};

} // namespace JxUtilsLib
