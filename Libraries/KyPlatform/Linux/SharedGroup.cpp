#include "KyPlatform/Linux/SharedGroup.h"

#include "KyPlatform/Linux/Obstacle.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>

namespace KyPlatform
{

namespace
{

constexpr size_t cLongestLine = 255;
using Line = std::array<char, cLongestLine + 1>;

bool ReadSettings(Line& aLine) noexcept
{
    errno = 0; // an unsafe file is refused without an error of the system
    ssize_t lRead = -1;
    const int lFile =
        gSystem.mOpen(AT_FDCWD, gSystem.mSettings, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (lFile >= 0)
    {
        struct stat lStatus = {};
        // Only the superuser may be able to write the file: another writer could let himself in.
        const bool lIsSafe = gSystem.mGetStatus(lFile, &lStatus) == 0 && S_ISREG(lStatus.st_mode) &&
                             lStatus.st_uid == 0 && (lStatus.st_mode & (S_IWGRP | S_IWOTH)) == 0;
        lRead = lIsSafe ? gSystem.mRead(lFile, aLine.data(), cLongestLine) : -1;
    }
    if (lRead < 0)
    {
        Obstacle::NoteShortage("the group that shares it cannot be read", errno); // mostly there is no group
    }
    if (lFile >= 0)
    {
        gSystem.mClose(lFile);
    }
    aLine[lRead > 0 ? static_cast<size_t>(lRead) : 0] = '\0';
    return lRead > 0;
}

/// Takes the next word of the first line; empty at its end.
char* NextWord(char*& aRest) noexcept
{
    const auto lIsGap = [](char aCharacter) { return aCharacter == ' ' || aCharacter == '\t'; };
    while (lIsGap(*aRest))
    {
        ++aRest;
    }
    char* const lWord = aRest;
    aRest += std::strcspn(aRest, " \t\r\n");
    if (lIsGap(*aRest))
    {
        *aRest++ = '\0';
    }
    else
    {
        *aRest = '\0'; // the line ends here
    }
    return lWord;
}

bool ToNumber(const char* aWord, uint32_t& aNumber) noexcept
{
    const char* const lEnd = aWord + std::strlen(aWord);
    const auto lParsed = std::from_chars(aWord, lEnd, aNumber);
    return lParsed.ec == std::errc() && lParsed.ptr == lEnd;
}

// A group with many members needs more room than this and must be given by its number.
using Room = std::array<char, 16384>;

bool FindGroup(const char* aWord, gid_t& aGroup) noexcept
{
    Room lRoom;
    struct group lEntry = {};
    struct group* lFound = nullptr;
    if (ToNumber(aWord, aGroup))
    {
        return true;
    }
    const int lError = gSystem.mFindGroup(aWord, &lEntry, lRoom.data(), lRoom.size(), &lFound);
    if (lError != 0 || lFound == nullptr)
    {
        Obstacle::NoteShortage("the group that shares it cannot be found", lError);
        return false;
    }
    aGroup = lFound->gr_gid;
    return true;
}

bool FindUser(const char* aWord, uid_t& aUser) noexcept
{
    Room lRoom;
    struct passwd lEntry = {};
    struct passwd* lFound = nullptr;
    if (ToNumber(aWord, aUser))
    {
        return true;
    }
    const int lError = gSystem.mFindUser(aWord, &lEntry, lRoom.data(), lRoom.size(), &lFound);
    if (lError != 0 || lFound == nullptr)
    {
        Obstacle::NoteShortage("the service's user cannot be found", lError);
        return false;
    }
    aUser = lFound->pw_uid;
    return true;
}

} // namespace

bool SharedGroup::Read() noexcept
{
    Line lLine{};
    if (!ReadSettings(lLine))
    {
        return false;
    }
    char* lRest = lLine.data();
    const char* const lGroup = NextWord(lRest);
    const char* const lUser = NextWord(lRest);
    mHasService = *lUser != '\0';
    // A file that is not understood in full lets nobody in.
    return *lGroup != '\0' && *NextWord(lRest) == '\0' && FindGroup(lGroup, mGroup) &&
           (!mHasService || FindUser(lUser, mService)) && gSystem.mIsMember(mGroup);
}

} // namespace KyPlatform
