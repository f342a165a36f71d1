#pragma once

#include <KyBase/KyString.h>

#include <cstring>
#include <mutex>
#include <thread>

/// For adapters whose features keep what each bulk port's last event brought: hides the upstream features of
/// the other ports while one port's event is being reported. Docs/writing-an-adapter.md shows it in use.
///
/// An open bulk port looks at its own upstream features whichever feature is reported. When they still show
/// its last event, it takes the bytes of that event a second time.
///
/// Threads: any. Reports come one after the other; features are hidden from the thread that reports only.
class KyUpstreamReports
{
public:
    /// One report, from construction to destruction: around the NotifyFeatureInvalidated() calls of one
    /// feature.
    class Report
    {
    public:
        /// \param aName  The feature that is reported. Upstream features of its port stay visible; those of
        /// all
        ///               ports are hidden when it is no upstream feature.
        Report(KyUpstreamReports& aReports, const KyString& aName) noexcept : mReports(aReports)
        {
            mReports.Set(PortOf(aName), std::this_thread::get_id());
        }
        ~Report() { mReports.Set(cNone, std::thread::id()); }
        Report(const Report&) = delete;
        Report& operator=(const Report&) = delete;

    private:
        KyUpstreamReports& mReports;
    };

    KyUpstreamReports() = default;
    KyUpstreamReports(const KyUpstreamReports&) = delete;
    KyUpstreamReports& operator=(const KyUpstreamReports&) = delete;

    /// Whether aName is an upstream feature whose port is not the one that this thread reports now. The
    /// adapter then answers GetIntegerValue() with OK and 0.
    bool IsHidden(const KyString& aName) const noexcept
    {
        const int lPort = PortOf(aName);
        const std::lock_guard<std::mutex> lScope(mMutex);
        return lPort != cNone && mThread == std::this_thread::get_id() && mPort != lPort;
    }

private:
    static constexpr int cNone = -1;

    /// Of "EventBulk%iUpstreamDataBuffer" and "EventBulk%iUpstreamDataLength": the number of the bulk port.
    static int PortOf(const KyString& aName) noexcept
    {
        constexpr char cStart[] = "EventBulk";
        constexpr size_t cDigit = sizeof(cStart) - 1;
        const char* const lName = aName.GetAscii();
        if (std::strncmp(lName, cStart, cDigit) != 0 || lName[cDigit] < '0' || lName[cDigit] > '7')
        {
            return cNone;
        }
        const char* const lEnd = lName + cDigit + 1;
        const bool lIsUpstream =
            std::strcmp(lEnd, "UpstreamDataBuffer") == 0 || std::strcmp(lEnd, "UpstreamDataLength") == 0;
        return lIsUpstream ? lName[cDigit] - '0' : cNone;
    }

    void Set(int aPort, std::thread::id aThread) noexcept
    {
        const std::lock_guard<std::mutex> lScope(mMutex);
        mPort = aPort;
        mThread = aThread;
    }

    mutable std::mutex mMutex; // this header is complete in itself: it needs no library but the standard one
    int mPort = cNone;
    std::thread::id mThread; // no thread's, when nothing is reported
};
