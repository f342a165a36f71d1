#pragma once

#include "Support/AllocationCounter.h"
#include "Support/WaitFor.h"
#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/ServedDevice.h"
#include "kyserial/Serve/ServiceLog.h"
#include "kyserial/Serve/Tcp/Network.h"
#include "kyserial/Serve/Tcp/TcpHost.h"

#include <Platform/Console.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace KyTest
{

/// A device of the service for which there is no thread when it has something to do.
/// \tparam Shortage  For its life the calling thread's allocation of a number fails, or the system refuses threads.
template<typename Shortage>
class ServedDeviceTest : public testing::Test
{
protected:
    ServedDeviceTest()
    {
        KySerialTool::ServiceLogSettings lSettings;
        lSettings.mLevel = KySerialTool::LogLevel::Error; // nothing fails here
        EXPECT_EQ(mLog.Use(lSettings), "");
        std::vector<KySerialTool::ConfigurationFault> lFaults;
        mEntry = KySerialTool::ParseServeConfiguration(
                     "[[device]]\nname = 'lens'\ndevice = 'sim'\n[[device.port]]\nport = 'bulk1'\n"
                     "host = 'tcp://:0'\n",
                     lFaults)
                     .mDevices.at(0);
        EXPECT_TRUE(lFaults.empty());
    }

    void Make() { mDevice.emplace(mEntry, mConsole, mNetwork, mLog); }
    /// The port as it is reached; empty while it does not run.
    std::string GetHost() const
    {
        const std::vector<KySerialTool::ServedPortStatus> lPorts = mDevice->GetStatus().mPorts;
        return !lPorts.empty() && lPorts[0].mRuns ? lPorts[0].mHost : std::string();
    }
    bool WaitForPort()
    {
        return WaitFor(
            [this]
            {
                mDevice->Look();
                return !GetHost().empty();
            });
    }
    /// Asks the device to end while there is a shortage. One that is still busy ends without another thread; then the next one is asked.
    bool AskToEndWithoutThread()
    {
        bool lIsGood = true;
        for (bool lIsAsked = false; lIsGood && !lIsAsked;)
        {
            {
                const Shortage lShortage(1);
                mDevice->AskToEnd();
                lIsAsked = AllocationCounter::GetCount() > 0; // for the thread
            }
            if (!lIsAsked)
            {
                lIsGood = WaitFor([this] { return mDevice->HasEnded(); });
                Make();
                lIsGood = lIsGood && WaitForPort();
            }
        }
        return lIsGood;
    }

    KyToolPlatform::Console mConsole;
    KySerialTool::Network mNetwork;
    KySerialTool::ServiceLog mLog;
    KySerialTool::ServedDeviceEntry mEntry;
    std::optional<KySerialTool::ServedDevice> mDevice;
};

TYPED_TEST_SUITE_P(ServedDeviceTest);

TYPED_TEST_P(ServedDeviceTest, ANewOneStartsWithALaterLook)
{
    int lCount = 0;
    {
        const AllocationCounter lCounter;
        this->Make();
        lCount = AllocationCounter::GetCount(); // the last one is for the thread
    }
    this->mDevice.reset();
    {
        const TypeParam lShortage(lCount);
        this->Make();
    }
    EXPECT_FALSE(this->mDevice->GetStatus().mConnected);
    EXPECT_TRUE(this->WaitForPort());
}

TYPED_TEST_P(ServedDeviceTest, OneThatIsToEndDoesSoWithALaterLook)
{
    this->Make();
    ASSERT_TRUE(this->WaitForPort());
    ASSERT_TRUE(this->AskToEndWithoutThread());
    EXPECT_FALSE(this->mDevice->HasEnded());
    EXPECT_TRUE(WaitFor(
        [this]
        {
            this->mDevice->Look();
            return this->mDevice->HasEnded();
        }));
}

// It waits for no thread, and ends the ports itself: their place is free then.
TYPED_TEST_P(ServedDeviceTest, TheDestructorEndsIt)
{
    this->Make();
    ASSERT_TRUE(this->WaitForPort());
    ASSERT_TRUE(this->AskToEndWithoutThread());
    const std::string lHost = this->GetHost();
    {
        const TypeParam lShortage(1);
        this->mDevice.reset();
    }
    KySerialTool::TcpSettings lPlace;
    lPlace.mPort = static_cast<uint16_t>(std::stoi(lHost.substr(lHost.rfind(':') + 1)));
    EXPECT_NO_THROW(KySerialTool::TcpHost(lPlace, this->mNetwork));
}

REGISTER_TYPED_TEST_SUITE_P(ServedDeviceTest, ANewOneStartsWithALaterLook, OneThatIsToEndDoesSoWithALaterLook,
                            TheDestructorEndsIt);

} // namespace KyTest
