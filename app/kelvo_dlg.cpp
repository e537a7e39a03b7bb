#include "kelvo_dlg.h"

#include "kelvo_app.h"
#include "machine_id.h"
#include "resource.h"

namespace {

// Help contexts of dialogs: this base plus the dialog's template number.
constexpr DWORD kHelpContextBase = 0x20000;

// Where a window of `size` starts when centred between low and high, kept
// inside that span whenever it fits.
int CentredStart(LONG low, LONG high, int size) {
    int start = (low + high) / 2 - size / 2;
    if (start + size > high) start = high - size;
    if (start < low) start = low;
    return start;
}

}  // namespace

CKelvoDlg::CKelvoDlg(HWND parent)
    : m_hIcon(LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDR_MAINFRAME))),
      m_hParent(parent) {}  // icons loaded from resources belong to the system

INT_PTR CKelvoDlg::DoModal() {
    const INT_PTR result =
        DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_KELVO_DIALOG), m_hParent,
                        DialogProc, reinterpret_cast<LPARAM>(this));
    m_hWnd = nullptr;  // destroyed with the dialog
    return result;
}

INT_PTR CALLBACK CKelvoDlg::DialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(hwnd, DWLP_USER, lParam);
        reinterpret_cast<CKelvoDlg*>(lParam)->m_hWnd = hwnd;
    }
    CKelvoDlg* dlg = reinterpret_cast<CKelvoDlg*>(GetWindowLongPtrW(hwnd, DWLP_USER));
    if (dlg == nullptr) {
        return FALSE;  // messages that arrive before WM_INITDIALOG
    }
    switch (message) {
    case WM_INITDIALOG:
        return dlg->InitDialog();
    case WM_PAINT:
        return dlg->OnPaint();
    case WM_QUERYDRAGICON:
        return reinterpret_cast<INT_PTR>(dlg->OnQueryDragIcon());
    case WM_HELP:
        return dlg->OnHelpInfo();
    case WM_COMMAND:
        return dlg->OnCommand(LOWORD(wParam));
    }
    return FALSE;
}

DWORD CKelvoDlg::GetHelpContext() const {
    return kHelpContextBase + IDD_KELVO_DIALOG;
}

// Template 102 places the dialog at 0, 0. As a dialog framework does, a
// dialog that OnInitDialog did not move is then centred on its monitor.
BOOL CKelvoDlg::InitDialog() {
    RECT before;
    GetWindowRect(m_hWnd, &before);
    const BOOL result = OnInitDialog();
    RECT after;
    GetWindowRect(m_hWnd, &after);
    if (EqualRect(&before, &after)) {
        CenterWindow();
    }
    return result;
}

// Centres the dialog on the work area (the screen less the taskbar) of the
// monitor it is on.
void CKelvoDlg::CenterWindow() {
    RECT window;
    MONITORINFO monitor;
    monitor.cbSize = sizeof monitor;
    if (!GetWindowRect(m_hWnd, &window) ||
        !GetMonitorInfoW(MonitorFromWindow(m_hWnd, MONITOR_DEFAULTTONEAREST), &monitor)) {
        return;
    }
    const RECT& area = monitor.rcWork;
    const int x = CentredStart(area.left, area.right, window.right - window.left);
    const int y = CentredStart(area.top, area.bottom, window.bottom - window.top);
    SetWindowPos(m_hWnd, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

BOOL CKelvoDlg::OnInitDialog() {
    SendMessageW(m_hWnd, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(m_hIcon));
    SendMessageW(m_hWnd, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(m_hIcon));

    // Computed once; nothing refreshes it while the dialog is open.
    MachineAddress address;
    MachineIdText id;
    const wchar_t* text = kNoMachineIdText;
    if (GetMachineAddress(address)) {
        id = FormatMachineId(address);
        text = id.chars;
    }
    SetDlgItemTextW(m_hWnd, IDC_MACHINE_ID, text);
    return TRUE;  // focus to the first tab stop, the OK button
}

// Where a minimised window is drawn in its own client area, draw the icon
// centred there; otherwise leave painting to the dialog manager.
BOOL CKelvoDlg::OnPaint() {
    if (!IsIconic(m_hWnd)) {
        return FALSE;
    }
    PAINTSTRUCT paint;
    const HDC dc = BeginPaint(m_hWnd, &paint);
    SendMessageW(m_hWnd, WM_ICONERASEBKGND, reinterpret_cast<WPARAM>(dc), 0);
    const int cxIcon = GetSystemMetrics(SM_CXICON);
    const int cyIcon = GetSystemMetrics(SM_CYICON);
    RECT client;
    GetClientRect(m_hWnd, &client);
    const int x = (client.right - client.left - cxIcon + 1) / 2;
    const int y = (client.bottom - client.top - cyIcon + 1) / 2;
    DrawIcon(dc, x, y, m_hIcon);
    EndPaint(m_hWnd, &paint);
    return TRUE;
}

HCURSOR CKelvoDlg::OnQueryDragIcon() {
    return static_cast<HCURSOR>(m_hIcon);
}

// F1 (the system's WM_HELP) without Shift, Ctrl or Alt becomes the
// application's help command, sent to its main window.
BOOL CKelvoDlg::OnHelpInfo() {
    const HWND mainWnd = theApp.m_pMainWnd != nullptr ? theApp.m_pMainWnd->GetSafeHwnd() : nullptr;
    if (mainWnd == nullptr || GetKeyState(VK_SHIFT) < 0 || GetKeyState(VK_CONTROL) < 0 ||
        GetKeyState(VK_MENU) < 0) {
        return FALSE;
    }
    SendMessageW(mainWnd, WM_COMMAND, ID_HELP, 0);
    return TRUE;
}

// OK (also Enter) and Cancel (also Escape and the close box) end the
// dialog; other commands are the application's.
BOOL CKelvoDlg::OnCommand(WORD id) {
    if (id != IDOK && id != IDCANCEL) {
        return theApp.OnCmdMsg(id);
    }
    EndDialog(m_hWnd, id);
    return TRUE;
}
