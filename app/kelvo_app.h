// The application: runs the identification dialog once, then ends.
#pragma once

#include <windows.h>

class CKelvoApp {
public:
    CKelvoApp() = default;
    virtual ~CKelvoApp() = default;

    // Runs the dialog modally and returns FALSE once it has closed: the
    // program then ends without a message loop of its own.
    virtual BOOL InitInstance();
};

extern CKelvoApp theApp;
