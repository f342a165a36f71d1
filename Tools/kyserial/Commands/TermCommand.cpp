#include "kyserial/Commands/Commands.h"

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Terminal/TerminalRun.h"
#include "kyserial/Text/Failure.h"

#include <memory>

namespace KySerialTool
{

namespace
{

struct TermOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    TerminalOptions mTerminal{};
};

ExitCode RunTerm(Context& aContext, const TermOptions& aOptions)
{
    TrafficLog lLog;
    PrepareSession(aContext, aOptions.mTerminal.mLogFile, lLog);
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext);
    DevicePort lPort(lDevice->GetAdapter(), aOptions.mPort);
    const std::string lName = PortName(aOptions.mPort);
    const std::string lFailure = RunTerminal(aContext, aOptions.mTerminal, lPort, lLog, lName,
                                             lName + " of " + aContext.mCommon.mDevice.mName);
    const KyResult lClosed = lPort.Close();
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    Check(lClosed, "cannot close " + lName);
    return ExitCode::Ok;
}

} // namespace

void AddTermCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand(
        "term", "Connect the standard input and output to a serial port of the device");
    const auto lOptions = std::make_shared<TermOptions>();
    AddPortOption(lCommand, PortKind::Any, lOptions->mPort);
    AddTerminalOptions(lCommand, lOptions->mTerminal);
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer(
        "When the input is a terminal, every key goes to the port, Ctrl-C too, until the escape key.\n"
        "Otherwise the command ends after the end of the input and a quiet time.\n"
        "A bulk port that runs I2C or SPI runs UART meanwhile.\n\n"
        "Example: printf 'STATUS?\\r\\n' | kyserial term --device sim --port uart0");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunTerm(aRunning, *lOptions); }; });
}

} // namespace KySerialTool
