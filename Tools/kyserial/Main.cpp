#include "kyserial/CommandLine.h"

int main(int aCount, char** aArguments)
{
    KyPlatform::Console lConsole;
    return static_cast<int>(KySerialTool::RunCommandLine(aCount, aArguments, lConsole));
}
