#include "kyserial/Serve/Service.h"

#include "kyserial/Text/Failure.h"

#include <KyPlatform/Session.h>
#include <Platform/ServiceNotice.h>

#include <JxUtilsLib/Event.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <new>
#include <thread>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cTick =
    50; // ms; how late an interruption or a reload is noticed, and what has happened to a device

std::string ReloadName(const std::string& aName)
{
    return KyPlatform::Session::cLocalPrefix + ("KySerialServe-" + aName);
}

/// A thread that does something every tick.
class Regularly
{
public:
    explicit Regularly(std::function<void()> aWhat)
        : mThread(
              [this, lWhat = std::move(aWhat)]
              {
                  while (!mStop.Wait_ms(cTick))
                  {
                      try
                      {
                          lWhat();
                      }
                      catch (const std::exception&)
                      {
                          // Short of memory: the next one may find some.
                      }
                  }
              })
    {
    }
    ~Regularly()
    {
        mStop.Set();
        mThread.join();
    }
    Regularly(const Regularly&) = delete;
    Regularly& operator=(const Regularly&) = delete;

private:
    JxUtilsLib::Event mStop{true};
    std::thread mThread;
};

} // namespace

Service::Service(Context& aContext, std::string aFile, ServeConfiguration aConfiguration)
    : mContext(aContext), mFile(std::move(aFile)), mConfiguration(std::move(aConfiguration))
{
    const std::string lName = ReloadName(mConfiguration.mName);
    // The event exists for as long as a service has it, so one that can be opened is another service's.
    if (mReload.Open(lName))
    {
        throw OperationError("a service with the name " + mConfiguration.mName +
                             " runs already; give this one another name in its configuration");
    }
    if (!mReload.Create(lName))
    {
        throw OperationError("the system refuses the event for --reload");
    }
    if (!mContext.mConsole.WatchInterrupts())
    {
        throw OperationError("the system refuses to report interruptions");
    }
}

void Service::AskToReload(const std::string& aName)
{
    KyPlatform::NamedEvent lEvent;
    if (!lEvent.Open(ReloadName(aName)) || !lEvent.Set())
    {
        throw OperationError("no service with the name " + aName + " runs in this session");
    }
}

void Service::Run()
{
    if (const std::string lFault = mLog.Use(mConfiguration.mLog); !lFault.empty())
    {
        throw OperationError("log: " + lFault);
    }
    try
    {
        Serve();
    }
    catch (const std::exception& lFailure) // the error output gets it too
    {
        if (!mConfiguration.mLog.mFile.empty())
        {
            mLog.Add(LogLevel::Error, lFailure.what());
        }
        throw;
    }
}

void Service::Serve()
{
    KyToolPlatform::ServiceNotice lNotice;
    KyToolPlatform::HangUp lHangUp; // after the console, which ends the program with this signal
    OpenWeb();                      // first: a place that is taken is refused before anything is opened
    Apply(mConfiguration);
    // Not on this thread: records may be on a disk that hangs, and the system must go on hearing from the service.
    std::optional<Regularly> lLooks(std::in_place, [this] { Look(); });
    mLog.Add(LogLevel::Information,
             "serving " + std::to_string(mConfiguration.mDevices.size()) + " devices of " + mFile);
    lNotice.Ready(); // devices may be switched off for days: that the service waits for them is its work
    while (!mContext.mConsole.WaitForInterrupt(cTick))
    {
        lNotice.Alive();
        TakeRequests(lHangUp);
        // Devices that leave are in no list that the other thread looks at.
        mLeaving.remove_if(
            [](const auto& aDevice)
            {
                aDevice->Look();
                return aDevice->HasEnded();
            });
        if (const std::string lNews = mWeb.has_value() ? mWeb->TakeNews() : std::string(); !lNews.empty())
        {
            mLog.Add(LogLevel::Warning, "web page: " + lNews);
        }
    }
    lNotice.Stopping();
    lLooks.reset();
    End();
}

// The lock is for the list alone: one look may take long.
void Service::Look()
{
    std::vector<std::shared_ptr<ServedDevice>> lDevices;
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        lDevices.assign(mDevices.begin(), mDevices.end());
    }
    for (const std::shared_ptr<ServedDevice>& lDevice : lDevices)
    {
        lDevice->Look();
    }
}

void Service::TakeRequests(KyToolPlatform::HangUp& aHangUp)
{
    // Asked apart, so that requests of both kinds are taken together and make one reload.
    const bool lIsAsked = mReload.Wait(0) == KyPlatform::WaitResult::Done;
    if (aHangUp.Take() || lIsAsked)
    {
        static_cast<void>(mReload.Reset()); // first: a request that comes now is another one
        try
        {
            Reload();
        }
        catch (const std::bad_alloc&) // what runs goes on
        {
            mLog.Add(LogLevel::Error, "not all of " + mFile + " is reloaded: there is not enough memory");
        }
    }
}

