#pragma once

#include <cstdint>
#include <fstream>
#include <string>

namespace KySerialTool
{

/// A file that texts are added to, and that is set aside when it has become large: "FILE.log" becomes "FILE.1.log", that one
/// "FILE.2.log" and so on.
///
/// Threads: the caller locks.
class RotatingFile
{
public:
    /// How large it becomes.
    struct Limit
    {
        uint64_t mBytes = 0; ///< Of a file, which is a text larger at the most; 0: no limit.
        uint32_t mFiles = 4; ///< That stay beside the one that is written; the oldest is removed.

        bool operator==(const Limit&) const = default;
    };

    /// Opens it, at the end of what it has.
    /// \return Why the file is not used, "cannot write it.log: it is a directory"; empty: it is open.
    std::string Open(const std::string& aPath, const Limit& aLimit);

    bool IsOpen() const { return mOpen; }

    /// Adds a text, and flushes it, so that a reader of the file finds it. Without an open file, nothing.
    /// \return Whether another file has been begun after it.
    bool Write(const std::string& aText);

    /// Why texts are lost, "cannot write it.log: No space left on device"; empty: no text is lost.
    const std::string& GetFailure() const { return mFailure; }

    /// "cannot write it.log" and why.
    std::string CannotWrite(const std::string& aWhy) const;

private:
    std::string OpenFile();
    void Rotate();

    std::string mPath{};
    Limit mLimit{};
    std::ofstream mFile{};
    std::string mFailure{};
    bool mOpen = false;
    uint64_t mBytes = 0; // of the file
};

} // namespace KySerialTool
