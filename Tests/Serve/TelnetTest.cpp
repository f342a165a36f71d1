// The server's half of telnet and RFC 2217, byte by byte.

#include "kyserial/Serve/Tcp/Telnet.h"

#include <gtest/gtest.h>

using namespace KySerialTool;

namespace
{

std::string Bytes(std::initializer_list<int> aBytes)
{
    std::string lText;
    for (const int lByte : aBytes)
    {
        lText += static_cast<char>(lByte);
    }
    return lText;
}

class TelnetTest : public testing::Test, private Telnet::Sink
{
protected:
    /// \return What the server answers.
    std::string Receive(const std::string& aText, size_t aPiece = 1000)
    {
        std::string lReply;
        for (size_t lDone = 0; lDone < aText.size(); lDone += aPiece)
        {
            const std::string lPart = aText.substr(lDone, aPiece);
            mTelnet.Receive(reinterpret_cast<const uint8_t*>(lPart.data()), lPart.size(), *this, lReply);
        }
        return lReply;
    }

    Telnet mTelnet;
    std::string mData;
    std::string mCommands;

private:
    void TakeBytes(const uint8_t* aBytes, size_t aCount) override
    {
        EXPECT_GT(aCount, 0U);
        mData.append(reinterpret_cast<const char*>(aBytes), aCount);
    }
    void TakeCommand(ComPortCommand aCommand, const std::string& aValue) override
    {
        mCommands += std::to_string(static_cast<int>(aCommand)) + ':' + std::to_string(aValue.size()) + ' ';
    }
};

TEST_F(TelnetTest, DataAndCommandsInPiecesOfAnySize)
{
    const std::string lText = "AB" + Bytes({255, 255}) + "C" +
                              Bytes({255, 250, 44, 1, 0, 0, 255, 255, 7, 255, 240}) + "D\r" + Bytes({0}) +
                              "E\r\nF" + Bytes({255, 241}) + "G";
    for (const size_t lPiece : {1U, 2U, 3U, 5U, 1000U})
    {
        mTelnet = Telnet();
        mData.clear();
        mCommands.clear();
        EXPECT_EQ(Receive(lText, lPiece), "");
        EXPECT_EQ(mData, "AB\xFF"
                         "CD\rE\r\nFG")
            << lPiece;
        EXPECT_EQ(mCommands, "1:4 ") << lPiece; // the doubled byte is one
    }
    EXPECT_TRUE(mTelnet.HasComPort());
    EXPECT_EQ(mTelnet.GetFaults(), 0U);
}

TEST_F(TelnetTest, InBinaryNothingFollowsAReturn)
{
    EXPECT_EQ(Receive(Bytes({255, 251, 0, '\r', 0, 'A'})), "");
    EXPECT_EQ(mData, Bytes({'\r', 0, 'A'}));
}

TEST_F(TelnetTest, OptionsAreAnsweredOnce)
{
    EXPECT_EQ(Receive(Bytes({255, 251, 44})), "");                    // the greeting has asked
    EXPECT_EQ(Receive(Bytes({255, 253, 44})), Bytes({255, 251, 44})); // DO: WILL
    EXPECT_EQ(Receive(Bytes({255, 253, 44})), "");                    // is settled
    EXPECT_EQ(Receive(Bytes({255, 253, 1})), Bytes({255, 251, 1}));   // echo
    EXPECT_EQ(Receive(Bytes({255, 251, 24})), Bytes({255, 254, 24})); // WILL of what nobody knows: DONT
    EXPECT_EQ(Receive(Bytes({255, 253, 24})), Bytes({255, 252, 24})); // DO: WONT
    EXPECT_EQ(Receive(Bytes({255, 254, 24, 255, 252, 24})), "");      // a no to a no
    EXPECT_EQ(Receive(Bytes({255, 254, 44})), Bytes({255, 252, 44})); // taken back
    EXPECT_EQ(Telnet::Greeting(), Bytes({255, 251, 0, 255, 251, 3, 255, 253, 0, 255, 253, 3, 255, 253, 44}));
}

TEST_F(TelnetTest, RubbishIsDroppedAndCounted)
{
    Receive(Bytes({255, 250}) + std::string(100000, 'x') + Bytes({255, 240})); // too long
    EXPECT_EQ(mTelnet.GetFaults(), 1U);
    Receive(Bytes({255, 250, 255, 240}));                // empty
    Receive(Bytes({255, 250, 44, 99, 255, 240}));        // no command
    Receive(Bytes({255, 250, 31, 1, 255, 240}));         // of another option
    Receive(Bytes({255, 250, 44, 1, 2, 255, 251, 'A'})); // no end
    EXPECT_EQ(mTelnet.GetFaults(), 5U);
    EXPECT_EQ(mCommands, "");
    EXPECT_EQ(mData, "A");
}

TEST_F(TelnetTest, AnswersDoubleTheirEscapes)
{
    EXPECT_EQ(Telnet::Answer(ComPortCommand::SetBaudRate, Bytes({0, 0, 255, 1})),
              Bytes({255, 250, 44, 101, 0, 0, 255, 255, 1, 255, 240}));
}

} // namespace
