#ifndef KYTEST_CHECK_H
#define KYTEST_CHECK_H

#include <stdint.h>

/* What the cases in C share: checks that the test framework reports, and a camera. */

#ifdef __cplusplus
extern "C"
{
#endif

    /* Reports a failed check; the case goes on. */
    void KyTestFail(const char* aFile, int aLine, const char* aText);

    /* Adds to a count that threads share. Gives the new count. */
    uint32_t KyTestCount(uint32_t* aCount, uint32_t aAdded);

    /* A name that no other test, process or run uses. Stays until the next call. */
    const char* KyTestUniqueName(void);

    /* Reports a result that is not the expected one, with its text. */
    void KyTestExpectCode(const char* aFile, int aLine, const char* aCall, uint32_t aCode,
                          uint32_t aExpected);

    /* A simulated camera without line times and the device that stands for it. */
    typedef struct TestCamera
    {
        uint64_t mCamera;
        uint64_t mDevice;
    } TestCamera;

    TestCamera MakeCamera(void);
    /* The same, reached over a transport: KY_SIM_ALTERNATE for example. */
    TestCamera MakeCameraOver(int32_t aTransport);
    void EndCamera(TestCamera aCamera);

    /* An open port with something on its line. */
    uint64_t OpenPort(TestCamera aCamera, int32_t aSerial, int32_t aWhat);

    /* Reads up to the end of a line into a text of aSize bytes. */
    void ReadLine(uint64_t aPort, char* aText, uint32_t aSize);

#ifdef __cplusplus
}
#endif

/* Time for what is sure to come; only a failing test waits that long. */
#define PATIENCE 20000U

#define CHECK(aCondition)                                                                                    \
    do                                                                                                       \
    {                                                                                                        \
        if (!(aCondition))                                                                                   \
        {                                                                                                    \
            KyTestFail(__FILE__, __LINE__, #aCondition);                                                     \
        }                                                                                                    \
    } while (0)

#define CHECK_CODE(aCall, aExpected) KyTestExpectCode(__FILE__, __LINE__, #aCall, (aCall), (aExpected))
#define CHECK_OK(aCall) CHECK_CODE(aCall, 0U)

#endif
