#include "kyserial/Commands/SpiCommand.h"

namespace KySerialTool
{

void AddSpiCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("spi", "Work on the SPI bus of a bulk port");
    lCommand.footer("The bulk port runs SPI meanwhile.");
    AddSpiTransfer(lCommand, aContext);
    AddSpiFlash(lCommand, aContext);
}

OpenSpiBus::OpenSpiBus(Context& aContext, KyDeviceSerial aPort)
    : mDevice(OpenDevice(aContext)), mBus(mDevice->GetAdapter(), aPort)
{
}

} // namespace KySerialTool
