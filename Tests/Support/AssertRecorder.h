#pragma once

#include "JxUtilsLib/Assert.h"

#include <mutex>
#include <string>
#include <vector>

/// Keeps the texts of broken assertions, which then do not end the program. One at a time.
class AssertRecorder
{
public:
    AssertRecorder()
    {
        GetTexts().clear();
        JxUtilsLib::SetAssertHandler(&Record);
    }
    ~AssertRecorder() { JxUtilsLib::SetAssertHandler(nullptr); }
    AssertRecorder(const AssertRecorder&) = delete;
    AssertRecorder& operator=(const AssertRecorder&) = delete;

    /// The texts so far; none in a build that does not check assertions.
    static std::vector<std::string>& GetTexts()
    {
        static std::vector<std::string> sTexts;
        return sTexts;
    }

private:
    static void Record(const char* aText, const char* /*aFile*/, int /*aLine*/)
    {
        static std::mutex sLock;
        const std::lock_guard<std::mutex> lScope(sLock);
        GetTexts().emplace_back(aText);
    }
};
