#include "Platform/SystemService.h"

#include "Platform/Windows/ServiceControl.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <type_traits>

namespace KyToolPlatform
{

namespace
{

constexpr DWORD cPatience = 30000;    // ms, of the manager with a service that starts or ends
constexpr DWORD cRestartAfter = 1000; // ms
constexpr DWORD cForgetAfter = 86400; // seconds without a failure
constexpr DWORD cLook = 100;          // ms

struct CloseService
{
    void operator()(SC_HANDLE aHandle) const { ::CloseServiceHandle(aHandle); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

std::string LastError()
{
    return std::system_category().message(static_cast<int>(::GetLastError()));
}

// The manager calls functions without an argument of the caller's.
std::mutex gLock;
SERVICE_STATUS_HANDLE gService = nullptr;
DWORD gState = SERVICE_START_PENDING;
std::atomic<bool> gReload{false};
const std::function<int()>* gBody = nullptr;
const std::function<void()>* gStop = nullptr;

DWORD WINAPI OnServiceControl(DWORD aControl, DWORD /*aEvent*/, void* /*aData*/, void* /*aContext*/)
{
    switch (aControl)
    {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
        ServiceControl::Report(SERVICE_STOP_PENDING);
        (*gStop)();
        return NO_ERROR;
    case SERVICE_CONTROL_PARAMCHANGE:
        // Only noted: the manager waits for the return, and a reload may take long.
        gReload = true;
        return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
        // Every service has to answer this one. The manager has the state already.
        return NO_ERROR;
    default:
        return ERROR_CALL_NOT_IMPLEMENTED;
    }
}

void WINAPI RunService(DWORD /*aCount*/, char** /*aArguments*/)
{
    {
        const std::lock_guard<std::mutex> lLock(gLock);
        gService = ::RegisterServiceCtrlHandlerExA("", &OnServiceControl,
                                                   nullptr); // of a process with one, any name
    }
    ServiceControl::Report(SERVICE_START_PENDING);
    const int lStatus = (*gBody)();
    ServiceControl::Report(SERVICE_STOPPED, static_cast<DWORD>(lStatus));
}

void DescribeService(SC_HANDLE aService, std::string aDescription)
{
    SERVICE_DESCRIPTIONA lDescription{aDescription.data()};
    ::ChangeServiceConfig2A(aService, SERVICE_CONFIG_DESCRIPTION, &lDescription); // a service works without
    SC_ACTION lAgain{SC_ACTION_RESTART, cRestartAfter};
    SERVICE_FAILURE_ACTIONSA lFailures{};
    lFailures.dwResetPeriod = cForgetAfter;
    lFailures.cActions = 1;
    lFailures.lpsaActions = &lAgain;
    ::ChangeServiceConfig2A(aService, SERVICE_CONFIG_FAILURE_ACTIONS, &lFailures);
}

} // namespace

bool ServiceControl::IsService() noexcept
{
    const std::lock_guard<std::mutex> lLock(gLock);
    return gService != nullptr;
}

void ServiceControl::Report(DWORD aState, DWORD aExitCode) noexcept
{
    const std::lock_guard<std::mutex> lLock(gLock);
    if (gService == nullptr || gState == SERVICE_STOPPED ||
        (gState == SERVICE_STOP_PENDING && aState != SERVICE_STOPPED))
    {
        return; // a service that ends does not start to run any more
    }
    gState = aState;
    SERVICE_STATUS lStatus{};
    lStatus.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    lStatus.dwCurrentState = aState;
    lStatus.dwControlsAccepted =
        aState == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PARAMCHANGE
                                  : 0;
    lStatus.dwWin32ExitCode = aExitCode != 0 ? ERROR_SERVICE_SPECIFIC_ERROR : NO_ERROR;
    lStatus.dwServiceSpecificExitCode = aExitCode;
    lStatus.dwWaitHint = aState == SERVICE_RUNNING || aState == SERVICE_STOPPED ? 0 : cPatience;
    ::SetServiceStatus(gService, &lStatus); // a manager that is gone takes no report
}

bool ServiceControl::TakeReload() noexcept
{
    return gReload.exchange(false);
}

bool SystemService::IsSupported() noexcept
{
    return true;
}

std::string SystemService::Install(const std::string& aName, const std::string& aDescription,
                                   const std::vector<std::string>& aArguments)
{
    std::array<char, 32768> lProgram{};
    const DWORD lLength = ::GetModuleFileNameA(nullptr, lProgram.data(), static_cast<DWORD>(lProgram.size()));
    if (lLength == 0 || lLength >= lProgram.size())
    {
        return "the system does not say where the program is";
    }
    std::string lCommand = '"' + std::string(lProgram.data(), lLength) + '"';
    for (const std::string& lArgument : aArguments) // paths and options, which have no quotes
    {
        lCommand += " \"" + lArgument + '"';
    }
    const ServiceHandle lManager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (lManager == nullptr)
    {
        return LastError();
    }
    // After the network, which the cameras are on. The user has few rights, and needs no password here.
    const ServiceHandle lService(::CreateServiceA(
        lManager.get(), aName.c_str(), aName.c_str(), SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
        SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, lCommand.c_str(), nullptr, nullptr, "Tcpip\0",
        R"(NT AUTHORITY\LocalService)", nullptr));
    if (lService == nullptr)
    {
        return LastError();
    }
    DescribeService(lService.get(), aDescription);
    return {};
}

std::string SystemService::Remove(const std::string& aName)
{
    const ServiceHandle lManager(::OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    const ServiceHandle lService(
        lManager != nullptr
            ? ::OpenServiceA(lManager.get(), aName.c_str(), SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE)
            : nullptr);
    if (lService == nullptr)
    {
        return LastError();
    }
    SERVICE_STATUS lStatus{};
    // The system deletes a service that runs only when it ends, so it is stopped first.
    if (::ControlService(lService.get(), SERVICE_CONTROL_STOP, &lStatus) != FALSE)
    {
        for (DWORD lWaited = 0; lWaited < cPatience && lStatus.dwCurrentState != SERVICE_STOPPED;
             lWaited += cLook)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(cLook)); // the manager has no event for it
            if (::QueryServiceStatus(lService.get(), &lStatus) == FALSE)
            {
                break;
            }
        }
    }
    return ::DeleteService(lService.get()) != FALSE ? std::string() : LastError();
}

std::string SystemService::Run(const std::function<int()>& aBody, const std::function<void()>& aStop)
{
    gBody = &aBody;
    gStop = &aStop;
    std::array<char, 1> lName{};
    const std::array<SERVICE_TABLE_ENTRYA, 2> lTable{{{lName.data(), &RunService}, {nullptr, nullptr}}};
    return ::StartServiceCtrlDispatcherA(lTable.data()) != FALSE ? std::string() : LastError();
}

} // namespace KyToolPlatform
