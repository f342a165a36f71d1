#pragma once

#include "kyserial/Serve/ServedDevice.h"
#include "kyserial/Serve/Web/WebServer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// What a service shows over HTTP:
///
///     /                                    the page, with /page.css and /page.js
///     /status                              devices and ports, JSON
///     /metrics                             the same for Prometheus
///     /traffic?device=&port=&after=        what passed a port after so many bytes, JSON
///     POST /send?device=&port=             bytes to the port of an entry with a terminal, from those with the token
///
/// Threads: as its view.
class WebSite
{
public:
    /// The service as requests see it.
    class View
    {
    public:
        virtual std::string GetName() const = 0;
        virtual std::vector<ServedDeviceStatus> GetStatus() const = 0;
        virtual std::optional<std::vector<TrafficBlock>> GetTraffic(const std::string& aDevice,
                                                                    const std::string& aPort, uint64_t aCount,
                                                                    uint64_t& aNext) const = 0;
        virtual ServedDevice::SendEnd Send(const std::string& aDevice, const std::string& aPort,
                                           const std::string& aBytes) = 0;

    protected:
        ~View() = default; // not deleted through this
    };

    /// aView must outlive the object.
    explicit WebSite(View& aView) : mView(&aView) {}

    WebServer::Answer Answer(const WebServer::Request& aRequest) const;

private:
    WebServer::Answer Metrics(const std::string& aAccept) const;
    WebServer::Answer Traffic(const WebTarget& aTarget) const;
    WebServer::Answer Send(const WebServer::Request& aRequest) const;

    View* mView;
};

} // namespace KySerialTool
