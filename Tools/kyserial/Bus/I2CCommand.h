#pragma once

#include "kyserial/Bus/I2CBus.h"
#include "kyserial/Options/Options.h"

#include <CommandLine/ParserNames.h>

#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// What every I2C command takes.
struct I2COptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    bool mFast = false;
    bool mYes = false;
    bool mAll = false;
    uint32_t mRetries = 0;
    bool mForce = false; ///< Accepted for the sake of scripts: no driver can hold an address here.
};

/// Adds them.
void AddI2COptions(CLI::App& aCommand, I2COptions& aOptions, Context& aContext);

/// A device and an open bus of it.
struct OpenI2CBus
{
    OpenI2CBus(Context& aContext, const I2COptions& aOptions);

    const std::unique_ptr<Device> mDevice;
    I2CBus mBus;
};

/// Asks the user on the error output whether to go on, unless -y was given.
/// \param aWhat  "I will read from ...".
/// \return True for Enter and for an answer that begins with y; false for all others and at the end of the
/// input.
bool Confirm(Context& aContext, const I2COptions& aOptions, const std::string& aWhat);

/// Adds "i2c" with its commands.
void AddI2CCommand(CLI::App& aProgram, Context& aContext);

// The commands below "i2c".
void AddI2CDetect(CLI::App& aParent, Context& aContext);
void AddI2CGet(CLI::App& aParent, Context& aContext);
void AddI2CSet(CLI::App& aParent, Context& aContext);
void AddI2CDump(CLI::App& aParent, Context& aContext);
void AddI2CTransfer(CLI::App& aParent, Context& aContext);
void AddI2CEeprom(CLI::App& aParent, Context& aContext);

/// Has a command run aRun.
void OnCommand(CLI::App& aCommand, Context& aContext, const std::function<ExitCode(Context&)>& aRun);

/// Has a command run aRun with its options, which live as long as the command.
template<typename Options>
void OnCommand(CLI::App& aCommand, Context& aContext, const std::shared_ptr<Options>& aOptions,
               ExitCode (*aRun)(Context&, const Options&))
{
    OnCommand(aCommand, aContext, [aOptions, aRun](Context& aRunning) { return aRun(aRunning, *aOptions); });
}

} // namespace KySerialTool
