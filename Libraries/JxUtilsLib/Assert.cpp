#include "JxUtilsLib/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace JxUtilsLib
{

namespace
{

void PrintAndAbort(const char* aText, const char* aFile, int aLine)
{
    std::fprintf(stderr, "%s:%d: assertion \"%s\" failed\n", aFile, aLine, aText);
    std::abort();
}

std::atomic<AssertHandler> gHandler{&PrintAndAbort};

} // namespace

void SetAssertHandler(AssertHandler aHandler)
{
    gHandler.store(aHandler != nullptr ? aHandler : &PrintAndAbort);
}

void AssertFailed(const char* aText, const char* aFile, int aLine)
{
    gHandler.load()(aText, aFile, aLine);
}

} // namespace JxUtilsLib
