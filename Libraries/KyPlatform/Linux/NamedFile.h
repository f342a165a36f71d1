#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

namespace KyPlatform
{

/// A mapped file that lives as long as some process holds it: what every named object here is made of.
///
/// Each holder keeps a shared lock on the file. A process that gets the exclusive lock knows that nobody holds
/// the file any more, and removes it: an opener then finds no file, a holder that closes was the last one. A new
/// file gets its name only when it is complete and locked. So nobody ever opens half a file, or a file that a
/// dead process has left.
///
/// Only files of the calling process's own user are opened, and those that others share with a group that
/// the administrator has named and this process is in (see SharedGroup). Owner and group are looked at on the
/// open descriptors.
///
/// A child made by fork() shares its parent's locks: it may use what it inherited while the parent holds it.
class NamedFile
{
public:
    /// Fills a new file; false gives up on it.
    using Fill = bool (*)(void* aBase, const void* aContext);

    NamedFile() noexcept = default;
    ~NamedFile() { Close(); }
    NamedFile(const NamedFile&) = delete;
    NamedFile& operator=(const NamedFile&) = delete;

    /// Opens the file of an object.
    /// \param aName  The object's name with its prefix.
    /// \param aKind  Ending that keeps names of different kinds apart.
    /// \return False: there is none, it is empty, or the system refused.
    bool Open(const std::string& aName, const char* aKind);

    /// Opens the file of an object or makes it.
    /// \param aSize     Bytes of a new one; memory is reserved for all of them.
    /// \param aFill     Null leaves a new file full of zeros.
    /// \param aContext  Passed on to aFill.
    /// \return False: the name is not one, or the system refused.
    bool Create(const std::string& aName, const char* aKind, uint64_t aSize, Fill aFill,
                const void* aContext);

    /// \return False: the memory or the file could not be given back.
    bool Close() noexcept;

    /// In a child made by fork(): makes the file this process's own to hold. The parent's memory stays
    /// mapped. \return False: the system refused; it is held as before.
    bool HoldAgain() noexcept;

    /// Gives this holder a number that no other holder of the file has at the same time, until it is closed
    /// or its process ends. \return False: the system refused.
    bool TakePlace() noexcept;

    /// This holder's number, 1 to cLastPlace; 0: none.
    uint32_t GetPlace() const noexcept { return mPlace; }

    /// Whether another holder has one of these places. The system answers: it knows which processes live.
    bool IsTaken(uint32_t aFirst, uint32_t aCount) const noexcept;

    /// Whether both are holders of one file.
    bool IsSameAs(const NamedFile& aOther) const noexcept;

    static constexpr uint32_t cLastPlace = 0x3FFFFFFF;

    void* GetBase() const noexcept { return mBase; }
    uint64_t GetSize() const noexcept { return mSize; }
    bool IsNew() const noexcept { return mNew; }

private:
    enum class Outcome
    {
        Held,   // opened or made, and held
        Absent, // nobody holds a file of this name
        Again,  // another process was faster; look again
        Failed
    };

    bool Find(const std::string& aName, const char* aKind, bool aMake);
    Outcome Hold(const std::string& aFile);
    Outcome Examine(const std::string& aFile) const;
    Outcome Make(const std::string& aFile, uint64_t aSize, Fill aFill, const void* aContext);
    Outcome Complete(const std::string& aFile, gid_t aGroup, uint64_t aSize, Fill aFill,
                     const void* aContext);
    int OpenFolder(uint32_t aSession, bool aMake);
    bool Map();
    bool IsLinked(const std::string& aFile) const;

    int mFolder = -1;
    int mFile = -1;
    std::string mFileName;
    void* mBase = nullptr;
    uint64_t mSize = 0;
    uint32_t mPlace = 0;
    pid_t mHolder = 0;
    bool mOwn = false;    // the folder belongs to this process's user
    bool mShared = false; // the folder is open to the group that the administrator has named
    bool mNew = false;
};

/// A named file whose bytes are a Layout, which begins with Layout::cMark so that no other file is taken for
/// one. \return Null: there is none, it is no Layout, or the system refused. The caller deletes it.
NamedFile* OpenRecord(const std::string& aName, const char* aKind, uint64_t aSize, uint32_t aMark) noexcept;

/// As OpenRecord(), and makes the file when there is none. aFill sets everything but the mark.
NamedFile* CreateRecord(const std::string& aName, const char* aKind, uint64_t aSize, uint32_t aMark,
                        NamedFile::Fill aFill, const void* aContext) noexcept;

} // namespace KyPlatform
