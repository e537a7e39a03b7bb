// The platform operations on real Windows (and Wine).
#include "platform.h"
#include "system_library.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

typedef UCHAR(APIENTRY* NetbiosFn)(PNCB request);
typedef BOOL(WINAPI* SetDefaultDllDirectoriesFn)(DWORD flags);

// The NetBIOS library between PlatformNetbiosOpen and PlatformNetbiosClose.
// It stays loaded for a whole probe: unloading it drops the names and the
// reset state that the probe's requests build on.
HMODULE netapi32 = nullptr;
NetbiosFn netbios = nullptr;

// kernel32's SetDefaultDllDirectories, or NULL where it has none. Looked up,
// not imported: XP's kernel32 lacks it, and an import would stop the
// program from starting there.
SetDefaultDllDirectoriesFn FindSetDefaultDllDirectories() {
    const HMODULE kernel32 = GetModuleHandleW(L"kernel32.dll");
    return kernel32 == nullptr ? nullptr
                               : reinterpret_cast<SetDefaultDllDirectoriesFn>(reinterpret_cast<void (*)(void)>(
                                     GetProcAddress(kernel32, "SetDefaultDllDirectories")));
}

}  // namespace

void PlatformNarrowDllSearch() {
    const SetDefaultDllDirectoriesFn narrow = FindSetDefaultDllDirectories();
    if (narrow != nullptr) {
        narrow(LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
}

bool PlatformGetVersion(OSVERSIONINFOW& info) {
    return GetVersionExW(&info) != FALSE;
}

HMODULE PlatformLoadSystemLibrary(const wchar_t* fileName) {
    if (FindSetDefaultDllDirectories() != nullptr) {
        // The DLL and its own imports from the system directory alone.
        return LoadLibraryExW(fileName, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    }
    // XP: by the full path.
    return LoadSystemLibraryByPath(fileName);
}

FARPROC PlatformGetProcAddress(HMODULE library, const char* procName) {
    return GetProcAddress(library, procName);
}

void PlatformFreeLibrary(HMODULE library) {
    FreeLibrary(library);
}

void* PlatformMalloc(size_t size) {
    return malloc(size);
}

void PlatformFree(void* block) {
    free(block);
}

void* PlatformHeapAlloc(SIZE_T size) {
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}

void PlatformHeapFree(void* block) {
    HeapFree(GetProcessHeap(), 0, block);
}

void PlatformNetbiosOpen() {
    netapi32 = PlatformLoadSystemLibrary(L"netapi32.dll");
    if (netapi32 != nullptr) {
        netbios = reinterpret_cast<NetbiosFn>(
            reinterpret_cast<void (*)(void)>(GetProcAddress(netapi32, "Netbios")));
    }
}

void PlatformNetbiosClose() {
    netbios = nullptr;
    if (netapi32 != nullptr) {
        FreeLibrary(netapi32);
        netapi32 = nullptr;
    }
}

UCHAR PlatformNetbios(NCB& request) {
    // The return value, not ncb_retcode: for a LAN adapter that does not
    // exist Wine answers NRC_BRIDGE and leaves the field as it was.
    return netbios != nullptr ? netbios(&request) : UCHAR(NRC_OPENERR);
}

int PlatformRand() {
    return rand();
}

void PlatformPrintf(const char* format, ...) {
    // msvcrt's own formatter: MinGW's vprintf would link its ~20 KB
    // replacement printf into the program.
    char text[256];
    va_list args;
    va_start(args, format);
    _vsnprintf(text, sizeof text - 1, format, args);
    va_end(args);
    text[sizeof text - 1] = '\0';
    fputs(text, stdout);
}
