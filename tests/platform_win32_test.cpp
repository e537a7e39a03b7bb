// The real platform operations, under Wine in a namespace with only "lo".
#include "platform.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::wstring ModulePath(HMODULE module) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(module, path, MAX_PATH);
    return path;
}

std::wstring SystemDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetSystemDirectoryW(path, MAX_PATH);
    return path;
}

TEST(PlatformWin32, LoadsLibrariesFromTheSystemDirectoryOnly) {
    for (const wchar_t* name : {L"iphlpapi.dll", L"netapi32.dll"}) {
        const HMODULE module = PlatformLoadSystemLibrary(name);
        ASSERT_NE(nullptr, module) << name;
        EXPECT_EQ(SystemDirectory() + L"\\" + name, ModulePath(module));
        PlatformFreeLibrary(module);
    }
    EXPECT_EQ(nullptr, PlatformLoadSystemLibrary(L"kelvo-absent.dll"));
}

NCB ResetRequest() {
    NCB request = {};
    request.ncb_command = NCBRESET;
    request.ncb_lana_num = 0;
    return request;
}

TEST(PlatformWin32, NetbiosAnswersWithTheRequestsReturnCode) {
    NCB request = ResetRequest();
    EXPECT_EQ(NRC_OPENERR, PlatformNetbios(request)) << "before NetBIOS is opened";

    // Without an IPv4 subnet there is no LAN adapter 0. Wine says so in the
    // return value only and leaves ncb_retcode zero.
    PlatformNetbiosOpen();
    request = ResetRequest();
    EXPECT_NE(NRC_GOODRET, PlatformNetbios(request));
    PlatformNetbiosClose();

    request = ResetRequest();
    EXPECT_EQ(NRC_OPENERR, PlatformNetbios(request)) << "after NetBIOS is closed";
}

}  // namespace
