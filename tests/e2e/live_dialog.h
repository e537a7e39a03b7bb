// What the programs that drive Kelvo from outside share: an owner for
// kernel handles and a way to find a process's dialog and read its field.
#pragma once

#include <windows.h>

#include <wchar.h>

#include <string>

// Owns a kernel handle.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() { Reset(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return handle_; }
    HANDLE* out() { Reset(); return &handle_; }
    void Reset() {
        if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        handle_ = nullptr;
    }

private:
    HANDLE handle_;
};

// The identifier field's control id in dialog template 102.
const int kFieldId = 1000;

struct DialogSearch {
    DWORD processId;
    HWND found;
};

inline BOOL CALLBACK MatchShownDialog(HWND window, LPARAM lParam) {
    DialogSearch* search = reinterpret_cast<DialogSearch*>(lParam);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    wchar_t className[16] = {};
    GetClassNameW(window, className, 16);
    if (owner != search->processId || wcscmp(className, L"#32770") != 0 ||
        !IsWindowVisible(window)) {
        return TRUE;
    }
    search->found = window;
    return FALSE;
}

// The visible dialog (class "#32770") of the process, or null.
inline HWND FindShownDialog(DWORD processId) {
    DialogSearch search = {processId, nullptr};
    EnumWindows(MatchShownDialog, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

// The field's text. A control of another process answers only WM_GETTEXT.
inline std::wstring FieldText(HWND dialog) {
    wchar_t text[64] = {};
    SendMessageW(GetDlgItem(dialog, kFieldId), WM_GETTEXT, 64, reinterpret_cast<LPARAM>(text));
    return text;
}
