#include "kyserial/Bus/SpiCommand.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <optional>

namespace KySerialTool
{

void AddSpiCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("spi", "Work on the SPI bus of a bulk port");
    lCommand.footer("The bulk port runs SPI meanwhile.\n\n"
                    "Example:\n  kyserial spi flash id --device sim --port bulk3");
    AddSpiTransfer(lCommand, aContext);
    AddSpiFlash(lCommand, aContext);
}

OpenSpiBus::OpenSpiBus(Context& aContext, KyDeviceSerial aPort)
    : mDevice(OpenDevice(aContext)), mBus(mDevice->GetAdapter(), aPort)
{
}

namespace
{

constexpr uint32_t cMostBytes = 1U << 24U;

struct SpiTransferOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    std::vector<std::string> mWords{};
    uint32_t mRead = 0;
    bool mSimultaneous = false;
    bool mHold = false;
    bool mJson = false;
};

std::string Json(const SpiTransferOptions& aOptions, size_t aWritten, const std::vector<uint8_t>& aRead)
{
    return JsonLine({{"port", PortName(aOptions.mPort)}, {"written", aWritten}, {"read", aRead}});
}

ExitCode RunTransfer(Context& aContext, const SpiTransferOptions& aOptions)
{
    const std::optional<std::vector<uint8_t>> lWrite = ParseHexBytes(aOptions.mWords);
    if (!lWrite.has_value())
    {
        throw UsageError(
            "the bytes are no hexadecimal numbers of two digits each; use 9f or \"03 00 10 00\" for "
            "example");
    }
    if (aOptions.mSimultaneous && aOptions.mRead != 0 && aOptions.mRead != lWrite->size())
    {
        throw UsageError(
            "--simultaneous: as many bytes are read as written; leave --read out, or use --read " +
            std::to_string(lWrite->size()));
    }
    if (lWrite->empty() && aOptions.mRead == 0)
    {
        throw UsageError("nothing to do; give bytes to write, or --read N");
    }
    // Only now: a mistake in the words does not cost a connection to the device.
    OpenSpiBus lBus(aContext, aOptions.mPort);
    const std::vector<uint8_t> lRead =
        lBus.mBus.Transfer(*lWrite, aOptions.mRead, {aOptions.mSimultaneous, aOptions.mHold});
    if (aOptions.mJson)
    {
        Print(aContext, Json(aOptions, lWrite->size(), lRead));
    }
    // A write alone prints nothing: an empty line would look like an answer.
    else if (!lRead.empty())
    {
        Print(aContext, HexBytes(lRead.data(), lRead.size()) + '\n');
    }
    return ExitCode::Ok;
}

} // namespace

void AddSpiTransfer(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand = *aParent.add_subcommand("transfer", "Write bytes and read bytes");
    const auto lOptions = std::make_shared<SpiTransferOptions>();
    lCommand.add_option("HEX", lOptions->mWords, "Bytes to write, two hexadecimal digits each");
    AddPortOption(lCommand, PortKind::Bulk, lOptions->mPort);
    AddNumberOption(lCommand, "--read", cMostBytes, "bytes", "Bytes to read (0)", lOptions->mRead);
    lCommand.add_flag("--simultaneous", lOptions->mSimultaneous, "Read while writing, as many bytes");
    lCommand.add_flag("--hold", lOptions->mHold, "Leave the slave selected afterwards");
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line instead of hexadecimal bytes");
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer(
        "Transfers above 255 bytes go in several steps, the slave staying selected between them.\n\n"
        "Example:\n  kyserial spi transfer --device sim --port bulk3 9f --read 3");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunTransfer(aRunning, *lOptions); }; });
}

} // namespace KySerialTool
