#include "SystemSockets.h"

#include <dlfcn.h>

namespace KyGvcp
{

void StayLoaded()
{
    Dl_info lHere{};
    if (dladdr(reinterpret_cast<const void*>(&StayLoaded), &lHere) != 0)
    {
        // Ignored: what is not found as a library is the program itself, which stays anyway.
        static_cast<void>(dlopen(lHere.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE));
    }
}

} // namespace KyGvcp
