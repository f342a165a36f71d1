#include "KySerialC/Result.h"

#include "KyBase/KyResult.h"
#include "ThreadText.h"

const char* KyGetLastText(void)
{
    return KySerialCLib::GetThreadText();
}

void KySetLastText(const char* aText)
{
    KySerialCLib::SetThreadText(aText);
}

const char* KyGetCodeName(KyCode aCode)
{
    return aCode == KY_INVALID_HANDLE ? "INVALID_HANDLE" : KyResult(aCode).GetCodeString().GetAscii();
}

uint32_t KyGetVersion(void)
{
    return KYSERIALC_VERSION;
}
