#include "SystemSockets.h"

#include <windows.h>

namespace KyGvcp
{

bool StartSockets()
{
    static const bool lStarted = []
    {
        WSADATA lData{};
        return WSAStartup(MAKEWORD(2, 2), &lData) == 0;
    }();
    return lStarted;
}

void StayLoaded()
{
    HMODULE lHere = nullptr;
    // Ignored: a program that is not a library stays anyway.
    static_cast<void>(
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                           reinterpret_cast<const wchar_t*>(&StayLoaded), &lHere));
}

} // namespace KyGvcp
