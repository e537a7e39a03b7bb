// Program entry. There is no application framework: wWinMain hands control
// to the one application object, whose InitInstance runs the dialog.
#include "kelvo_app.h"

#include "kelvo_dlg.h"
#include "resource.h"

#include <string.h>

CKelvoApp theApp;

namespace {

// The program's own path with its extension replaced by ".HLP".
bool GetHelpFilePath(wchar_t (&path)[MAX_PATH]) {
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) {
        return false;  // failed or cut short
    }
    wchar_t* end = path + length;
    for (wchar_t* c = end; c > path && c[-1] != L'\\'; --c) {
        if (c[-1] == L'.') {
            end = c - 1;
            break;
        }
    }
    const wchar_t extension[] = L".HLP";
    if (end + sizeof extension / sizeof *extension > path + MAX_PATH) {
        return false;
    }
    memcpy(end, extension, sizeof extension);
    return true;
}

}  // namespace

BOOL CKelvoApp::InitInstance() {
    CKelvoDlg dlg(nullptr);
    m_pMainWnd = &dlg;
    dlg.DoModal();  // OK and Cancel are treated alike
    m_pMainWnd = nullptr;
    return FALSE;
}

BOOL CKelvoApp::OnCmdMsg(WORD id) {
    switch (id) {
    case ID_HELP:
        OnHelp();
        return TRUE;
    }
    return FALSE;
}

// Asks the system's help engine for the program's help file at the main
// window's help context. Where the engine cannot start it reports that
// itself, if at all; the dialog stays open and usable either way.
void CKelvoApp::OnHelp() {
    wchar_t helpFile[MAX_PATH];
    if (m_pMainWnd == nullptr || !GetHelpFilePath(helpFile)) {
        return;
    }
    WinHelpW(m_pMainWnd->GetSafeHwnd(), helpFile, HELP_CONTEXT, m_pMainWnd->GetHelpContext());
}

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    theApp.InitInstance();
    return 0;
}
