#pragma once

#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

namespace KySerialTool
{

/// Adds "i2c" with its commands.
void AddI2CCommand(CLI::App& aProgram, Context& aContext);

// The commands below "i2c", each in a file of its name.
void AddI2CDetect(CLI::App& aParent, Context& aContext);
void AddI2CGet(CLI::App& aParent, Context& aContext);
void AddI2CSet(CLI::App& aParent, Context& aContext);
void AddI2CDump(CLI::App& aParent, Context& aContext);
void AddI2CTransfer(CLI::App& aParent, Context& aContext);
void AddI2CEeprom(CLI::App& aParent, Context& aContext);

/// Has a command run aRun with its options, which live as long as the command.
template<typename Options>
void OnCommand(CLI::App& aCommand, Context& aContext, const std::shared_ptr<Options>& aOptions,
               ExitCode (*aRun)(Context&, const Options&))
{
    aCommand.callback(
        [&aContext, aOptions, aRun]
        { aContext.mAction = [aOptions, aRun](Context& aRunning) { return aRun(aRunning, *aOptions); }; });
}

} // namespace KySerialTool
