#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KySerialTool
{

/// Commands of RFC 2217 as the client sends them; the server's answer to one has its number plus cServerOffset.
enum class ComPortCommand : uint8_t
{
    Signature = 0,
    SetBaudRate = 1,
    SetDataSize = 2,
    SetParity = 3,
    SetStopSize = 4,
    SetControl = 5,
    NotifyLineState = 6,
    NotifyModemState = 7,
    Suspend = 8,
    Resume = 9,
    SetLineStateMask = 10,
    SetModemStateMask = 11,
    PurgeData = 12
};

/// The server's half of a telnet connection with the com port option (RFC 854, RFC 855, RFC 2217): takes what a
/// client sends apart, and answers what concerns telnet alone.
///
/// Nothing that a client sends makes the object larger: a subnegotiation that is longer than cLongest is dropped
/// and counted, and an option that is settled is not answered again.
class Telnet
{
public:
    static constexpr uint8_t cServerOffset = 100;
    static constexpr size_t cLongest = 64; ///< Bytes of a subnegotiation; a signature is the longest of use.

    /// Hears what a client has sent, in order.
    class Sink
    {
    public:
        virtual ~Sink() = default;
        virtual void TakeBytes(const uint8_t* aBytes, size_t aCount) = 0;
        /// \param aValue  What follows the command; of any length.
        virtual void TakeCommand(ComPortCommand aCommand, const std::string& aValue) = 0;
    };

    /// What the server says first: it transmits and takes all eight bits.
    static std::string Greeting();

    /// Takes bytes of the client apart, in pieces of any size.
    /// \param aReply  Receives the answers to telnet's own commands.
    void Receive(const uint8_t* aData, size_t aSize, Sink& aSink, std::string& aReply);

    /// Appends bytes as telnet sends them: 255 twice.
    static void Encode(const uint8_t* aData, size_t aSize, std::string& aOut);

    /// The server's answer to a command.
    static std::string Answer(ComPortCommand aCommand, const std::string& aValue);

    /// Whether the client knows the com port option.
    bool HasComPort() const { return mHas[cComPort]; }

    /// Subnegotiations that were too long, empty, or not ended as they should.
    uint64_t GetFaults() const { return mFaults; }

private:
    static constexpr uint8_t cComPort = 44;

    enum class State
    {
        Data,
        Return, // a CR, which in text mode is followed by LF or NUL
        Command,
        Option,
        Body,
        BodyCommand
    };

    void TakeControl(uint8_t aByte, std::string& aReply);
    void TakeOption(uint8_t aOption, std::string& aReply);
    void TakeBody(uint8_t aByte, Sink& aSink);
    void EndBody(Sink& aSink);

    State mState = State::Data;
    uint8_t mCommand = 0;
    std::string mBody{};
    bool mTooLong = false;
    std::array<bool, 256> mHas{};  // options that the client uses
    std::array<bool, 256> mUses{}; // options that the server uses
    uint64_t mFaults = 0;
};

} // namespace KySerialTool
