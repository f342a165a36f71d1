#pragma once

#include "kyserial/Options/CommonOptions.h"
#include "kyserial/Text/ExitCode.h"

#include <KyPlatform/Console.h>

#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// What a command finds when it runs.
struct Context
{
    KyPlatform::Console& mConsole;
    CommonOptions mCommon{};
    /// The command that the command line names; a command sets it while the line is taken apart.
    std::function<ExitCode(Context&)> mAction{};
};

/// Connects the device that the command line names. Throws OperationError when that fails.
std::unique_ptr<Device> OpenDevice(Context& aContext, DeviceAccess aAccess = DeviceAccess::Control);

/// Writes to the standard output. Throws OperationError when it is broken.
void Print(Context& aContext, const std::string& aText);

} // namespace KySerialTool
