// What the system itself says about the running Kelvo dialog, for the
// end-to-end driver: what its accessibility interface (MSAA) gives a screen
// reader for the identifier field, and which of the DLLs that Kelvo loads
// only while it looks for the address the Kelvo process still holds.
//
//   dialog_probe.exe    prints  accessible=NAME|VALUE|ROLE|read-only or writable
//                               held=DLL... or none
// Exit status 1 when there is no Kelvo dialog or its modules cannot be read.
#include <windows.h>
#include <oleacc.h>
#include <tlhelp32.h>

#include <stdio.h>

#include <string>

int wmain() {
    const HWND dialog = FindWindowW(L"#32770", L"Kelvo");
    IAccessible* field = nullptr;
    CoInitialize(nullptr);
    if (FAILED(AccessibleObjectFromWindow(GetDlgItem(dialog, 1000), OBJID_CLIENT, IID_IAccessible,
                                          reinterpret_cast<void**>(&field)))) {
        puts("accessible=(no Kelvo dialog with an accessible control 1000)");
        return 1;
    }
    VARIANT self = {}, role = {}, state = {};
    self.vt = VT_I4;  // CHILDID_SELF
    BSTR name = nullptr, value = nullptr;
    field->get_accName(self, &name);
    field->get_accValue(self, &value);
    field->get_accRole(self, &role);
    field->get_accState(self, &state);
    printf("accessible=%ls|%ls|%ld|%s\n", name ? name : L"", value ? value : L"", role.lVal,
           state.lVal & STATE_SYSTEM_READONLY ? "read-only" : "writable");
    SysFreeString(name);
    SysFreeString(value);
    field->Release();
    CoUninitialize();

    // Kelvo's modules. It always holds user32.dll: without that, the list
    // was not read.
    DWORD process = 0;
    GetWindowThreadProcessId(dialog, &process);
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
    MODULEENTRY32W module;
    module.dwSize = sizeof module;
    bool listed = false;
    std::wstring held;
    for (BOOL more = Module32FirstW(snapshot, &module); more; more = Module32NextW(snapshot, &module)) {
        listed |= _wcsicmp(module.szModule, L"user32.dll") == 0;
        if (_wcsicmp(module.szModule, L"iphlpapi.dll") == 0 || _wcsicmp(module.szModule, L"netapi32.dll") == 0) {
            held += (held.empty() ? L"" : L" ") + std::wstring(module.szModule);
        }
    }
    if (snapshot != INVALID_HANDLE_VALUE) CloseHandle(snapshot);
    printf("held=%ls\n", !listed ? L"(module list unreadable)" : held.empty() ? L"none" : held.c_str());
    return listed ? 0 : 1;
}
