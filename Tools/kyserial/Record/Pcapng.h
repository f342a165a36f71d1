#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KySerialTool
{

/// Blocks of a pcapng file with the traffic of a serial line, as network analysers read them: link type 250,
/// "RTAC serial", times in nanoseconds. Each packet has a header of twelve bytes with its time since the section's beginning and its
/// kind.
class PcapngSection
{
public:
    using Time = std::chrono::system_clock::time_point;

    /// \param aBegin  The time from which the packets' headers count; what lies before it counts as 0.
    explicit PcapngSection(Time aBegin) : mBegin(aBegin) {}

    /// What a section begins with: its header and the description of its only interface. A file may have one
    /// section after another.
    static std::string Header();

    /// Bytes that went over the line. \param aSent  From this program; otherwise to it.
    std::string Packet(Time aTime, bool aSent, const uint8_t* aData, size_t aSize) const;

    /// A packet without bytes that carries a text.
    std::string Note(Time aTime, const std::string& aText) const;

    /// Whether these first bytes of a file are those of a section.
    static bool IsHeader(const std::string& aBytes);

private:
    std::string Block(Time aTime, uint8_t aKind, const std::string& aData, const std::string& aOptions) const;

    const Time mBegin;
};

} // namespace KySerialTool
