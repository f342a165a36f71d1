#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace KyPlatform
{

/// A piece of memory that processes of one machine share, found by its name.
///
/// Names and life as NamedMutex. The bytes are the users' own: nothing of the system's is kept among them.
/// Other processes write them too: what is read from them may be wrong, and may change at any moment. Linux: a
/// process of the same user may cut the file short, and the system then ends a process that touches the missing
/// part; the folder keeps all other users out.
///
/// Threads: one at a time; the bytes are as shared as the users make them.
class SharedMemory
{
public:
    SharedMemory() noexcept = default;
    ~SharedMemory() { Close(); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;

    /// Opens the memory of that name, with the size that it has, or makes it when there is none. Closes
    /// first.
    /// \param aSize  Bytes of a new one, all of them 0; 1 or more.
    /// \param aNew   Receives whether it was made; false on failure.
    /// \return False: an argument is bad, or the system refused; the object is closed.
    bool Create(const std::string& aName, uint64_t aSize, bool& aNew) noexcept;

    /// Opens the memory of that name, readable and writable. Closes first.
    /// \return False: there is none, or the system refused; the object is closed.
    bool Open(const std::string& aName) noexcept;

    /// Takes the memory out of this process; harmless when closed.
    /// \return False: the system refused. The object is closed all the same.
    bool Close() noexcept;

    bool IsValid() const noexcept { return mBase != nullptr; }

    /// The first byte, on a page's start; null when closed.
    void* GetBase() const noexcept { return mBase; }

    /// The bytes that can be touched; 0 when closed. Windows rounds the size of an opened one up to pages.
    uint64_t GetSize() const noexcept { return mSize; }

    /// Whether this is what memory made with aSize bytes looks like: as exactly as the system reports it.
    bool HasSizeOf(uint64_t aSize) const noexcept;

private:
    void* mObject = nullptr; // the backend's; null: closed
    void* mBase = nullptr;
    uint64_t mSize = 0;
};

} // namespace KyPlatform
