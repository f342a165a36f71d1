#pragma once

#include "kyserial/Bus/SpiBus.h"
#include "kyserial/Options/Options.h"

#include <CommandLine/ParserNames.h>

#include <memory>

namespace KySerialTool
{

/// Adds "spi" with its commands.
void AddSpiCommand(CLI::App& aProgram, Context& aContext);

// The commands below "spi".
void AddSpiTransfer(CLI::App& aParent, Context& aContext);
void AddSpiFlash(CLI::App& aParent, Context& aContext);

/// A device and an open bus of it.
struct OpenSpiBus
{
    OpenSpiBus(Context& aContext, KyDeviceSerial aPort);

    const std::unique_ptr<Device> mDevice;
    SpiBus mBus;
};

} // namespace KySerialTool
