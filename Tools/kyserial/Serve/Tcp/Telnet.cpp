#include "kyserial/Serve/Tcp/Telnet.h"

namespace KySerialTool
{

namespace
{

constexpr uint8_t cEnd = 240; // of a subnegotiation
constexpr uint8_t cBegin = 250;
constexpr uint8_t cWill = 251;
constexpr uint8_t cWont = 252;
constexpr uint8_t cDo = 253;
constexpr uint8_t cDont = 254;
constexpr uint8_t cEscape = 255;

constexpr uint8_t cBinary = 0;
constexpr uint8_t cEcho = 1;
constexpr uint8_t cNoGoAhead = 3;

void Say(std::string& aReply, uint8_t aCommand, uint8_t aOption)
{
    for (const uint8_t lByte : {cEscape, aCommand, aOption})
    {
        aReply += static_cast<char>(lByte);
    }
}

} // namespace

// Binary both ways, so that the port's bytes pass as they are; and the client is to set the line by the com port option.
std::string Telnet::Greeting()
{
    std::string lText;
    for (const uint8_t lCommand : {cWill, cDo})
    {
        Say(lText, lCommand, cBinary);
        Say(lText, lCommand, cNoGoAhead);
    }
    Say(lText, cDo, cComPort);
    return lText;
}

void Telnet::Encode(const uint8_t* aData, size_t aSize, std::string& aOut)
{
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        aOut.append(aData[lIndex] == cEscape ? 2 : 1, static_cast<char>(aData[lIndex]));
    }
}

std::string Telnet::Answer(ComPortCommand aCommand, const std::string& aValue)
{
    std::string lText;
    Say(lText, cBegin, cComPort);
    lText += static_cast<char>(static_cast<uint8_t>(aCommand) + cServerOffset);
    Encode(reinterpret_cast<const uint8_t*>(aValue.data()), aValue.size(), lText);
    lText += static_cast<char>(cEscape);
    lText += static_cast<char>(cEnd);
    return lText;
}

void Telnet::Receive(const uint8_t* aData, size_t aSize, Sink& aSink, std::string& aReply)
{
    size_t lBegin = 0; // of the bytes that are not passed on yet
    const auto lPass = [&](size_t aEnd)
    {
        if (aEnd > lBegin)
        {
            aSink.TakeBytes(aData + lBegin, aEnd - lBegin);
        }
        lBegin = aEnd + 1;
    };
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        const uint8_t lByte = aData[lIndex];
        const bool lAfterReturn = mState == State::Return;
        switch (mState)
        {
        case State::Data:
        case State::Return:
            mState = lByte == cEscape                  ? State::Command
                     : lByte == '\r' && !mHas[cBinary] ? State::Return
                                                       : State::Data;
            if (lByte == cEscape || (lAfterReturn && lByte == '\0'))
            {
                // A client that has not agreed to binary sends a carriage return as CR NUL; the port gets the CR alone.
                lPass(lIndex);
            }
            break;
        case State::Command:
            if (lByte == cEscape) // the byte 255
            {
                lBegin = lIndex;
                mState = State::Data;
            }
            else
            {
                lBegin = lIndex + 1;
                TakeControl(lByte, aReply);
            }
            break;
        case State::Option:
            lBegin = lIndex + 1;
            TakeOption(lByte, aReply);
            mState = State::Data;
            break;
        case State::Body:
        case State::BodyCommand:
            lBegin = lIndex + 1;
            TakeBody(lByte, aSink);
            break;
        }
    }
    // A CR at the end of a piece goes out at once. The state remembers it for a NUL that may follow.
    if (mState == State::Data || mState == State::Return)
    {
        lPass(aSize);
    }
}

// What a terminal's user may do with a host (interrupt it, ask whether it is there) has no meaning for a port.
void Telnet::TakeControl(uint8_t aByte, std::string& /*aReply*/)
{
    mState = State::Data;
    if (aByte == cBegin)
    {
        mBody.clear();
        mTooLong = false;
        mState = State::Body;
    }
    else if (aByte >= cWill && aByte < cEscape)
    {
        mCommand = aByte;
        mState = State::Option;
    }
}

// Only a change is answered: two sides that confirm confirmations never end.
void Telnet::TakeOption(uint8_t aOption, std::string& aReply)
{
    const bool lIsOffer = mCommand == cWill || mCommand == cWont;
    const bool lWanted = mCommand == cWill || mCommand == cDo;
    const bool lKnown =
        aOption == cBinary || aOption == cNoGoAhead || aOption == cComPort || (aOption == cEcho && !lIsOffer);
    bool& lState = lIsOffer ? mHas.at(aOption) : mUses.at(aOption);
    if (lWanted && !lKnown)
    {
        Say(aReply, lIsOffer ? cDont : cWont, aOption);
        return;
    }
    if (lState == lWanted)
    {
        return;
    }
    lState = lWanted;
    // The greeting has asked for these, so that the client's yes is the answer.
    const bool lAsked = aOption == cBinary || aOption == cNoGoAhead || (lIsOffer && aOption == cComPort);
    if (!lWanted || !lAsked)
    {
        Say(aReply, lIsOffer ? (lWanted ? cDo : cDont) : (lWanted ? cWill : cWont), aOption);
    }
}

void Telnet::TakeBody(uint8_t aByte, Sink& aSink)
{
    if (mState == State::Body && aByte == cEscape)
    {
        mState = State::BodyCommand;
        return;
    }
    if (mState == State::BodyCommand && aByte != cEscape)
    {
        mState = State::Data;
        if (aByte == cEnd)
        {
            EndBody(aSink);
        }
        else
        {
            ++mFaults; // the end is missing; what comes now is data again
        }
        return;
    }
    mState = State::Body;
    // A client that never ends it must not fill memory. What is cut off counts as a fault at its end.
    mTooLong = mTooLong || mBody.size() == cLongest;
    if (!mTooLong)
    {
        mBody += static_cast<char>(aByte);
    }
}

void Telnet::EndBody(Sink& aSink)
{
    const bool lIsComPort = mBody.size() >= 2 && static_cast<uint8_t>(mBody[0]) == cComPort && !mTooLong;
    const uint8_t lCommand = lIsComPort ? static_cast<uint8_t>(mBody[1]) : UINT8_MAX;
    if (lCommand > static_cast<uint8_t>(ComPortCommand::PurgeData))
    {
        ++mFaults;
        return;
    }
    mHas[cComPort] = true; // a client that uses it need not have asked
    aSink.TakeCommand(static_cast<ComPortCommand>(lCommand), mBody.substr(2));
}

} // namespace KySerialTool
