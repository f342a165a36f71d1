// Whatever text a device gives as its description: it is refused, or it is a tree within its limits whose
// names and texts lie inside it.

#include "Adapters/GigE/Evaluator/DeviceDescription.h"
#include "Fuzz/FuzzInput.h"

#include <string>

using namespace KyGigE;

namespace
{

// Reads every byte that a view shows, and counts the elements below.
size_t Walk(const XmlDocument& aDocument, XmlDocument::Index aElement, size_t aDepth, unsigned& aSum)
{
    KY_REQUIRE(aDepth <= XmlDocument::cDeepest);
    const XmlDocument::Element& lElement = aDocument.Get(aElement);
    size_t lCount = 1;
    for (const std::string_view lText :
         {lElement.mName, lElement.mText, aDocument.GetAttribute(lElement, "Name")})
    {
        for (const char lChar : lText)
        {
            aSum += static_cast<unsigned char>(lChar);
        }
    }
    KY_REQUIRE(!lElement.mName.empty());
    for (XmlDocument::Index lChild = lElement.mFirstChild; lChild != XmlDocument::cNone;
         lChild = aDocument.Get(lChild).mNext)
    {
        KY_REQUIRE(lChild > aElement);
        lCount += Walk(aDocument, lChild, aDepth + 1, aSum);
    }
    return lCount;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    const std::string lText(reinterpret_cast<const char*>(aData), aSize);
    XmlDocument lDocument;
    const std::string lProblem = lDocument.Parse(lText);
    KY_REQUIRE(lProblem.empty() == !lDocument.IsEmpty());
    unsigned lSum = 0;
    if (lProblem.empty())
    {
        KY_REQUIRE(Walk(lDocument, 0, 1, lSum) <= XmlDocument::cMostElements);
    }
    std::unique_ptr<DeviceDescription> lDescription;
    const KyResult lResult = DeviceDescription::Parse(lText, lDescription);
    KY_REQUIRE(lResult.IsOK() == (lDescription != nullptr));
    KY_REQUIRE(!lResult.IsOK() || lProblem.empty());
    return 0;
}
