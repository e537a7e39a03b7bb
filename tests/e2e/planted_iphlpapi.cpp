// A stand-in iphlpapi.dll that an attacker might leave beside Kelvo.exe: it
// reports one Ethernet adapter, 66:66:66:66:66:66. Kelvo must never load it.
#include <windows.h>
#include <iphlpapi.h>

#include <string.h>

extern "C" __declspec(dllexport) DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO info, PULONG size) {
    if (info == nullptr || *size < sizeof *info) {
        *size = sizeof *info;
        return ERROR_BUFFER_OVERFLOW;
    }
    memset(info, 0, sizeof *info);
    info->Type = MIB_IF_TYPE_ETHERNET;
    info->AddressLength = 6;
    memset(info->Address, 0x66, 6);
    strcpy(info->IpAddressList.IpAddress.String, "10.66.66.66");
    return ERROR_SUCCESS;
}
