// Every operating-system and runtime operation that the machine identifier
// needs, in one place. The program links platform_win32.cpp; the unit tests
// link a scripted fake instead. Nothing else in machine_id/ calls the
// platform directly.
#pragma once

#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>

// --- Start-up ----------------------------------------------------------
// The program calls this first, before anything may load a library; the
// tests have no use for it. Where kernel32 has SetDefaultDllDirectories
// (Windows 8 and later; Vista and 7 once an update brings it), every
// library loaded by bare name afterwards, by the program or by the system
// on its behalf, is then looked for in the system directory only, never
// beside the program. Elsewhere (XP) it changes nothing.
void PlatformNarrowDllSearch();

// --- Version -----------------------------------------------------------
// GetVersionExW. The caller sets info.dwOSVersionInfoSize. Returns false
// when the platform refuses; info is then not to be read.
bool PlatformGetVersion(OSVERSIONINFOW& info);

// --- Libraries loaded at run time --------------------------------------
// Loads the DLL `fileName` from the system directory only (a same-named DLL
// elsewhere, such as beside the program, is never taken).
// Returns NULL when it cannot be loaded. Each non-NULL handle must be given
// back to PlatformFreeLibrary exactly once.
HMODULE PlatformLoadSystemLibrary(const wchar_t* fileName);
// GetProcAddress: NULL when the library has no such export.
FARPROC PlatformGetProcAddress(HMODULE library, const char* procName);
void PlatformFreeLibrary(HMODULE library);

// The signature of iphlpapi's GetAdaptersInfo, reached through the above.
typedef DWORD(WINAPI* GetAdaptersInfoFn)(PIP_ADAPTER_INFO info, PULONG size);

// --- Runtime library heap (adapter list) --------------------------------
// malloc and free. PlatformFree(NULL) does nothing.
void* PlatformMalloc(size_t size);
void PlatformFree(void* block);

// --- Process heap (NetBIOS status buffer) -------------------------------
// HeapAlloc and HeapFree on the process heap. The block comes zero-filled;
// NULL when the heap refuses.
void* PlatformHeapAlloc(SIZE_T size);
void PlatformHeapFree(void* block);

// --- NetBIOS ------------------------------------------------------------
// PlatformNetbiosOpen makes the system's NetBIOS available until the
// matching PlatformNetbiosClose; each Open is closed exactly once, and no
// state survives the Close. PlatformNetbios submits one synchronous request
// and returns its return code (NRC_GOODRET on success). Outside Open/Close,
// or where the system has no NetBIOS, every request answers NRC_OPENERR.
void PlatformNetbiosOpen();
void PlatformNetbiosClose();
UCHAR PlatformNetbios(NCB& request);

// --- Runtime library ----------------------------------------------------
// rand(): 0 to RAND_MAX (0x7FFF). Not seeded here.
int PlatformRand();
// printf() to the process's standard output.
void PlatformPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
