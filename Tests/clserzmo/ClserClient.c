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

/* Ends the program unless a call went well and moved the bytes that it should. */
static void Require(const char* aWhat, CLINT32 aCode, int aIsWhole)
{
    CLINT8 lText[200] = "?";
    CLUINT32 lSize = sizeof lText;
    if (aCode != CL_ERR_NO_ERR || !aIsWhole)
    {
        (void)clGetErrorText(aCode, lText, &lSize);
        fprintf(stderr, "%s: %d %s\n", aWhat, aCode, lText);
        exit(1);
    }
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

int main(int aCount, char** aArguments)
{
    static CLINT8 lSent[cBlockSize];
    static CLINT8 lReceived[cBlockSize];
    hSerRef lPort = NULL;
    CLUINT32 lRates = 0;
    unsigned long lDone = 0;
    unsigned int lState = 1;
    if (aCount != 3)
    {
        return 2;
    }
    Require("init", clSerialInit(FindPort(aArguments[1]), &lPort), 1);
    Require("rates", clGetSupportedBaudRates(lPort, &lRates), 1);
    Require("rate", clSetBaudRate(lPort, CL_BAUDRATE_AUTOMAX), 1);
    for (lDone = 0; lDone < strtoul(aArguments[2], NULL, 10); lDone += cBlockSize)
    {
        CLUINT32 lCount = cBlockSize;
        CLINT32 lResult = 0;
        int lByte = 0;
        for (lByte = 0; lByte < cBlockSize; ++lByte)
        {
            lState = lState * 1664525U + 1013904223U;
            lSent[lByte] = (CLINT8)(lState >> 25U);
        }
        lResult = clSerialWrite(lPort, lSent, &lCount, cPatience);
        Require("write", lResult, lCount == cBlockSize);
        lResult = clSerialRead(lPort, lReceived, &lCount, cPatience);
        Require("read", lResult, lCount == cBlockSize);
        Require("block", CL_ERR_NO_ERR, memcmp(lSent, lReceived, cBlockSize) == 0);
    }
    printf("%lu bytes\n", lDone);
    clSerialClose(lPort);
    return 0;
}
