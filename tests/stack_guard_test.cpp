// The program's stack cookies, each case in a process of its own (a death
// test): the guard is seeded anew at every start, and an overrun buffer in
// code built as the product is built ends the process at once with
// STATUS_STACK_BUFFER_OVERRUN, before any exception handler can run.
#include <windows.h>

#include <gtest/gtest.h>

#include <stdint.h>

extern "C" uintptr_t __stack_chk_guard;
void Overrun(const char* text);

namespace {

LONG WINAPI HandlerRan(EXCEPTION_POINTERS*) { ExitProcess(0xBAD); }

TEST(StackGuard, IsSeededAnewAtEveryStart) {
    uintptr_t guards[2] = {};
    for (uintptr_t& guard : guards) {
        const auto keep = [&guard](int status) { return guard = uintptr_t(status), true; };
        EXPECT_EXIT(ExitProcess(UINT(__stack_chk_guard)), keep, "");
    }
    EXPECT_NE(guards[0], guards[1]) << "the same guard in two processes: not seeded at start-up";
}

TEST(StackGuard, OverrunEndsTheProcessBeforeAnyHandler) {
    const char* volatile text = "twenty-four bytes long!";
    SetUnhandledExceptionFilter(HandlerRan);
    EXPECT_EXIT(Overrun(text), testing::ExitedWithCode(int(STATUS_STACK_BUFFER_OVERRUN)), "");
}

}  // namespace
