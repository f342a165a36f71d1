#include "kyserial/Record/Pcapng.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cSectionHeader = 0x0A0D0D0A;
constexpr uint32_t cByteOrder = 0x1A2B3C4D;
constexpr uint32_t cInterface = 1;
constexpr uint32_t cEnhancedPacket = 6;
constexpr uint16_t cRtacSerial = 250;

// Kinds of packets.
constexpr uint8_t cStatusChange = 0;
constexpr uint8_t cSentData = 1;
constexpr uint8_t cReceivedData = 2;

// Options of a block.
constexpr uint16_t cEndOfOptions = 0;
constexpr uint16_t cComment = 1;
constexpr uint16_t cFlags = 2;
constexpr uint16_t cProgram = 4;
constexpr uint16_t cTimeResolution = 9;
constexpr uint32_t cInbound = 1;
constexpr uint32_t cOutbound = 2;

constexpr size_t cAlignment = 4;
constexpr size_t cMostBytes = 65535; // of an option

/// A number in the file's byte order, which is little-endian on every machine.
template<typename Number>
std::string Little(Number aNumber)
{
    std::string lText;
    for (size_t lByte = 0; lByte < sizeof(Number); ++lByte)
    {
        lText += static_cast<char>(aNumber >> (8 * lByte) & 0xFF);
    }
    return lText;
}

/// A number of a packet's own header.
std::string Big(uint32_t aNumber)
{
    std::string lText = Little(aNumber);
    std::reverse(lText.begin(), lText.end());
    return lText;
}

std::string Padded(std::string aText)
{
    aText.resize((aText.size() + cAlignment - 1) / cAlignment * cAlignment);
    return aText;
}

std::string Option(uint16_t aCode, const std::string& aValue)
{
    // The field for the length has 16 bits, so a longer note loses its end.
    const std::string lValue = aValue.substr(0, cMostBytes);
    return Little(aCode) + Little(static_cast<uint16_t>(lValue.size())) + Padded(lValue);
}

std::string EndOfOptions()
{
    return Option(cEndOfOptions, "");
}

/// A block is between its length and its length again.
std::string Framed(uint32_t aType, const std::string& aBody)
{
    constexpr size_t cFrame = 12;
    const std::string lLength = Little(static_cast<uint32_t>(aBody.size() + cFrame));
    return Little(aType) + lLength + aBody + lLength;
}

} // namespace

std::string PcapngSection::Header()
{
    // The section grows for as long as the log is open, so its length is not known when its header is
    // written.
    constexpr uint64_t cUnknownLength = ~uint64_t(0);
    const std::string lSection = Little(cByteOrder) + Little(uint16_t(1)) + Little(uint16_t(0)) +
                                 Little(cUnknownLength) + Option(cProgram, "kyserial") + EndOfOptions();
    constexpr char cNanoseconds = 9; // 10^-9 s; without it times are read as microseconds
    const std::string lInterface = Little(cRtacSerial) + Little(uint16_t(0)) + Little(uint32_t(0)) +
                                   Option(cTimeResolution, std::string(1, cNanoseconds)) + EndOfOptions();
    return Framed(cSectionHeader, lSection) + Framed(cInterface, lInterface);
}

std::string PcapngSection::Packet(Time aTime, bool aSent, const uint8_t* aData, size_t aSize) const
{
    const std::string lData(reinterpret_cast<const char*>(aData), aSize);
    return Block(aTime, aSent ? cSentData : cReceivedData, lData,
                 Option(cFlags, Little(aSent ? cOutbound : cInbound)));
}

std::string PcapngSection::Note(Time aTime, const std::string& aText) const
{
    return Block(aTime, cStatusChange, "", Option(cComment, aText));
}

bool PcapngSection::IsHeader(const std::string& aBytes)
{
    return aBytes.starts_with(Little(cSectionHeader));
}

std::string PcapngSection::Block(Time aTime, uint8_t aKind, const std::string& aData,
                                 const std::string& aOptions) const
{
    using std::chrono::microseconds;
    using std::chrono::nanoseconds;
    constexpr uint32_t cSecond = 1000000; // a packet's own header has microseconds
    const auto lNow =
        static_cast<uint64_t>(std::chrono::floor<nanoseconds>(aTime.time_since_epoch()).count());
    // The system's clock may have been set back since the section began, and the header has no negative
    // times.
    const auto lSince = static_cast<uint64_t>(
        std::max(std::chrono::floor<microseconds>(aTime - mBegin), microseconds(0)).count());
    const std::string lPacket = Big(static_cast<uint32_t>(lSince / cSecond)) +
                                Big(static_cast<uint32_t>(lSince % cSecond)) + static_cast<char>(aKind) +
                                std::string(3, '\0') + aData; // control lines, and a part without meaning
    const std::string lSize = Little(static_cast<uint32_t>(lPacket.size()));
    return Framed(cEnhancedPacket, Little(uint32_t(0)) + Little(static_cast<uint32_t>(lNow >> 32U)) +
                                       Little(static_cast<uint32_t>(lNow)) + lSize + lSize + Padded(lPacket) +
                                       aOptions + EndOfOptions());
}

} // namespace KySerialTool
