#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace KySerialTool
{

/// What waits for a client over TCP: bytes of the device and answers to the client, in their order, and how many of the device's
/// bytes have not left yet.
///
/// Threads: the caller locks. What GetSending() returns stays as it is until Sent().
class ClientOutput
{
public:
    /// \param aEscaped  Whether bytes of the device are escaped as telnet does it. Without, there are no answers.
    explicit ClientOutput(bool aEscaped) : mEscaped(aEscaped) {}

    /// \param aText   Bytes of the device, escaped if they have to be.
    /// \param aBytes  How many there were before.
    void AddBytes(const std::string& aText, size_t aBytes);
    void AddAnswer(const std::string& aText);

    /// Number of bytes that have not left, with escapes and answers.
    size_t GetSize() const { return mWaiting.size() + mSending.size(); }
    /// The part of them that is not being sent.
    size_t GetWaiting() const { return mWaiting.size(); }
    /// Number of the device's bytes that have not left whole.
    uint64_t GetBytes() const { return mBytes; }

    /// Has what waits sent next. \return False: nothing waits, or something is being sent.
    bool Begin();
    const std::string& GetSending() const { return mSending; }
    /// The first bytes of GetSending() have left.
    void Sent(size_t aCount);

private:
    /// Bytes that follow each other and are of one kind.
    struct Run
    {
        bool mIsAnswer;
        size_t mSize;
    };

    void AddRun(bool aIsAnswer, size_t aSize);
    uint64_t CountWhole(const char* aText, size_t aSize);

    const bool mEscaped;
    std::string mWaiting{};
    std::string mSending{};
    uint64_t mBytes = 0;
    std::deque<Run> mRuns{};   // of both texts, escaped ones only
    bool mHalfHasLeft = false; // of an escaped byte
};

} // namespace KySerialTool
