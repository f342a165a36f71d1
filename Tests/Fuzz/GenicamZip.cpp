// Whatever archive a device gives: its file is found and no longer than allowed, or there is a reason and no
// file.

#include "Adapters/GigE/Evaluator/Unzip.h"
#include "Fuzz/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    constexpr size_t cLargest = 4096;
    // Without the two letters a file is no archive, and the fuzzer would have to find them each time.
    const std::string lFile = "PK" + std::string(reinterpret_cast<const char*>(aData), aSize);
    std::string lText = "old";
    const std::string lProblem = KyGigE::Unzip(lFile, cLargest, lText);
    KY_REQUIRE(lText.size() <= cLargest);
    KY_REQUIRE(lProblem.empty() || lText.empty());
    return 0;
}
