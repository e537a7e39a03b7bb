// Program entry. There is no application framework: wWinMain hands control
// to the one application object, whose InitInstance runs the dialog.
#include "kelvo_app.h"

#include "kelvo_dlg.h"

CKelvoApp theApp;

BOOL CKelvoApp::InitInstance() {
    CKelvoDlg dlg(nullptr);
    dlg.DoModal();  // OK and Cancel are treated alike
    return FALSE;
}

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    theApp.InitInstance();
    return 0;
}
