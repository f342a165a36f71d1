#include "kyserial-camera/CameraProgram.h"

int main(int aCount, char** aArguments)
{
    KyPlatform::Console lConsole;
    return KySerialCamera::RunProgram(aCount, aArguments, lConsole);
}
