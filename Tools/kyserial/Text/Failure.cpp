#include "kyserial/Text/Failure.h"

#include "CommandLine/PlainText.h"

#include <array>
#include <cstdio>

namespace KySerialTool
{

std::string ResultText(const KyResult& aResult)
{
    std::string lText = aResult.GetCodeString().GetAscii();
    if (lText == "UNKNOWN")
    {
        // The adapter's own code: its number is all that can be looked up.
        std::array<char, 16> lNumber{};
        std::snprintf(lNumber.data(), lNumber.size(), "0x%04X", static_cast<unsigned>(aResult.GetCode()));
        lText = lNumber.data();
    }
    if (aResult.GetDescription().GetLength() > 0)
    {
        lText += std::string(": ") + aResult.GetDescription().GetAscii();
    }
    return lText;
}

void Check(const KyResult& aResult, const std::string& aWhat)
{
    if (!aResult.IsOK())
    {
        throw OperationError(aWhat + ": " + ResultText(aResult), aResult.GetCode());
    }
}

void PrintNote(const std::string& aText)
{
    std::fputs((aText + '\n').c_str(), stderr);
    std::fflush(stderr);
}

void PrintError(const std::string& aText)
{
    PrintNote("kyserial: " + KyCommandLine::Escaped(aText));
}

} // namespace KySerialTool
