#include "Tests/Support/PrivateSession.h"

#include "KyPlatform/Windows/SystemCalls.h"
#include "Tests/Support/AllocationPause.h"
#include "Tests/Support/UniqueName.h"

using KyPlatform::gSystem;
using KyPlatform::SystemCalls;

namespace
{

DWORD gNumber = 0;
std::string gToken;
const SystemCalls cReal = KyPlatform::GetRealSystem();

BOOL WINAPI GetNumber(DWORD /*aProcess*/, DWORD* aNumber)
{
    *aNumber = gNumber;
    return TRUE;
}

/// "Local\X" and "Session\7\X" become names of the real session that no other process uses.
std::string GetPrivateName(const char* aName)
{
    const KyTest::AllocationPause lPause; // from the first text on: the library's names have been made
    const std::string lLocal = "Local\\";
    std::string lName = aName;
    if (lName.compare(0, lLocal.size(), lLocal) == 0)
    {
        lName = "Session\\" + std::to_string(gNumber) + "\\" + lName.substr(lLocal.size());
    }
    for (char& lLetter : lName)
    {
        lLetter = lLetter == '\\' ? '-' : lLetter;
    }
    return lLocal + gToken + lName;
}

HANDLE WINAPI CreateMutexPrivately(SECURITY_ATTRIBUTES* aSecurity, BOOL aOwned, const char* aName)
{
    return cReal.mCreateMutex(aSecurity, aOwned, GetPrivateName(aName).c_str());
}

HANDLE WINAPI CreateEventPrivately(SECURITY_ATTRIBUTES* aSecurity, BOOL aManual, BOOL aSet, const char* aName)
{
    return cReal.mCreateEvent(aSecurity, aManual, aSet, GetPrivateName(aName).c_str());
}

HANDLE WINAPI CreateSemaphorePrivately(SECURITY_ATTRIBUTES* aSecurity, LONG aCount, LONG aMaximum,
                                       const char* aName)
{
    return cReal.mCreateSemaphore(aSecurity, aCount, aMaximum, GetPrivateName(aName).c_str());
}

HANDLE WINAPI CreateMappingPrivately(HANDLE aFile, SECURITY_ATTRIBUTES* aSecurity, DWORD aProtection,
                                     DWORD aHigh, DWORD aLow, const char* aName)
{
    return cReal.mCreateMapping(aFile, aSecurity, aProtection, aHigh, aLow, GetPrivateName(aName).c_str());
}

template<auto tEntry>
HANDLE WINAPI OpenPrivately(DWORD aAccess, BOOL aInherit, const char* aName)
{
    return (cReal.*tEntry)(aAccess, aInherit, GetPrivateName(aName).c_str());
}

} // namespace

PrivateSession::PrivateSession() : mToken(UniqueName("KyTest"))
{
    gNumber = cFirstNumber;
    gToken = mToken;
    gSystem.mGetSession = &GetNumber;
    gSystem.mCreateMutex = &CreateMutexPrivately;
    gSystem.mCreateEvent = &CreateEventPrivately;
    gSystem.mCreateSemaphore = &CreateSemaphorePrivately;
    gSystem.mCreateMapping = &CreateMappingPrivately;
    gSystem.mOpenMutex = &OpenPrivately<&SystemCalls::mOpenMutex>;
    gSystem.mOpenEvent = &OpenPrivately<&SystemCalls::mOpenEvent>;
    gSystem.mOpenSemaphore = &OpenPrivately<&SystemCalls::mOpenSemaphore>;
    gSystem.mOpenMapping = &OpenPrivately<&SystemCalls::mOpenMapping>;
}

PrivateSession::~PrivateSession()
{
    gSystem = cReal;
}

void PrivateSession::SetOwnNumber(uint32_t aNumber)
{
    gNumber = aNumber;
}

void PrivateSession::Share(uint32_t /*aService*/) {}
