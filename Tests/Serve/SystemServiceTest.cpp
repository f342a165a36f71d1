// "kyserial serve --install-service": the service control manager starts and stops the program.

#include "Support/Process.h"
#include "Support/WaitFor.h"
#include "Tools/ToolRun.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Platform/SystemService.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

class SystemServiceTest : public testing::Test
{
protected:
    SystemServiceTest()
        : mName("kytest" + std::to_string(std::hash<std::string>()(mFile) % 1000000007)), mLog(mFile + ".log")
    {
    }
    ~SystemServiceTest() override
    {
        std::remove(mFile.c_str());
        std::remove(mLog.c_str());
    }

    bool Configure(const std::string& aLog)
    {
        return WriteFile(mFile, "name = '" + mName + "'\n" + aLog +
                                    "[[device]]\nname = 'lens'\ndevice = 'sim'\n[[device.port]]\nport = "
                                    "'bulk1'\nhost = 'tcp://:0'\n");
    }
    bool LogHas(const std::string& aText) const
    {
        return WaitFor([&] { return ReadFile(mLog).find(aText) != std::string::npos; });
    }
    /// A command of the system.
    static int Do(const std::string& aCommand)
    {
        return std::system(aCommand.c_str()); // NOLINT(concurrency-mt-unsafe): no other thread
    }

    const std::string mFile = Process::TemporaryFile(" with blanks.toml");
    const std::string mName;
    const std::string mLog;
};

TEST_F(SystemServiceTest, ASystemWithoutSuchServicesSaysWhatToUse)
{
    if (KyToolPlatform::SystemService::IsSupported())
    {
        GTEST_SKIP() << "this system has such services";
    }
    ASSERT_TRUE(Configure({}));
    const std::string lRest =
        ": belongs to Windows; here systemd starts the service, by its unit kyserial.service: "
        "'sudo systemctl enable --now kyserial', with CONFIG as /etc/kyserial/service.toml\n";
    ToolResult lResult = RunTool({"serve", "--install-service", mFile});
    EXPECT_EQ(lResult.mStatus, 2);
    EXPECT_EQ(lResult.mError, "kyserial: --install-service" + lRest);
    lResult = RunTool({"serve", "--remove-service"});
    EXPECT_EQ(lResult.mStatus, 2);
    EXPECT_EQ(lResult.mError, "kyserial: --remove-service" + lRest);
}

TEST_F(SystemServiceTest, AServiceWithoutALogIsNotInstalled)
{
    if (!KyToolPlatform::SystemService::IsSupported())
    {
        GTEST_SKIP() << "this system has no such services";
    }
    ASSERT_TRUE(Configure({}));
    ToolResult lResult = RunTool({"serve", "--install-service", mFile});
    EXPECT_EQ(lResult.mStatus, 2);
    EXPECT_THAT(lResult.mError, HasSubstr("log: a service of Windows has no error output; name a file"));
    lResult = RunTool({"serve", "--remove-service", "--name", mName});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_THAT(lResult.mError, HasSubstr("cannot remove the service " + mName + ": "));
}

TEST_F(SystemServiceTest, IsInstalledStartsServesStopsAndIsRemoved)
{
    if (!KyToolPlatform::SystemService::IsSupported())
    {
        GTEST_SKIP() << "this system has no such services";
    }
    ASSERT_TRUE(
        Configure("log = '" + std::filesystem::path(mLog).filename().string() + "'\n")); // beside the file
    ToolResult lResult = RunTool({"serve", "--install-service", mFile});
    ASSERT_EQ(lResult.mStatus, 0) << lResult.mError;
    lResult = RunTool({"serve", "--install-service", mFile});
    EXPECT_EQ(lResult.mStatus, 1); // it is there already
    EXPECT_EQ(Do("net start " + mName), 0);
    const std::string lStart = "lens bulk1 is tcp://127.0.0.1:";
    ASSERT_TRUE(LogHas(lStart)) << ReadFile(mLog);
    const std::string lText = ReadFile(mLog);
    boost::asio::io_context lContext;
    boost::asio::ip::tcp::socket lClient(lContext);
    lClient.connect({boost::asio::ip::address_v4::loopback(),
                     static_cast<uint16_t>(std::stoi(lText.substr(lText.find(lStart) + lStart.size())))});
    boost::asio::write(lClient, boost::asio::buffer(std::string("STATUS?\r\n")));
    std::string lAnswer;
    boost::asio::read_until(lClient, boost::asio::dynamic_buffer(lAnswer), '\n');
    EXPECT_THAT(lAnswer, HasSubstr("STATUS READY"));
    EXPECT_EQ(Do("net stop " + mName), 0);
    EXPECT_TRUE(LogHas("Z ended\n")) << ReadFile(mLog);
    lResult = RunTool({"serve", "--remove-service", "--name", mName});
    EXPECT_EQ(lResult.mStatus, 0) << lResult.mError;
    lResult = RunTool({"serve", "--remove-service", "--name", mName});
    EXPECT_EQ(lResult.mStatus, 1);
}

} // namespace
