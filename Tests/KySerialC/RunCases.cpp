// Makes each case in C a test, and lends the C files what only C++ has.

#include "Check.h"

#include "KySerialC/kyserial.h"
#include "Tests/Support/UniqueName.h"

#include <gtest/gtest.h>

#include <atomic>

#define KY_CASE(aSuite, aName)                                                                               \
    extern "C" void aSuite##_##aName(void);                                                                  \
    TEST(aSuite, aName)                                                                                      \
    {                                                                                                        \
        aSuite##_##aName();                                                                                  \
    }
#include "Cases.h"
#undef KY_CASE

void KyTestFail(const char* aFile, int aLine, const char* aText)
{
    ADD_FAILURE_AT(aFile, aLine) << aText << "\nlast text: " << KyGetLastText();
}

void KyTestExpectCode(const char* aFile, int aLine, const char* aCall, uint32_t aCode, uint32_t aExpected)
{
    if (aCode != aExpected)
    {
        ADD_FAILURE_AT(aFile, aLine) << aCall << " gave " << KyGetCodeName(aCode) << " (" << aCode
                                     << "), not " << KyGetCodeName(aExpected)
                                     << "\nlast text: " << KyGetLastText();
    }
}

uint32_t KyTestCount(uint32_t* aCount, uint32_t aAdded)
{
    return std::atomic_ref<uint32_t>(*aCount).fetch_add(aAdded) + aAdded;
}

const char* KyTestUniqueName(void)
{
    static std::string sName;
    sName = UniqueName("KyC");
    return sName.c_str();
}
