#include "Support/ThreadCount.h"

#include <windows.h>

#include <tlhelp32.h>

namespace KyTest
{

size_t CountThreads()
{
    const HANDLE lAll = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 lThread{};
    lThread.dwSize = sizeof lThread;
    size_t lCount = 0;
    for (BOOL lMore = ::Thread32First(lAll, &lThread); lMore != FALSE; lMore = ::Thread32Next(lAll, &lThread))
    {
        lCount += lThread.th32OwnerProcessID == ::GetCurrentProcessId() ? 1 : 0;
    }
    ::CloseHandle(lAll);
    return lCount;
}

} // namespace KyTest
