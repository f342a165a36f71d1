#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/SerialPeer.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace KySimulator
{

/// How a LensController behaves.
struct LensOptions
{
    std::string mIdentity = "KYLENS 1.0"; ///< Answer to ID?.
    uint32_t mStepsPerSecond = 0;         ///< Speed of the motors; 0 arrives at once.
    Time mAnswerDelay{0};                 ///< Time between the end of a command and its answer.
};

/// A motorised lens on a serial line: zoom, focus and iris, driven by lines of text. Docs/lens-controller.md
/// has the commands and answers. Any thread.
class LensController : public SerialPeer
{
public:
    /// Longest command in characters, its end not counted.
    static constexpr size_t cMaxLine = 64;

    explicit LensController(LensOptions aOptions = {});

    void OnPlugged(const std::shared_ptr<SerialLine>& aLine) override;
    void OnReceived(const uint8_t* aData, size_t aSize) override;
    void OnUnplugged() override;

    /// The answer to one command, as on the line but without the line's end; empty for an empty command.
    /// \param aLine  A command without its end.
    /// \param aNow   Camera time, for the motors.
    std::string Execute(std::string_view aLine, Time aNow);

private:
    /// A motor on its way from one position to another, or at rest.
    struct Motor
    {
        const char* mName;
        int32_t mMaximum;
        int32_t mHome;
        int32_t mFrom;
        int32_t mTarget;
        Time mStart;
    };

    std::string EndLine(Time aNow) JX_REQUIRES(mLock);
    std::string ExecuteLocked(std::string_view aLine, Time aNow) JX_REQUIRES(mLock);
    std::string ExecutePlain(std::string_view aCommand, Time aNow) JX_REQUIRES(mLock);
    std::string ExecuteMotor(Motor& aMotor, std::string_view aValue, Time aNow) const;
    std::string Status(Time aNow) const JX_REQUIRES(mLock);
    int32_t PositionOf(const Motor& aMotor, Time aNow) const;
    Time TimeOfSteps(int64_t aSteps) const;
    void Move(Motor& aMotor, int32_t aTarget, Time aNow) const;

    const LensOptions mOptions;
    Lock mLock;
    std::shared_ptr<SerialLine> mLine JX_GUARDED_BY(mLock);
    std::string mCommand JX_GUARDED_BY(mLock);
    bool mTooLong JX_GUARDED_BY(mLock) = false;
    std::array<Motor, 3> mMotors JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
