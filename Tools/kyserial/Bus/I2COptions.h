#pragma once

#include "kyserial/Bus/I2CBus.h"
#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

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
    bool mForce = false; ///< Accepted for the sake of scripts: nobody else can hold an address here.
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

} // namespace KySerialTool
