#include "KyPlatform/StandardStreams.h"
#include "kyserial/CommandLine.h"

int main(int aCount, char** aArguments)
{
    if (!KyPlatform::StandardStreams::Complete())
    {
        return 1; // and no stream to say why
    }
    KyPlatform::Console lConsole;
    return static_cast<int>(KySerialTool::RunCommandLine(aCount, aArguments, lConsole));
}
