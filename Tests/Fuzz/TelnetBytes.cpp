// Whatever a client of RFC 2217 sends, in whatever pieces: data and commands are the same, nothing grows beyond its
// limit, and the server answers no more than it is asked.

#include "Fuzz/FuzzInput.h"
#include "kyserial/Serve/Tcp/Telnet.h"

#include <string>

using namespace KyTest;
using namespace KySerialTool;

namespace
{

struct Heard final : Telnet::Sink
{
    void TakeBytes(const uint8_t* aBytes, size_t aCount) override
    {
        KY_REQUIRE(aCount > 0);
        mData.append(reinterpret_cast<const char*>(aBytes), aCount);
    }
    void TakeCommand(ComPortCommand aCommand, const std::string& aValue) override
    {
        KY_REQUIRE(static_cast<int>(aCommand) <= static_cast<int>(ComPortCommand::PurgeData));
        KY_REQUIRE(aValue.size() <= Telnet::cLongest);
        mCommands += static_cast<char>(aCommand) + aValue + '\n';
    }

    std::string mData{};
    std::string mCommands{};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    FuzzInput lInput(aData, aSize);
    const size_t lPiece = 1 + lInput.TakeByte() % 16;
    const std::vector<uint8_t> lBytes = lInput.TakeRest();
    Telnet lWhole;
    Heard lAtOnce;
    std::string lReply;
    lWhole.Receive(lBytes.data(), lBytes.size(), lAtOnce, lReply);
    Telnet lParts;
    Heard lInPieces;
    std::string lOtherReply;
    for (size_t lDone = 0; lDone < lBytes.size(); lDone += lPiece)
    {
        lParts.Receive(lBytes.data() + lDone, std::min(lPiece, lBytes.size() - lDone), lInPieces,
                       lOtherReply);
    }
    KY_REQUIRE(lAtOnce.mData == lInPieces.mData);
    KY_REQUIRE(lAtOnce.mCommands == lInPieces.mCommands);
    KY_REQUIRE(lReply == lOtherReply);
    KY_REQUIRE(lWhole.GetFaults() == lParts.GetFaults());
    KY_REQUIRE(lReply.size() <= lBytes.size()); // three bytes for three
    KY_REQUIRE(lAtOnce.mData.size() + lAtOnce.mCommands.size() <= 2 * lBytes.size());
    std::string lEncoded;
    Telnet::Encode(lBytes.data(), lBytes.size(), lEncoded);
    Telnet lBack;
    Heard lDecoded;
    std::string lSilence;
    const std::string lBinary("\xFF\xFB\x00", 3); // in which CR is a byte like others
    const std::string lText = lBinary + lEncoded;
    lBack.Receive(reinterpret_cast<const uint8_t*>(lText.data()), lText.size(), lDecoded, lSilence);
    KY_REQUIRE(lDecoded.mData == std::string(lBytes.begin(), lBytes.end()));
    StepCounter::Count();
    return 0;
}
