// Program entry. There is no application framework: wWinMain hands control
// to the one application object, whose InitInstance runs the dialog.
#include "kelvo_app.h"

#include "help_file.h"
#include "kelvo_dlg.h"
#include "platform.h"
#include "resource.h"

CKelvoApp theApp;

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
    if (m_pMainWnd == nullptr ||
        !MakeHelpFilePath(helpFile, GetModuleFileNameW(nullptr, helpFile, MAX_PATH))) {
        return;
    }
    WinHelpW(m_pMainWnd->GetSafeHwnd(), helpFile, HELP_CONTEXT, m_pMainWnd->GetHelpContext());
}

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    // Kelvo is often started from a Downloads folder, beside whatever else
    // was downloaded: from here on no library comes from the program's folder.
    PlatformNarrowDllSearch();
    theApp.InitInstance();
    return 0;
}
