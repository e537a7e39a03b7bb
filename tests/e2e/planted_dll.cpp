// A stand-in for a system DLL that an attacker might leave beside Kelvo.exe,
// built twice, as iphlpapi.dll and as netapi32.dll. It reports one Ethernet
// adapter and answers every NetBIOS request, both with the address
// 66:66:66:66:66:66. Kelvo must never load it.
#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>

#include <string.h>

extern "C" __declspec(dllexport) DWORD WINAPI GetAdaptersInfo(PIP_ADAPTER_INFO info, PULONG size) {
    if (info == nullptr || *size < sizeof *info) {
        *size = sizeof *info;
        return ERROR_BUFFER_OVERFLOW;
    }
    memset(info, 0, sizeof *info);
    info->Type = MIB_IF_TYPE_ETHERNET;
    memset(info->Address, 0x66, 6);
    return ERROR_SUCCESS;
}

extern "C" __declspec(dllexport) UCHAR APIENTRY Netbios(PNCB request) {
    if (request->ncb_command == NCBASTAT && request->ncb_buffer != nullptr) {
        ADAPTER_STATUS* status = reinterpret_cast<ADAPTER_STATUS*>(request->ncb_buffer);
        memset(status->adapter_address, 0x66, 6);
        status->name_count = 1;
    }
    return NRC_GOODRET;
}
