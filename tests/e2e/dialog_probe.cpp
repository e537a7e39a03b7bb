// What the system's accessibility interface (MSAA) tells a screen reader
// about the running Kelvo dialog's identifier field, for the end-to-end
// driver.
//
//   dialog_probe.exe    prints  accessible=NAME|VALUE|ROLE|read-only or writable
// Exit status 1 when there is no Kelvo dialog with an accessible field.
#include <windows.h>
#include <oleacc.h>

#include <stdio.h>

int wmain() {
    CoInitialize(nullptr);
    IAccessible* field = nullptr;
    if (FAILED(AccessibleObjectFromWindow(GetDlgItem(FindWindowW(L"#32770", L"Kelvo"), 1000), OBJID_CLIENT,
                                          IID_IAccessible, reinterpret_cast<void**>(&field)))) {
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
    return 0;
}