void Service::End()
{
    for (const auto& lDevice : mDevices)
    {
        lDevice->AskToEnd(); // all at once, then wait for each
    }
    mWeb.reset(); // before the devices: its answers are about them
    std::list<std::shared_ptr<ServedDevice>> lDevices;
    {
        const std::lock_guard<std::mutex> lLock(mLock);
        lDevices.swap(mDevices);
    }
    lDevices.clear();
    mLeaving.clear();
    mLog.Add(LogLevel::Information, "ended");
}

void Service::OpenWeb()
{
    if (!mConfiguration.mWeb.has_value())
    {
        return;
    }
    const TcpSettings lPlace = *mConfiguration.mWeb;
    mWeb.emplace(lPlace.mAddress, lPlace.mPort, mConfiguration.mWebToken,
                 [lSite = WebSite(*this)](const WebServer::Request& aRequest)
                 { return lSite.Answer(aRequest); });
    mLog.Add(LogLevel::Information, "web page is http://" + HostText(lPlace.mAddress, mWeb->GetPort()) + '/');
}

void Service::Reload()
{
    std::vector<ConfigurationFault> lFaults;
    const ServeConfiguration lConfiguration = LoadServeConfiguration(mFile, lFaults);
    for (const ConfigurationFault& lFault : lFaults)
    {
        mLog.Add(LogLevel::Error, FaultText(mFile, lFault));
    }
    if (lFaults.empty())
    {
        // Before the devices: what they say of the change is in the log that the file wants now.
        if (const std::string lFault = mLog.Use(lConfiguration.mLog); !lFault.empty())
        {
            mLog.Add(LogLevel::Error, "log: " + lFault + "; it stays where it is");
        }
        Apply(lConfiguration);
        mLog.Add(LogLevel::Information, "reloaded " + mFile);
    }
    else
    {
        mLog.Add(LogLevel::Error, "nothing is changed: " + mFile + " has faults");
    }
}

// Devices that leave end first: a new one may want what they have.
void Service::Apply(const ServeConfiguration& aConfiguration)
{
    const std::lock_guard<std::mutex> lLock(mLock);
    std::list<std::shared_ptr<ServedDevice>> lDevices;
    for (const ServedDeviceEntry& lEntry : aConfiguration.mDevices)
    {
        const auto lPlace =
            std::find_if(mDevices.begin(), mDevices.end(),
                         [&](const auto& aDevice) { return aDevice->GetEntry().IsSame(lEntry); });
        if (lPlace != mDevices.end())
        {
            (*lPlace)->Update(lEntry);
            lDevices.splice(lDevices.end(), mDevices, lPlace);
        }
    }
    for (const auto& lDevice : mDevices)
    {
        lDevice->AskToEnd();
    }
    mLeaving.splice(mLeaving.end(), mDevices);
    mDevices.swap(lDevices); // before new ones: these run on when there is no memory for them
    for (const ServedDeviceEntry& lEntry : aConfiguration.mDevices)
    {
        const bool lRuns =
            std::any_of(mDevices.begin(), mDevices.end(),
                        [&](const auto& aDevice) { return aDevice->GetEntry().IsSame(lEntry); });
        if (!lRuns)
        {
            mDevices.push_back(std::make_shared<ServedDevice>(lEntry, mContext.mConsole, mNetwork, mLog));
        }
    }
    mConfiguration = aConfiguration;
}

std::vector<ServedDeviceStatus> Service::GetStatus() const
{
    std::vector<ServedDeviceStatus> lStatus;
    const std::lock_guard<std::mutex> lLock(mLock);
    for (const auto& lDevice : mDevices)
    {
        lStatus.push_back(lDevice->GetStatus());
    }
    return lStatus;
}

std::string Service::GetName() const
{
    const std::lock_guard<std::mutex> lLock(mLock);
    return mConfiguration.mName;
}

// Under mLock.
ServedDevice* Service::FindDevice(const std::string& aName) const
{
    const auto lPlace = std::find_if(mDevices.begin(), mDevices.end(),
                                     [&](const auto& aDevice) { return aDevice->GetEntry().mName == aName; });
    return lPlace != mDevices.end() ? lPlace->get() : nullptr;
}

std::optional<std::vector<TrafficBlock>> Service::GetTraffic(const std::string& aDevice,
                                                             const std::string& aPort, uint64_t aCount,
                                                             uint64_t& aNext) const
{
    const std::lock_guard<std::mutex> lLock(mLock);
    const ServedDevice* const lDevice = FindDevice(aDevice);
    return lDevice != nullptr ? lDevice->GetTraffic(aPort, aCount, aNext) : std::nullopt;
}

ServedDevice::SendEnd Service::Send(const std::string& aDevice, const std::string& aPort,
                                    const std::string& aBytes)
{
    const std::lock_guard<std::mutex> lLock(mLock);
    ServedDevice* const lDevice = FindDevice(aDevice);
    return lDevice != nullptr ? lDevice->Send(aPort, aBytes) : ServedDevice::SendEnd::NoPort;
}

} // namespace KySerialTool
