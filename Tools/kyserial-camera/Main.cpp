#include "KyPlatform/StandardStreams.h"
#include "kyserial-camera/CameraProgram.h"

int main(int aCount, char** aArguments)
{
    if (!KyPlatform::StandardStreams::Complete())
    {
        return 1; // and no stream to say why
    }
    KyPlatform::Console lConsole;
    return KySerialCamera::RunProgram(aCount, aArguments, lConsole);
}
