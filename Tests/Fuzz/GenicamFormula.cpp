// Whatever formula a description has: it is refused, or gives a finite number or a reason, with either
// arithmetic and whatever its variables are.

#include "Adapters/GigE/Evaluator/Formula.h"
#include "Fuzz/FuzzInput.h"

#include <cmath>
#include <limits>

using namespace KyGigE;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize)
{
    const std::string_view lText(reinterpret_cast<const char*>(aData), aSize);
    std::string lProblem;
    const auto lFormula = Formula::Parse(lText, lProblem);
    KY_REQUIRE((lFormula != nullptr) == lProblem.empty());
    if (lFormula == nullptr)
    {
        return 0;
    }
    KY_REQUIRE(lFormula->GetSize() <= 2 * aSize + 2);
    const Number lValues[] = {Number::Integer(0),
                              Number::Integer(-1),
                              Number::Integer(std::numeric_limits<int64_t>::min()),
                              Number::Integer(std::numeric_limits<int64_t>::max()),
                              Number::Integer(5),
                              Number::Float(0.5),
                              Number::Float(-1e300)};
    for (const Arithmetic lArithmetic : {Arithmetic::Integers, Arithmetic::Floats})
    {
        for (const Number& lFirst : lValues)
        {
            KyTest::StepCounter::Count();
            Number lResult;
            std::string lReason;
            const bool lGood = lFormula->Evaluate(
                lArithmetic,
                [&](std::string_view aName, Number& aValue)
                {
                    aValue = aName.size() == 1 ? lFirst : Number::Integer(static_cast<int64_t>(aName.size()));
                    return aName[0] != 'z';
                },
                lResult, lReason);
            KY_REQUIRE(!lGood || lReason.empty());
            KY_REQUIRE(!lGood || std::isfinite(lResult.AsFloat()));
            static_cast<void>(lResult.Rounded()); // may not exist
            static_cast<void>(lResult.Truncated());
        }
    }
    return 0;
}
