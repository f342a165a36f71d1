#pragma once

#include "JxUtilsLib/Assert.h"
#include "Support/AllocationPause.h"

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace KyTest
{

/// Collects the texts of broken assertions, instead of aborting, from construction to destruction. One at a
/// time.
class AssertRecorder
{
public:
    AssertRecorder()
    {
        Take();
        JxUtilsLib::SetAssertHandler(&AssertRecorder::Handle);
    }
    ~AssertRecorder() { JxUtilsLib::SetAssertHandler(nullptr); }
    AssertRecorder(const AssertRecorder&) = delete;
    AssertRecorder& operator=(const AssertRecorder&) = delete;

    /// The texts so far; forgets them.
    std::vector<std::string> Take() // NOLINT(readability-convert-member-functions-to-static): the object's
    {
        const std::lock_guard<std::mutex> lLock(sMutex);
        return std::exchange(sTexts, {});
    }

private:
    static void Handle(const char* aText, const char* /*aFile*/, int /*aLine*/)
    {
        const AllocationPause lPause;
        const std::lock_guard<std::mutex> lLock(sMutex);
        sTexts.emplace_back(aText);
    }

    static inline std::mutex sMutex;
    static inline std::vector<std::string> sTexts;
};

/// What AssertRecorder::Take() gives for these broken assertions: nothing in a build that does not check any.
inline std::vector<std::string> Broken(std::vector<std::string> aTexts)
{
    if (!JxUtilsLib::cAssertionsEnabled)
    {
        aTexts.clear();
    }
    return aTexts;
}

} // namespace KyTest
