#pragma once

#include "Simulator/Network/NetworkCamera.h"

#include <string>
#include <vector>

namespace KySerialCamera
{

/// What a line of the console, or an option of the same meaning, came to.
struct ConsoleAnswer
{
    bool mGood = true;
    bool mQuit = false;
    std::string mText; ///< Without a line end; empty for an empty line.
};

/// Carries out a command for a running, or not yet started, camera: faults, statistics and the like.
/// Docs/network-camera.md has the list.
ConsoleAnswer ExecuteLine(KySimulator::NetworkCamera& aCamera, const std::string& aLine);

/// The same for an option: "--drop ack:5" has the value "ack:5".
ConsoleAnswer ExecuteOption(KySimulator::NetworkCamera& aCamera, const std::string& aCommand,
                            const std::string& aValue);

/// What a camera has counted, in one line of names and numbers.
std::string StatisticsText(const KySimulator::NetworkCamera::Statistics& aStatistics);

} // namespace KySerialCamera
