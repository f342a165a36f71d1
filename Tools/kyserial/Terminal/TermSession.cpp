#include "kyserial/Terminal/TermSession.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <array>

namespace KySerialTool
{

namespace
{

using KyPlatform::Console;

constexpr uint32_t cQuietPoll = 5; // milliseconds

} // namespace

TermSession::TermSession(Console& aConsole, BytePort& aPort, TrafficLog& aLog, const TermSettings& aSettings)
    : mConsole(aConsole)
    , mSettings(aSettings)
    , mSender(
          aPort, aLog, [this] { return mConsole.IsInterrupted(); }, aSettings.mBusyLimit)
    , mReceiver(aPort, aLog,
                {[this](const std::vector<uint8_t>& aBytes) { return Take(aBytes); },
                 [this] { mConsole.Interrupt(); }})
{
}

TermSession::End TermSession::Run()
{
    End lEnd = SendInput();
    if (lEnd == End::InputEnded && !mSettings.mInteractive)
    {
        lEnd = AwaitQuiet();
    }
    mReceiver.Stop();
    const std::string lFailure = mReceiver.GetFailure();
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    if (!Write(mDump.Flush()))
    {
        throw OperationError("cannot write to the standard output");
    }
    return lEnd;
}

TermSession::End TermSession::SendInput()
{
    std::array<uint8_t, 4096> lBuffer{};
    for (;;)
    {
        size_t lRead = 0;
        const Console::ReadResult lResult =
            mConsole.Read(lBuffer.data(), lBuffer.size(), lRead, Console::cInfinite);
        if (lResult != Console::ReadResult::Data)
        {
            return lResult == Console::ReadResult::Interrupted ? End::Interrupted : End::InputEnded;
        }
        const size_t lSize = mSettings.mInteractive ? mSettings.mEscape.FindIn(lBuffer.data(), lRead) : lRead;
        if (!mSender.Send(lBuffer.data(), lSize))
        {
            return End::Interrupted;
        }
        if (lSize < lRead)
        {
            return End::Escaped;
        }
    }
}

TermSession::End TermSession::AwaitQuiet() const
{
    const uint64_t lInputEnd = JxUtilsLib::Thread::GetTickCount();
    while (!mConsole.IsInterrupted())
    {
        const uint64_t lLast = std::max(lInputEnd, mReceiver.GetLastTime());
        if (!mSettings.mForever && JxUtilsLib::Thread::GetTickCount() >= lLast + mSettings.mQuietTime)
        {
            break;
        }
        JxUtilsLib::Thread::Sleep(cQuietPoll);
    }
    return End::InputEnded; // everything was sent: to stop listening is no interruption
}

bool TermSession::Take(const std::vector<uint8_t>& aBytes)
{
    if (!mSettings.mHex)
    {
        return mConsole.Write(aBytes.data(), aBytes.size());
    }
    std::string lText = mDump.Add(aBytes.data(), aBytes.size());
    if (aBytes.empty() && mSettings.mPartialLines)
    {
        lText = mDump.Flush();
    }
    return Write(lText);
}

bool TermSession::Write(const std::string& aText)
{
    return mConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size());
}

} // namespace KySerialTool
