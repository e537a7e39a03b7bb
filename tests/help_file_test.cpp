// The help file's path made from the program's path, at the limits that
// Windows puts on GetModuleFileNameW's answer.
#include "help_file.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct HelpPathCase {
    const char* name;
    std::wstring program;
    DWORD length;          // as GetModuleFileNameW reports it
    std::wstring help;     // empty: no help file path
};

TEST(HelpFilePath, ReplacesTheExtensionWithinMaxPath) {
    const std::wstring folder = L"C:\\" + std::wstring(240, L'f') + L".d\\";  // 246 characters
    const std::wstring fits = folder + std::wstring(9, L'k');                // + ".HLP" = 259
    // A program renamed with a dot in its name, its path cut at MAX_PATH.
    const std::wstring cut = folder + L"kkkkkkkk.portable.exe";
    const HelpPathCase cases[] = {
        {"program with extension", L"C:\\Kelvo\\Kelvo.exe", 18, L"C:\\Kelvo\\Kelvo.HLP"},
        {"only the last extension", L"C:\\Kelvo.1.exe", 14, L"C:\\Kelvo.1.HLP"},
        {"a dot in a folder only", L"C:\\v1.2\\Kelvo", 13, L"C:\\v1.2\\Kelvo.HLP"},
        {"the call failed", L"", 0, L""},
        {"no extension, .HLP just fits", fits, DWORD(fits.size()), fits + L".HLP"},
        {"no extension, one too long", fits + L"k", DWORD(fits.size() + 1), L""},
        {"cut at MAX_PATH, unterminated", cut, MAX_PATH, L""},
    };
    for (const HelpPathCase& c : cases) {
        struct {
            wchar_t path[MAX_PATH];
            wchar_t after[4] = {L'#', L'#', L'#', L'#'};
        } buffer;
        wcsncpy(buffer.path, c.program.c_str(), MAX_PATH);  // unterminated when cut

        const bool made = MakeHelpFilePath(buffer.path, c.length);
        EXPECT_EQ(!c.help.empty(), made) << c.name;
        if (made) {
            EXPECT_EQ(c.help, std::wstring(buffer.path)) << c.name;
        }
        EXPECT_EQ(std::wstring(4, L'#'), std::wstring(buffer.after, 4)) << c.name << ": wrote past MAX_PATH";
    }
}

}  // namespace
