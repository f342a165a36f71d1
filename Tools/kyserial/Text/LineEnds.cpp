#include "kyserial/Text/LineEnds.h"

#include <algorithm>
#include <array>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr std::array<std::pair<const char*, const char*>, 4> cLineEnds = {
    {{"asis", ""}, {"cr", "\r"}, {"lf", "\n"}, {"crlf", "\r\n"}}};

} // namespace

const char* LineEndName(LineEnd aEnd)
{
    return cLineEnds.at(static_cast<size_t>(aEnd)).first;
}

std::optional<LineEnd> ParseLineEnd(const std::string& aText)
{
    const auto* const lFound = std::find_if(cLineEnds.begin(), cLineEnds.end(),
                                            [&](const auto& aLineEnd) { return aText == aLineEnd.first; });
    return lFound != cLineEnds.end() ? std::optional(static_cast<LineEnd>(lFound - cLineEnds.begin()))
                                     : std::nullopt;
}

LineEnd NextLineEnd(LineEnd aEnd)
{
    return static_cast<LineEnd>((static_cast<size_t>(aEnd) + 1) % cLineEnds.size());
}

std::string LineEndMap::Map(const uint8_t* aData, size_t aSize)
{
    std::string lText(reinterpret_cast<const char*>(aData), aSize);
    if (mEnd == LineEnd::AsIs)
    {
        return lText;
    }
    std::string lMapped;
    for (const char lByte : lText)
    {
        // CR and LF are one line end, also when they come in two pieces: the CR is remembered.
        const bool lRestOfEnd = lByte == '\n' && mAfterCr;
        mAfterCr = lByte == '\r';
        if (lByte == '\r' || (lByte == '\n' && !lRestOfEnd))
        {
            lMapped += cLineEnds.at(static_cast<size_t>(mEnd)).second;
        }
        else if (!lRestOfEnd)
        {
            lMapped += lByte;
        }
    }
    return lMapped;
}

} // namespace KySerialTool
