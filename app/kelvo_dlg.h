// The identification dialog: shows the machine identifier in a read-only
// field until the user closes it.
//
// Hosted on the plain Win32 dialog manager: DoModal runs DialogBoxParamW
// with DialogProc, which finds the object through DWLP_USER and forwards
// each message to one member handler. Messages no handler takes go to the
// dialog manager's defaults.
#pragma once

#include <windows.h>

class CKelvoDlg {
public:
    // Binds the dialog to template 102 and loads the application icon.
    explicit CKelvoDlg(HWND parent);
    virtual ~CKelvoDlg() = default;
    CKelvoDlg(const CKelvoDlg&) = delete;
    CKelvoDlg& operator=(const CKelvoDlg&) = delete;

    // Shows the dialog and returns how it ended (IDOK or IDCANCEL), or -1
    // when it could not be created.
    INT_PTR DoModal();

    // The dialog's window while it is shown, else null.
    HWND GetSafeHwnd() const { return m_hWnd; }
    // The help engine's context for this dialog: 0x20000 + template number.
    DWORD GetHelpContext() const;

protected:
    virtual BOOL OnInitDialog();
    BOOL OnPaint();
    HCURSOR OnQueryDragIcon();
    BOOL OnHelpInfo();
    BOOL OnCommand(WORD id);

    HICON m_hIcon;

private:
    static INT_PTR CALLBACK DialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
    BOOL InitDialog();
    void CenterWindow();

    HWND m_hWnd = nullptr;
    HWND m_hParent;
};
