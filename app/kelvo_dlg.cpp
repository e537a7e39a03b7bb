#include "kelvo_dlg.h"

#include "machine_id.h"
#include "resource.h"

CKelvoDlg::CKelvoDlg(HWND parent)
    : m_hIcon(LoadIconW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDR_MAINFRAME))),
      m_hParent(parent) {}  // icons loaded from resources belong to the system

INT_PTR CKelvoDlg::DoModal() {
    return DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_KELVO_DIALOG),
                           m_hParent, DialogProc, reinterpret_cast<LPARAM>(this));
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
        return dlg->OnInitDialog();
    case WM_PAINT:
        return dlg->OnPaint();
    case WM_QUERYDRAGICON:
        return reinterpret_cast<INT_PTR>(dlg->OnQueryDragIcon());
    case WM_COMMAND:
        return dlg->OnCommand(LOWORD(wParam));
    }
    return FALSE;
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

// OK (also Enter) and Cancel (also Escape and the close box) end the dialog.
BOOL CKelvoDlg::OnCommand(WORD id) {
    if (id != IDOK && id != IDCANCEL) {
        return FALSE;
    }
    EndDialog(m_hWnd, id);
    return TRUE;
}
