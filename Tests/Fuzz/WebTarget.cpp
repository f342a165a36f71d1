// Whatever the target, the host and the token of a request over HTTP are: what is taken is made of the request's bytes, and
// nobody is let in without the whole secret.

#include "Fuzz/FuzzInput.h"
#include "kyserial/Serve/Web/WebRequest.h"

#include <string>

using namespace KyTest;
using namespace KySerialTool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    const std::string lText(reinterpret_cast<const char*>(aData), aSize);
    const auto lTarget = ParseWebTarget(lText);
    if (lTarget.has_value())
    {
        KY_REQUIRE(lTarget->mPath.front() == '/' && lText.starts_with(lTarget->mPath));
        size_t lLength = lTarget->mPath.size();
        for (const auto& [lName, lValue] : lTarget->mQuery)
        {
            lLength += lName.size() + lValue.size();
        }
        KY_REQUIRE(lLength <= lText.size());
        KY_REQUIRE(lTarget->mQuery.size() <= 8);
    }
    const std::string lAddress = "192.168.1.5";
    if (IsOwnHost(lText, lAddress))
    {
        const std::string lName = lText.substr(0, lText.find_last_of(lText.front() == '[' ? "]" : ":"));
        KY_REQUIRE(lName == "localhost" || lName == "127.0.0.1" || lName == lAddress || lName == "[::1" ||
                   lName == "[" + lAddress);
    }
    const std::string lSecret = "0123456789abcdef";
    KY_REQUIRE(IsSameSecret(lText, lSecret) == (lText == lSecret));
    StepCounter::Count();
    return 0;
}
