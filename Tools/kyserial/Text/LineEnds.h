#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// What becomes of the ends of lines. A line ends with CR, LF, or CR LF.
enum class LineEnd
{
    AsIs,
    Cr,
    Lf,
    CrLf
};

/// "asis", "cr", "lf" or "crlf".
const char* LineEndName(LineEnd aEnd);
std::optional<LineEnd> ParseLineEnd(const std::string& aText);

/// The one after it, and the first after the last.
LineEnd NextLineEnd(LineEnd aEnd);

/// Replaces the ends of lines in bytes that come in pieces of any size.
class LineEndMap
{
public:
    explicit LineEndMap(LineEnd aEnd = LineEnd::AsIs) : mEnd(aEnd) {}

    LineEnd GetEnd() const { return mEnd; }
    std::string Map(const uint8_t* aData, size_t aSize);

private:
    LineEnd mEnd;
    bool mAfterCr = false; // whose end was given out: a line feed that follows belongs to it
};

} // namespace KySerialTool
