/* A client in plain C that knows the public header only: ClserClient NAME BYTES sends so many bytes to the
   server of that name, in blocks, and expects each block back. */

#include <clserzmo/clser.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    cBlockSize = 8192,
    cPatience = 60000
};

static int Report(const char* aWhat, CLINT32 aCode)
{
    CLINT8 lText[200] = "?";
    CLUINT32 lSize = sizeof lText;
    (void)clGetErrorText(aCode, lText, &lSize);
    fprintf(stderr, "%s: %d %s\n", aWhat, aCode, lText);
    return 1;
}

/* The index of the server with this name. Without one, an index that no server ever has: the number of servers is that
   of the next one that starts. */
static CLUINT32 FindPort(const char* aName)
{
    CLUINT32 lCount = 0;
    CLUINT32 lIndex = 0;
    (void)clGetNumSerialPorts(&lCount);
    for (lIndex = 0; lIndex < lCount; ++lIndex)
    {
        CLINT8 lName[256] = "";
        CLUINT32 lSize = sizeof lName;
        if (clGetSerialPortIdentifier(lIndex, lName, &lSize) == CL_ERR_NO_ERR && strcmp(lName, aName) == 0)
        {
            return lIndex;
        }
    }
    return 0xFFFFFFFFU;
}

static int Exchange(hSerRef aPort, unsigned long aBytes)
{
    static CLINT8 lSent[cBlockSize];
    static CLINT8 lReceived[cBlockSize];
    unsigned long lDone = 0;
    unsigned int lState = 1;
    while (lDone < aBytes)
    {
        CLUINT32 lCount = cBlockSize;
        CLINT32 lResult = 0;
        int lByte = 0;
        for (lByte = 0; lByte < cBlockSize; ++lByte)
        {
            lState = lState * 1664525U + 1013904223U;
            lSent[lByte] = (CLINT8)(lState >> 25U);
        }
        lResult = clSerialWrite(aPort, lSent, &lCount, cPatience);
        if (lResult != CL_ERR_NO_ERR || lCount != cBlockSize)
        {
            return Report("write", lResult);
        }
        lResult = clSerialRead(aPort, lReceived, &lCount, cPatience);
        if (lResult != CL_ERR_NO_ERR || lCount != cBlockSize)
        {
            return Report("read", lResult);
        }
        if (memcmp(lSent, lReceived, cBlockSize) != 0)
        {
            fprintf(stderr, "the block at %lu differs\n", lDone);
            return 1;
        }
        lDone += cBlockSize;
    }
    printf("%lu bytes\n", lDone);
    return 0;
}

int main(int aCount, char** aArguments)
{
    hSerRef lPort = NULL;
    CLUINT32 lRates = 0;
    CLINT32 lResult = 0;
    int lExit = 0;
    if (aCount != 3)
    {
        return 2;
    }
    lResult = clSerialInit(FindPort(aArguments[1]), &lPort);
    if (lResult != CL_ERR_NO_ERR)
    {
        return Report("init", lResult);
    }
    lResult = clGetSupportedBaudRates(lPort, &lRates);
    if (lResult == CL_ERR_NO_ERR)
    {
        lResult = clSetBaudRate(lPort, CL_BAUDRATE_AUTOMAX);
    }
    lExit = lResult == CL_ERR_NO_ERR ? Exchange(lPort, strtoul(aArguments[2], NULL, 10))
                                     : Report("rate", lResult);
    clSerialClose(lPort);
    return lExit;
}
