#pragma once

#include <KyPlatform/HostSerialPort.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace KyTest
{

/// A terminal program at a bridge's pseudo terminal.
class TerminalUser
{
public:
    explicit TerminalUser(const std::string& aLink)
    {
        EXPECT_TRUE(mStop.Create());
        EXPECT_TRUE(mPort.Open(aLink.c_str()));
        EXPECT_TRUE(mPort.SetTimeouts());
    }

    /// Chooses a rate, with 8N1.
    void Choose(uint32_t aRate)
    {
        KyPlatform::HostLine lLine;
        lLine.mBaudRate = aRate;
        EXPECT_TRUE(mPort.ReadLine());
        EXPECT_TRUE(mPort.SetLine(lLine));
    }

    void Type(const std::string& aText)
    {
        EXPECT_EQ(mPort.Write(aText.data(), static_cast<uint32_t>(aText.size()), mStop).mBytes, aText.size());
    }

    std::string Read(size_t aCount)
    {
        std::string lText;
        std::array<char, 4096> lBuffer{};
        while (lText.size() < aCount)
        {
            const auto lRead = mPort.Read(lBuffer.data(), 4096, mStop);
            if (lRead.mEnd != KyPlatform::HostTransfer::Done)
            {
                break;
            }
            lText.append(lBuffer.data(), lRead.mBytes);
        }
        return lText;
    }

    std::string Ask(const std::string& aText, size_t aCount)
    {
        Type(aText);
        return Read(aCount);
    }

private:
    KyPlatform::StopEvent mStop;
    KyPlatform::HostSerialPort mPort;
};

} // namespace KyTest
