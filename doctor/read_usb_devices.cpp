#include "doctor/read_usb_devices.hpp"

#include "doctor/system_library.hpp"
#include "support/filesystem.hpp"
#include "support/win/win32_error.hpp"

#include <windows.h>

#include <cfgmgr32.h>
#include <setupapi.h>

#include <array>
#include <string>

namespace doctor {

namespace {

// The attached devices of a bus, by the functions of setupapi.dll and cfgmgr32.dll.
class device_set {
public:
    explicit device_set(wchar_t const * bus)
        : set(setup.function<decltype(SetupDiGetClassDevsW)>("SetupDiGetClassDevsW")(
              nullptr, bus, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT)) {
        if (set == INVALID_HANDLE_VALUE) {
            auto const error = GetLastError();
            throw QN::win::win32_error("SetupDiGetClassDevs", error);
        }
    }
    ~device_set() { destroy(set); }
    device_set(device_set const &) = delete;
    device_set & operator=(device_set const &) = delete;

    bool read(DWORD index, SP_DEVINFO_DATA & device) const {
        device.cbSize = sizeof device;
        return enumerate(set, index, &device) != 0;
    }

    std::string instance_of(SP_DEVINFO_DATA & device) const {
        std::array<wchar_t, 1024> text{};
        instance(set, &device, text.data(), static_cast<DWORD>(text.size() - 1), nullptr);
        return QN::path_to_utf8(text.data());
    }

    std::string property_of(SP_DEVINFO_DATA & device, DWORD number) const {
        std::array<wchar_t, 1024> text{};
        property(set, &device, number, nullptr, reinterpret_cast<BYTE *>(text.data()),
                 static_cast<DWORD>((text.size() - 1) * sizeof text.front()), nullptr);
        return QN::path_to_utf8(text.data());
    }

    unsigned long problem_of(SP_DEVINFO_DATA const & device) const {
        ULONG bits = 0;
        ULONG problem = 0;
        return status(&bits, &problem, device.DevInst, 0) == CR_SUCCESS &&
                       (bits & DN_HAS_PROBLEM) != 0
                   ? problem
                   : 0;
    }

private:
    system_library setup{L"setupapi.dll"};
    system_library configuration{L"cfgmgr32.dll"};
    decltype(&SetupDiDestroyDeviceInfoList) destroy =
        setup.function<decltype(SetupDiDestroyDeviceInfoList)>("SetupDiDestroyDeviceInfoList");
    decltype(&SetupDiEnumDeviceInfo) enumerate =
        setup.function<decltype(SetupDiEnumDeviceInfo)>("SetupDiEnumDeviceInfo");
    decltype(&SetupDiGetDeviceInstanceIdW) instance =
        setup.function<decltype(SetupDiGetDeviceInstanceIdW)>("SetupDiGetDeviceInstanceIdW");
    decltype(&SetupDiGetDeviceRegistryPropertyW) property =
        setup.function<decltype(SetupDiGetDeviceRegistryPropertyW)>(
            "SetupDiGetDeviceRegistryPropertyW");
    decltype(&CM_Get_DevNode_Status) status =
        configuration.function<decltype(CM_Get_DevNode_Status)>("CM_Get_DevNode_Status");
    HDEVINFO set;
};

} // namespace

std::vector<usb_device> read_usb_devices() {
    std::vector<usb_device> devices;
    device_set const attached(L"USB");
    SP_DEVINFO_DATA device{};
    for (DWORD index = 0; attached.read(index, device); ++index) {
        devices.push_back(
            {attached.instance_of(device), attached.property_of(device, SPDRP_DEVICEDESC),
             attached.property_of(device, SPDRP_SERVICE), attached.problem_of(device)});
    }
    return devices;
}

} // namespace doctor
