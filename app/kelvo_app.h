// The application: runs the identification dialog once, then ends.
#pragma once

#include <windows.h>

class CKelvoDlg;

class CKelvoApp {
public:
    CKelvoApp() = default;
    virtual ~CKelvoApp() = default;

    // Runs the dialog modally as the application's main window and returns
    // FALSE once it has closed: the program then ends without a message
    // loop of its own.
    virtual BOOL InitInstance();

    // The application's command map: the commands that its main window
    // leaves to it. Returns TRUE when the command was handled.
    BOOL OnCmdMsg(WORD id);

    // The window that stands for the application while the dialog runs;
    // null before and after.
    CKelvoDlg* m_pMainWnd = nullptr;

protected:
    void OnHelp();
};

extern CKelvoApp theApp;
