#include "kyserial/Serve/Web/WebSite.h"

#include "kyserial/Serve/Status/StatusText.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/WebPage.h"

namespace KySerialTool
{

namespace
{

std::string Value(const WebTarget& aTarget, const char* aName)
{
    const auto lPlace = aTarget.mQuery.find(aName);
    return lPlace != aTarget.mQuery.end() ? lPlace->second : std::string();
}

} // namespace

WebServer::Answer WebSite::Answer(const WebServer::Request& aRequest) const
{
    const std::string& lPath = aRequest.mTarget.mPath;
    // Bytes go out by POST alone: a mere link to the page must not send any.
    if (aRequest.mIsPost || lPath == "/send")
    {
        return aRequest.mIsPost && lPath == "/send" ? Send(aRequest) : WebServer::Answer{405};
    }
    if (lPath == "/")
    {
        return {200, "text/html; charset=utf-8", cPageHtml};
    }
    if (lPath == "/page.css")
    {
        return {200, "text/css; charset=utf-8", cPageCss};
    }
    if (lPath == "/page.js")
    {
        return {200, "text/javascript; charset=utf-8", cPageJs};
    }
    if (lPath == "/status")
    {
        return {200, "application/json", StatusJson(mView->GetName(), mView->GetStatus())};
    }
    if (lPath == "/metrics")
    {
        return Metrics(aRequest.mAccept);
    }
    return lPath == "/traffic" ? Traffic(aRequest.mTarget) : WebServer::Answer{};
}

// Prometheus asks for OpenMetrics; older collectors and people with curl get what they can read.
WebServer::Answer WebSite::Metrics(const std::string& aAccept) const
{
    const bool lIsOpen = aAccept.find("application/openmetrics-text") != std::string::npos;
    return {200,
            lIsOpen ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                    : "text/plain; version=0.0.4; charset=utf-8",
            StatusMetrics(mView->GetStatus(), lIsOpen)};
}

WebServer::Answer WebSite::Traffic(const WebTarget& aTarget) const
{
    const std::string lAfter = Value(aTarget, "after");
    // A page that has just been opened has no count yet, and gets all that is remembered.
    const auto lCount = ParseNumber(lAfter.empty() ? "0" : lAfter, UINT64_MAX);
    if (!lCount.has_value())
    {
        return {400};
    }
    uint64_t lNext = 0;
    const auto lBlocks = mView->GetTraffic(Value(aTarget, "device"), Value(aTarget, "port"), *lCount, lNext);
    return lBlocks.has_value() ? WebServer::Answer{200, "application/json", TrafficJson(*lBlocks, lNext)}
                               : WebServer::Answer{};
}

WebServer::Answer WebSite::Send(const WebServer::Request& aRequest) const
{
    // Asked before anything else, so that a request without the token learns nothing about the ports.
    if (!aRequest.mHasToken)
    {
        return {403, "text/plain", "the token is wrong\n"};
    }
    switch (mView->Send(Value(aRequest.mTarget, "device"), Value(aRequest.mTarget, "port"), aRequest.mBody))
    {
    case ServedDevice::SendEnd::Sent:
        return {204};
    case ServedDevice::SendEnd::NotAllowed:
        return {403, "text/plain", "the port's entry has no terminal = true\n"};
    case ServedDevice::SendEnd::Busy:
        return {503, "text/plain", "too many bytes wait for the device\n"};
    case ServedDevice::SendEnd::NoPort:
        break;
    }
    return {404, "text/plain", "the port does not run\n"};
}

} // namespace KySerialTool
