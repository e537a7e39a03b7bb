// Loading a library by its full path in the system directory, as the
// program does where the system cannot narrow the library search (Windows
// XP; Wine always can, so the program never takes this way under Wine).
// The path against the limits of MAX_PATH, and the load against the real
// loader.
#include "system_library.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct LibraryPathCase {
    const char* name;
    std::wstring directory;
    UINT length;        // as GetSystemDirectoryW reports it
    std::wstring path;  // empty: no path
};

// The system directory comes from the system and cannot be set for a test,
// so long directories are given to the path alone.
TEST(SystemLibrary, PathIsTheDirectoryAndTheNameWithinMaxPath) {
    const std::wstring name = L"iphlpapi.dll";                               // 12 characters
    const std::wstring fits = L"C:\\" + std::wstring(243, L'd');             // 246: + 1 + 12 = 259
    const LibraryPathCase cases[] = {
        {"system32", L"C:\\WINDOWS\\system32", 19, L"C:\\WINDOWS\\system32\\iphlpapi.dll"},
        {"the call failed", L"", 0, L""},
        {"the name just fits", fits, UINT(fits.size()), fits + L"\\" + name},
        {"one too long", fits + L"d", UINT(fits.size() + 1), L""},
        {"the directory needed a larger buffer", L"C:\\WINDOWS\\system32", MAX_PATH + 40, L""},
    };
    for (const LibraryPathCase& c : cases) {
        struct {
            wchar_t path[MAX_PATH];
            wchar_t after[4] = {L'#', L'#', L'#', L'#'};
        } buffer;
        wmemset(buffer.path, L'#', MAX_PATH);
        wcscpy(buffer.path, c.directory.c_str());
        const std::wstring before(buffer.path, MAX_PATH);

        const bool made = MakeSystemLibraryPath(buffer.path, c.length, name.c_str());
        EXPECT_EQ(!c.path.empty(), made) << c.name;
        if (made) {
            EXPECT_EQ(c.path, std::wstring(buffer.path)) << c.name;
        } else {
            EXPECT_EQ(before, std::wstring(buffer.path, MAX_PATH)) << c.name << ": wrote into the path";
        }
        EXPECT_EQ(std::wstring(4, L'#'), std::wstring(buffer.after, 4)) << c.name << ": wrote past MAX_PATH";
    }
}

// The program's two libraries load from the system directory, and a name
// that is not there loads nothing.
TEST(SystemLibrary, LoadsByFullPathFromTheSystemDirectory) {
    wchar_t directory[MAX_PATH];
    const UINT length = GetSystemDirectoryW(directory, MAX_PATH);
    ASSERT_TRUE(length > 0 && length < MAX_PATH) << "GetSystemDirectoryW answered " << length;
    const struct {
        const wchar_t* name;
        bool loads;
    } cases[] = {{L"iphlpapi.dll", true}, {L"netapi32.dll", true}, {L"kelvo-no-such-library.dll", false}};
    for (const auto& c : cases) {
        const HMODULE library = LoadSystemLibraryByPath(c.name);
        EXPECT_EQ(c.loads, library != nullptr) << c.name << ": error " << GetLastError();
        if (library != nullptr) {
            wchar_t loaded[MAX_PATH] = L"";
            GetModuleFileNameW(library, loaded, MAX_PATH);
            FreeLibrary(library);
            const std::wstring expected = std::wstring(directory) + L"\\" + c.name;
            EXPECT_EQ(0, _wcsicmp(expected.c_str(), loaded)) << "loaded " << loaded << ", expected " << expected;
        }
    }
}

}  // namespace
