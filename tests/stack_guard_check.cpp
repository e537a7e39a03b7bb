// The program's stack cookies under a real loader. Built and linked as Kelvo
// is, it runs itself: twice to read the guard, which start-up must seed
// anew each time, and once to overrun a protected buffer, which must end
// the process with STATUS_STACK_BUFFER_OVERRUN before any handler runs.
//
//   stack_guard_check.exe          exit status 0 when both hold
//   stack_guard_check.exe guard    exits with the guard as its status
//   stack_guard_check.exe smash    overruns a buffer; a handler exits 0xBAD
#include <windows.h>

#include <stdint.h>
#include <stdio.h>
#include <string.h>

extern "C" uintptr_t __stack_chk_guard;

namespace {

__attribute__((noinline)) void Overrun(const char* text) {
    char buffer[8];
    strcpy(buffer, text);
    puts(buffer);
}

LONG WINAPI HandlerRan(EXCEPTION_POINTERS*) {
    ExitProcess(0xBAD);
}

DWORD RunSelf(const wchar_t* mode) {
    wchar_t self[MAX_PATH], command[MAX_PATH + 16];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    _snwprintf(command, MAX_PATH + 16, L"\"%ls\" %ls", self, mode);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child;
    DWORD status = 0xFFFFFFFF;
    if (CreateProcessW(self, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &child)) {
        if (WaitForSingleObject(child.hProcess, 30000) != WAIT_OBJECT_0) TerminateProcess(child.hProcess, status);
        GetExitCodeProcess(child.hProcess, &status);
        CloseHandle(child.hThread);
        CloseHandle(child.hProcess);
    }
    return status;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const wchar_t* mode = argc > 1 ? argv[1] : L"";
    if (wcscmp(mode, L"guard") == 0) return int(__stack_chk_guard);
    if (wcscmp(mode, L"smash") == 0) {
        SetUnhandledExceptionFilter(HandlerRan);
        AddVectoredExceptionHandler(1, HandlerRan);
        const char* volatile text = "twenty-four bytes long!";
        Overrun(text);
        return 0;
    }
    const DWORD first = RunSelf(L"guard"), second = RunSelf(L"guard"), smashed = RunSelf(L"smash");
    printf("guard in two runs: 0x%08lx, 0x%08lx (must differ)\n", first, second);
    printf("overrun: status 0x%08lx, expected 0x%08lx\n", smashed, STATUS_STACK_BUFFER_OVERRUN);
    return first != second && smashed == STATUS_STACK_BUFFER_OVERRUN ? 0 : 1;
}
