#pragma once

#include "kyserial/Options/Options.h"
#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/ServedDevice.h"
#include "kyserial/Serve/ServiceLog.h"
#include "kyserial/Serve/Tcp/Network.h"
#include "kyserial/Serve/Web/WebServer.h"
#include "kyserial/Serve/Web/WebSite.h"

#include <KyPlatform/NamedEvent.h>
#include <Platform/HangUp.h>

#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// All ports of a configuration, until the program is interrupted.
class Service final : private WebSite::View
{
public:
    /// Starts nothing yet. Throws OperationError when a service of that name runs.
    Service(Context& aContext, std::string aFile, ServeConfiguration aConfiguration);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Runs until the program is interrupted; a reload touches what has changed in the file. A file with faults
    /// changes nothing.
    void Run();

    /// Has the service of that name in this session read its file anew. Throws OperationError without such a service.
    static void AskToReload(const std::string& aName);

private:
    std::string GetName() const override;
    std::vector<ServedDeviceStatus> GetStatus() const override;
    std::optional<std::vector<TrafficBlock>> GetTraffic(const std::string& aDevice, const std::string& aPort,
                                                        uint64_t aCount, uint64_t& aNext) const override;
    ServedDevice::SendEnd Send(const std::string& aDevice, const std::string& aPort,
                               const std::string& aBytes) override;
    ServedDevice* FindDevice(const std::string& aName) const;
    void Apply(const ServeConfiguration& aConfiguration);
    void Reload();
    void OpenWeb();
    void Serve();
    void End();
    void TakeRequests(KyToolPlatform::HangUp& aHangUp);
    void Look();

    Context& mContext;
    const std::string mFile;
    ServeConfiguration mConfiguration;
    KyPlatform::NamedEvent mReload;
    ServiceLog mLog{};
    Network mNetwork{};
    mutable std::mutex mLock;                            // of the list; the main thread alone changes it
    std::list<std::shared_ptr<ServedDevice>> mDevices{}; // the thread that looks after them shares them
    std::list<std::shared_ptr<ServedDevice>> mLeaving{};
    std::optional<WebServer> mWeb{}; // last: it asks the others
};

} // namespace KySerialTool
