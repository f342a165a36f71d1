#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Options/Options.h"

#include <CLI/CLI.hpp>

#include <cstdio>

namespace KySerialTool
{

void AddI2COptions(CLI::App& aCommand, I2COptions& aOptions, Context& aContext)
{
    AddPortOption(aCommand, PortKind::Bulk, aOptions.mPort);
    aCommand.add_flag("--fast", aOptions.mFast, "400 kHz instead of 100 kHz");
    AddNumberOption(aCommand, "--retries", 1000, "times",
                    "Repeat a read up to N times when its answer does not come within 50 ms (0)",
                    aOptions.mRetries);
    aCommand.add_flag("-y,--yes", aOptions.mYes, "Do not ask before going ahead");
    aCommand.add_flag("-a,--all", aOptions.mAll, "Take reserved addresses too (0x00 to 0x07, 0x78 to 0x7f)");
    // Taken all the same, so that command lines for i2c-tools run as they are.
    aCommand.add_flag("-f,--force", aOptions.mForce, "No effect here: nothing else can hold an address");
    AddCommonOptions(aCommand, aContext.mCommon);
}

OpenI2CBus::OpenI2CBus(Context& aContext, const I2COptions& aOptions)
    : mDevice(OpenDevice(aContext))
    , mBus(mDevice->GetAdapter(), aOptions.mPort, aOptions.mFast, aOptions.mRetries)
{
}

bool Confirm(Context& aContext, const I2COptions& aOptions, const std::string& aWhat)
{
    if (aOptions.mYes)
    {
        return true;
    }
    const std::string lText = "WARNING! This program can confuse your I2C bus, cause data loss and worse!\n" +
                              aWhat + " on " + PortName(aOptions.mPort) + ".\nContinue? [Y/n] ";
    std::fputs(lText.c_str(), stderr);
    std::fflush(stderr);
    std::string lAnswer;
    const bool lAnswered = ReadLine(aContext.mConsole, lAnswer);
    // An empty line means yes, as in i2c-tools. The end of the input does not.
    if (lAnswered && (lAnswer.empty() || lAnswer == "\r" || lAnswer.front() == 'y' || lAnswer.front() == 'Y'))
    {
        return true;
    }
    // The words are those of i2c-tools, and so is status 0, which the caller returns: a no is no failure.
    std::fputs("Aborting on user request.\n", stderr);
    return false;
}

void AddI2CCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("i2c", "Work on the I2C bus of a bulk port");
    lCommand.footer("Grammar and output are those of i2c-tools; the bus number gives way to --port. "
                    "The bulk port runs I2C meanwhile.\n\n"
                    "Example:\n  kyserial i2c detect -y --device sim --port bulk2");
    AddI2CDetect(lCommand, aContext);
    AddI2CGet(lCommand, aContext);
    AddI2CSet(lCommand, aContext);
    AddI2CDump(lCommand, aContext);
    AddI2CTransfer(lCommand, aContext);
    AddI2CEeprom(lCommand, aContext);
}

void OnCommand(CLI::App& aCommand, Context& aContext, const std::function<ExitCode(Context&)>& aRun)
{
    aCommand.callback([&aContext, aRun] { aContext.mAction = aRun; });
}

} // namespace KySerialTool
