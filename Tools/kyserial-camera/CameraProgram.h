#pragma once

#include "Platform/Console.h"

namespace KySerialCamera
{

/// All of the program but main(). \return Its exit status: 0 stopped, 1 the camera cannot be put there,
/// 2 the command line makes no sense.
int RunProgram(int aCount, const char* const* aArguments, KyToolPlatform::Console& aConsole);

} // namespace KySerialCamera
