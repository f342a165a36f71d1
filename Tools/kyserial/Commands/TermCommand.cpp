#include "kyserial/Commands/Commands.h"

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Terminal/TerminalRun.h"
#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <memory>

namespace KySerialTool
{

namespace
{

struct TermOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    LineSelection mLine{};
    TerminalOptions mTerminal{};
};

/// The port of a device that is found and connected with the first port that is opened.
class PortSource
{
public:
    PortSource(Context& aContext, const TermOptions& aOptions) : mContext(aContext), mOptions(aOptions) {}

    void Open(std::unique_ptr<BytePort>& aPort)
    {
        // The device is searched once. Its own adapter connects it again after a loss.
        if (mDevice == nullptr)
        {
            mDevice = OpenDevice(mContext);
        }
        if (!mDevice->GetAdapter().IsConnected())
        {
            throw OperationError("the device is away");
        }
        aPort.reset(); // first: one port of a device cannot be open twice
        aPort = std::make_unique<DevicePort>(*mDevice, mOptions.mPort, mOptions.mLine);
    }

private:
    Context& mContext;
    const TermOptions& mOptions;
    std::unique_ptr<Device> mDevice{};
};

ExitCode RunTerm(Context& aContext, const TermOptions& aOptions)
{
    TrafficLog lLog;
    PrepareSession(aContext, aOptions.mTerminal.mLogFile, lLog);
    const std::string lName = PortName(aOptions.mPort);
    TerminalOptions lTerminal = aOptions.mTerminal;
    PortSource lSource(aContext, aOptions);
    const std::unique_ptr<BytePort> lPort =
        OpenPort([&lSource](std::unique_ptr<BytePort>& aPort) { lSource.Open(aPort); }, lTerminal, lLog,
                 lName, "the device");
    const std::string lFailure = RunTerminal(aContext, lTerminal, *lPort, lLog, lName,
                                             lName + " of " + aContext.mCommon.mDevice.mName);
    // Closed before the failure is reported, so that the device's settings are back in either case.
    const KyResult lClosed = lPort->Close();
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
    AddLineOptions(lCommand, lOptions->mLine);
    AddTerminalOptions(lCommand, lOptions->mTerminal);
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer("When the input is a terminal, every key goes to the port, Ctrl-C too; Ctrl-] ? shows "
                    "the keys that do not. "
                    "Otherwise the command ends after the end of the input and a quiet time. "
                    "A bulk port that runs I2C or SPI runs UART meanwhile.\n\n"
                    "Examples:\n  kyserial term --device sim --port uart0 --baud 115200 --log lens.pcapng\n"
                    "  " +
                    std::string(StatusQuestion()) + " | kyserial term --device sim --port uart0");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunTerm(aRunning, *lOptions); }; });
}

} // namespace KySerialTool
