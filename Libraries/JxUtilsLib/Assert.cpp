#include "JxUtilsLib/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace JxUtilsLib
{

namespace
{

std::atomic<AssertHandler> gHandler{nullptr};

} // namespace

void SetAssertHandler(AssertHandler aHandler)
{
    gHandler.store(aHandler);
}

void AssertFailed(const char* aText, const char* aFile, int aLine)
{
    const AssertHandler lHandler = gHandler.load();
    if (lHandler != nullptr)
    {
        lHandler(aText, aFile, aLine);
        return;
    }
    std::fprintf(stderr, "%s:%d: assertion \"%s\" failed\n", aFile, aLine, aText);
    std::abort();
}

void ExpectationFailed(const char* aText, const char* aFile, int aLine, std::atomic<bool>& aPrinted)
{
    // A device may break an expectation with each event, so a place is printed once only.
    const AssertHandler lHandler = gHandler.load();
    if (lHandler != nullptr)
    {
        lHandler(aText, aFile, aLine);
    }
    else if (!aPrinted.exchange(true))
    {
        std::fprintf(stderr,
                     "%s:%d: assertion \"%s\" failed through a caller or a device; the program goes on "
                     "(printed once for this place)\n",
                     aFile, aLine, aText);
    }
}

} // namespace JxUtilsLib
