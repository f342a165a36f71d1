#include "kyserial/Terminal/TerminalLink.h"

#include "Support/Process.h"
#include "kyserial/Text/Failure.h"

#include <Platform/PseudoTerminal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

using namespace KySerialTool;
using KyTest::Process;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace
{

namespace Files = std::filesystem;

class TerminalLinkTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!KyToolPlatform::PseudoTerminal::IsSupported())
        {
            GTEST_SKIP() << "this system has no terminals to link to";
        }
        ASSERT_TRUE(KyTest::WriteFile(mTerminal, ""));
    }
    ~TerminalLinkTest() override
    {
        Files::remove(mPath);
        Files::remove(mTerminal);
    }
    bool LeadsTo(const std::string& aTarget) const
    {
        return Files::is_symlink(mPath) && Files::read_symlink(mPath) == aTarget;
    }

    const std::string mPath = Process::TemporaryFile(".link");
    const std::string mTerminal = Process::TemporaryFile(".terminal");
};

TEST_F(TerminalLinkTest, IsThereForTheLifeOfTheObject)
{
    {
        const TerminalLink lLink(mPath, mTerminal);
        EXPECT_TRUE(LeadsTo(mTerminal));
    }
    EXPECT_FALSE(Files::is_symlink(mPath));
}

TEST_F(TerminalLinkTest, TakesThePlaceOfOneThatLeadsNowhere)
{
    Files::create_symlink(mTerminal + "gone", mPath);
    const TerminalLink lLink(mPath, mTerminal);
    EXPECT_TRUE(LeadsTo(mTerminal));
}

// The number of a terminal is given again when its program was killed.
TEST_F(TerminalLinkTest, TakesThePlaceOfOneToTheSameTerminal)
{
    Files::create_symlink(mTerminal, mPath);
    const TerminalLink lLink(mPath, mTerminal);
    EXPECT_TRUE(LeadsTo(mTerminal));
}

TEST_F(TerminalLinkTest, LeavesALinkToSomethingElseAlone)
{
    const std::string lOther = Process::ProgramFolder();
    Files::create_symlink(lOther, mPath);
    EXPECT_THAT([&] { const TerminalLink lLink(mPath, mTerminal); },
                ThrowsMessage<OperationError>(HasSubstr("exists already and leads to " + lOther)));
    EXPECT_TRUE(LeadsTo(lOther));
}

TEST_F(TerminalLinkTest, LeavesAFileAlone)
{
    ASSERT_TRUE(KyTest::WriteFile(mPath, "precious"));
    EXPECT_THAT([&] { const TerminalLink lLink(mPath, mTerminal); },
                ThrowsMessage<OperationError>(HasSubstr(mPath + " exists already; remove it")));
    EXPECT_EQ(KyTest::ReadFile(mPath), "precious");
}

TEST_F(TerminalLinkTest, SaysWhyThereIsNoPlaceForIt)
{
    EXPECT_THAT([&] { const TerminalLink lLink(mPath + "/below", mTerminal); },
                ThrowsMessage<OperationError>(HasSubstr("cannot make the link " + mPath + "/below: ")));
}

TEST_F(TerminalLinkTest, LeavesWhatHasTakenItsPlaceAlone)
{
    {
        const TerminalLink lLink(mPath, mTerminal);
        Files::remove(mPath);
        ASSERT_TRUE(KyTest::WriteFile(mPath, "precious"));
    }
    EXPECT_EQ(KyTest::ReadFile(mPath), "precious");
}

} // namespace
