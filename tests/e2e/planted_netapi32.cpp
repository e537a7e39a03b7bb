// A stand-in netapi32.dll that an attacker might leave beside Kelvo.exe: it
// answers every NetBIOS request, with adapter address 66:66:66:66:66:66.
// Kelvo must never load it.
#include <windows.h>
#include <nb30.h>

#include <string.h>

extern "C" __declspec(dllexport) UCHAR APIENTRY Netbios(PNCB request) {
    if (request->ncb_command == NCBASTAT && request->ncb_buffer != nullptr) {
        memset(request->ncb_buffer, 0x66, 6);
    }
    request->ncb_retcode = NRC_GOODRET;
    return NRC_GOODRET;
}
