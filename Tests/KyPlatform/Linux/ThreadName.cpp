#include "Tests/KyPlatform/ThreadName.h"

#include <filesystem>
#include <fstream>

ThreadNameWatch::ThreadNameWatch() = default;

ThreadNameWatch::~ThreadNameWatch() = default;

bool ThreadNameWatch::HasSeen(
    const std::string& aName) const // NOLINT(readability-convert-member-functions-to-static)
{
    for (const auto& lThread : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::string lName;
        std::getline(std::ifstream(lThread.path() / "comm"), lName);
        if (lName == aName.substr(0, 15))
        {
            return true;
        }
    }
    return false;
}
