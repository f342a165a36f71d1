#include "kyserial/Bus/MemoryChange.h"
#include "Support/CapturedRun.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>

namespace
{

using namespace KySerialTool;

const char* const cWhat = "this erases the flash memory on bulk3";

class MemoryChangeTest : public testing::Test
{
protected:
    /// The text of the OperationError that aCall throws.
    static std::string ErrorOf(const std::function<void()>& aCall)
    {
        try
        {
            aCall();
        }
        catch (const OperationError& lError)
        {
            return lError.what();
        }
        return "nothing was thrown";
    }
    /// The same of a change of 64 bytes from 0x10 on.
    std::string ErrorOfChange(const std::string& aDone,
                              const std::function<void(const MemoryProgress::Advance&)>& aSteps)
    {
        MemoryProgress lProgress(mContext, "working", aDone, 0x10, 64);
        return ErrorOf([&] { lProgress.Run(aSteps); });
    }

    KyToolPlatform::Console mConsole;
    Context mContext{mConsole};
};

TEST_F(MemoryChangeTest, AWishInTheCommandLineIsNotAskedFor)
{
    EXPECT_NO_THROW(ConfirmChange(mContext, true, false, cWhat));
    EXPECT_NO_THROW(ConfirmChange(mContext, true, true, cWhat));
}

TEST_F(MemoryChangeTest, WithoutATerminalTheChangeIsRefused)
{
    const KyTest::StandardInput lInput("y\n"); // a file, in which a letter is no consent
    for (const bool lInputUsed : {false, true})
    {
        try
        {
            ConfirmChange(mContext, false, lInputUsed, cWhat);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const UsageError& lError)
        {
            EXPECT_EQ(std::string(cWhat) + "; give -y, since there is no terminal to ask on", lError.what());
        }
    }
}

TEST_F(MemoryChangeTest, AnInterruptionIsAFailure)
{
    EXPECT_NO_THROW(ThrowIfInterrupted(mContext));
    mConsole.Interrupt();
    EXPECT_EQ("interrupted", ErrorOf([&] { ThrowIfInterrupted(mContext); }));
}

TEST_F(MemoryChangeTest, AFailureSaysHowFarTheChangeHasCome)
{
    const auto lFail = [](size_t aSteps)
    {
        return [aSteps](const MemoryProgress::Advance& aAdvance)
        {
            for (size_t lStep = 0; lStep < aSteps; ++lStep)
            {
                aAdvance(16);
            }
            throw OperationError("the chip is busy");
        };
    };
    EXPECT_EQ("the chip is busy; nothing is written, the next step may have begun",
              ErrorOfChange("written", lFail(0)));
    EXPECT_EQ("the chip is busy; 0x000010 to 0x00001f is written, the next step may have begun",
              ErrorOfChange("written", lFail(1)));
    EXPECT_EQ("the chip is busy; 0x000010 to 0x00002f is erased, the next step may have begun",
              ErrorOfChange("erased", lFail(2)));
    EXPECT_EQ("the chip is busy", ErrorOfChange("", lFail(2))) << "a read changes nothing";
}

TEST_F(MemoryChangeTest, BytesThatNeededNoStepCountAsDone)
{
    MemoryProgress lProgress(mContext, "working", "written", 0x1000, 64);
    lProgress.Skip(32);
    EXPECT_EQ("refused; 0x001000 to 0x00101f is written, the next step may have begun",
              ErrorOf([&] { lProgress.Run([](const auto&) { throw OperationError("refused"); }); }));
}

TEST_F(MemoryChangeTest, AnInterruptionEndsTheChangeBetweenTwoSteps)
{
    int lSteps = 0;
    const auto lInterrupted = [&](const MemoryProgress::Advance& aAdvance)
    {
        ++lSteps;
        mConsole.Interrupt();
        aAdvance(16);
        ++lSteps;
    };
    EXPECT_EQ("interrupted; 0x000010 to 0x00001f is written, the next step may have begun",
              ErrorOfChange("written", lInterrupted));
    EXPECT_EQ(1, lSteps);
    EXPECT_EQ("interrupted; nothing is written, the next step may have begun",
              ErrorOfChange("written", lInterrupted))
        << "one that came before";
    EXPECT_EQ(1, lSteps);
}

TEST_F(MemoryChangeTest, OtherFailuresPassAsTheyAre)
{
    MemoryProgress lProgress(mContext, "working", "written", 0, 64);
    EXPECT_THROW(lProgress.Run([](const auto&) { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_NO_THROW(lProgress.Run([](const auto& aAdvance) { aAdvance(64); }));
}

} // namespace
