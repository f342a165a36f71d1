#include "Platform/StandardStreams.h"
#include "kyserial-camera/CameraProgram.h"

#include <cstdio>
#include <new>

int main(int aCount, char** aArguments)
{
    if (!KyToolPlatform::StandardStreams::Complete())
    {
        return 1; // and no stream to say why
    }
    try
    {
        KyToolPlatform::Console lConsole;
        return KySerialCamera::RunProgram(aCount, aArguments, lConsole);
    }
    catch (const std::bad_alloc&) // before the program had anything else to say it with
    {
        static_cast<void>(
            std::fputs("kyserial-camera: there is not enough memory\n", stderr)); // ignored: nowhere else to
        return 1;
    }
}
