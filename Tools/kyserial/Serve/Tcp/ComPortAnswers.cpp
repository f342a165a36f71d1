#include "kyserial/Serve/Tcp/ComPortAnswers.h"

#include <algorithm>
#include <array>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint8_t cModemState = 0xB0; // CTS, DSR and carrier: a camera is there and can take bytes

/// Parity as RFC 2217 numbers it.
constexpr std::array cParities = {std::pair(KyParityNone, 1U), std::pair(KyParityOdd, 2U),
                                  std::pair(KyParityEven, 3U)};

std::string OneByte(uint32_t aValue)
{
    return std::string(1, static_cast<char>(aValue));
}

std::string FourBytes(uint32_t aValue)
{
    std::string lText;
    for (int lShift = 24; lShift >= 0; lShift -= 8)
    {
        lText += static_cast<char>(aValue >> lShift & 0xFF);
    }
    return lText;
}

} // namespace

size_t ComPortValueSize(ComPortCommand aCommand)
{
    switch (aCommand)
    {
    case ComPortCommand::Signature:
    case ComPortCommand::Suspend:
    case ComPortCommand::Resume:
        return 0;
    case ComPortCommand::SetBaudRate:
        return 4;
    default:
        return 1;
    }
}

uint32_t ComPortValue(ComPortCommand aCommand, const std::string& aText)
{
    uint32_t lValue = 0;
    for (const char lByte : aText.substr(0, ComPortValueSize(aCommand)))
    {
        lValue = lValue << 8 | static_cast<uint8_t>(lByte);
    }
    return lValue;
}

// The number 0 is a question. Mark and space parity and 1.5 stop bits, which cameras lack, set nothing either:
// the answer has what is in effect.
bool ToBridgeRequest(ComPortCommand aCommand, uint32_t aValue, KySerialBridgeRequest& aRequest)
{
    switch (aCommand)
    {
    case ComPortCommand::SetBaudRate:
        aRequest.mBaudRate = aValue;
        return true;
    case ComPortCommand::SetParity:
        for (const auto& [lParity, lNumber] : cParities)
        {
            aRequest.mSetsParity = aRequest.mSetsParity || lNumber == aValue;
            aRequest.mParity = lNumber == aValue ? lParity : aRequest.mParity;
        }
        return true;
    case ComPortCommand::SetStopSize:
        aRequest.mStopBits = aValue <= 2 ? aValue : 0;
        return true;
    default:
        return false;
    }
}

std::string LineAnswer(ComPortCommand aCommand, const KySerialPortConfiguration& aLine, uint32_t aAsked)
{
    if (aCommand == ComPortCommand::SetBaudRate)
    {
        // Every request has an answer, so a device that does not say its rate is taken to have what was asked
        // for.
        return Telnet::Answer(aCommand, FourBytes(aLine.mBaudRate != 0 ? aLine.mBaudRate : aAsked));
    }
    uint32_t lNumber = 1; // no parity, one stop bit: what a device that does not say has most likely
    if (aCommand == ComPortCommand::SetStopSize)
    {
        lNumber = aLine.mStopBits != 0 ? aLine.mStopBits : lNumber;
    }
    else
    {
        const auto* const lParity =
            std::find_if(cParities.begin(), cParities.end(),
                         [&](const auto& aEntry) { return aEntry.first == aLine.mParity; });
        lNumber = lParity != cParities.end() ? lParity->second : lNumber;
    }
    return Telnet::Answer(aCommand, OneByte(lNumber));
}

std::string ControlAnswer(uint32_t aValue, uint8_t& aControls)
{
    // DTR and RTS have three numbers in a row each: the question, on, off.
    const auto lLine = [&](uint32_t aQuestion, uint8_t aBit)
    {
        if (aValue != aQuestion)
        {
            aControls = static_cast<uint8_t>(aValue == aQuestion + 1 ? aControls | aBit : aControls & ~aBit);
        }
        return (aControls & aBit) != 0 ? aQuestion + 1 : aQuestion + 2;
    };
    uint32_t lAnswer = 1; // no flow control of what goes out
    if (aValue >= 4 && aValue <= 6)
    {
        lAnswer = 6; // no break
    }
    else if (aValue >= 7 && aValue <= 9)
    {
        lAnswer = lLine(7, 1);
    }
    else if (aValue >= 10 && aValue <= 12)
    {
        lAnswer = lLine(10, 2);
    }
    else if (aValue >= 13 && aValue <= 16)
    {
        lAnswer = 14; // no flow control of what comes in
    }
    std::string lText = Telnet::Answer(ComPortCommand::SetControl, OneByte(lAnswer));
    const bool lIsQuestion = aValue == 7 || aValue == 10;
    return lIsQuestion ? lText
                       : lText + Telnet::Answer(ComPortCommand::NotifyModemState, OneByte(cModemState));
}

std::string Confirmation(ComPortCommand aCommand, uint32_t aValue)
{
    std::string lText = Telnet::Answer(aCommand, OneByte(aValue));
    if (aCommand == ComPortCommand::SetModemStateMask)
    {
        lText += Telnet::Answer(ComPortCommand::NotifyModemState, OneByte(cModemState & aValue));
    }
    return lText;
}

} // namespace KySerialTool
