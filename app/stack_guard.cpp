// Stack cookies for all product code, which is compiled with
// -fstack-protector-strong: a function with a local buffer saves
// __stack_chk_guard below its return address on entry and calls
// __stack_chk_fail if the copy changed by the time it returns. The guard
// and the failure routine are the program's own, built only on what
// Windows XP's kernel32 exports (GCC's libssp would import advapi32 and
// more).
#include <windows.h>

#include <stdint.h>

// The value until start-up replaces it.
extern "C" {
uintptr_t __stack_chk_guard = 0x2F6A91C3;
}

namespace {

// Seeds the guard once, before any other constructor of the program and
// before the program's entry, from values that differ from run to run: the
// time, the performance counter, the process and thread ids, the tick
// count, and the address of this frame. It is not protected itself: its
// own cookie would change under it.
__attribute__((constructor(101), no_stack_protector)) void SeedStackGuard() {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    uintptr_t guard = time.dwLowDateTime ^ time.dwHighDateTime ^ counter.LowPart ^
                      uintptr_t(counter.HighPart) ^ GetCurrentProcessId() ^
                      GetCurrentThreadId() ^ GetTickCount();
    __stack_chk_guard = guard ^ reinterpret_cast<uintptr_t>(&guard);
}

}  // namespace

// A cookie was overwritten: the stack can no longer be trusted, so nothing
// that might use it runs, no handler, no message, no cleanup. The process
// ends at once with the status Windows uses for this.
extern "C" __attribute__((noreturn, no_stack_protector)) void __stack_chk_fail() {
    for (;;) {
        TerminateProcess(GetCurrentProcess(), STATUS_STACK_BUFFER_OVERRUN);
    }
}
