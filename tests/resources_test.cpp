// Kelvo.exe's resources, read from the built program as a data file: the
// dialog's styles and font, the version information as Windows finds it, and a
// manifest that asks for nothing. How the dialog looks and behaves
// is checked on the live dialog by the end-to-end table.
#include <windows.h>

#include <gtest/gtest.h>

#include "kelvo_version.h"

#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

// Kelvo.exe, open as a data file for as long as the tests run.
struct Image {
    HMODULE module = LoadLibraryExW(KELVO_EXE, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    ~Image() { FreeLibrary(module); }
} const kelvo;

std::string Resource(LPCWSTR type, WORD id) {
    const HRSRC found = FindResourceW(kelvo.module, MAKEINTRESOURCEW(id), type);
    if (found == nullptr) return std::string();
    return std::string(static_cast<const char*>(LockResource(LoadResource(kelvo.module, found))),
                       SizeofResource(kelvo.module, found));
}

// Template 102's own styles and font as its description gives them. (The
// controls show on the live dialog in the end-to-end table; the font's size,
// weight and character set often do not at 96 DPI under Wine, but they do
// at other settings and on Windows.)
TEST(KelvoResources, DialogTemplateHasTheDescribedStylesAndFont) {
    const std::string dialog = Resource(RT_DIALOG, 102);
    ASSERT_GE(dialog.size(), 32u) << "no dialog template 102";
    DWORD header[4];  // DLGTEMPLATEEX: version and signature, help id, extended style, style
    memcpy(header, dialog.data(), sizeof header);
    ASSERT_EQ(0xFFFF0001u, header[0]) << "not an extended template";
    EXPECT_EQ(DWORD(WS_EX_APPWINDOW), header[2]) << std::hex << "extended style 0x" << header[2];
    const DWORD style = DS_MODALFRAME | DS_SETFONT | WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU;
    EXPECT_EQ(style, header[3]) << std::hex << "style 0x" << header[3];
    // After the item count and the rectangle: menu, class and caption, each
    // none (0), an ordinal (0xFFFF, n) or a string; then the font.
    std::wstring rest(dialog.size() / 2 - 13, L'\0');
    memcpy(&rest[0], dialog.data() + 26, rest.size() * 2);
    size_t at = 0;
    for (int field = 0; field < 3; ++field) at = rest[at] == 0xFFFF ? at + 2 : rest.find(L'\0', at) + 1;
    wchar_t font[64];
    swprintf(font, 64, L"%u pt, weight %u, italic %u, character set %u, %ls", rest[at], rest[at + 1],
             rest[at + 2] & 0xFF, rest[at + 2] >> 8, rest.c_str() + at + 3);
    EXPECT_EQ(std::wstring(L"8 pt, weight 0, italic 0, character set 1, MS Sans Serif"), font);
}

// Version information as Windows' file properties read it: the strings of
// the block that the translation table names (a table that names another
// block shows nothing), and the numeric versions.
TEST(KelvoResources, VersionInformationCarriesTheProductsTexts) {
    std::vector<BYTE> info(GetFileVersionInfoSizeW(KELVO_EXE, nullptr));
    ASSERT_TRUE(GetFileVersionInfoW(KELVO_EXE, 0, DWORD(info.size()), info.data()));
    const auto query = [&](const std::wstring& path, UINT* length) {
        void* found = nullptr;
        return VerQueryValueW(info.data(), path.c_str(), &found, length) ? found : nullptr;
    };
    UINT length = 0;
    const WORD* translation = static_cast<const WORD*>(query(L"\\VarFileInfo\\Translation", &length));
    ASSERT_TRUE(translation != nullptr && length == 4) << "one language and code page";
    wchar_t block[32];
    swprintf(block, 32, L"\\StringFileInfo\\%04x%04x\\", translation[0], translation[1]);
    const VS_FIXEDFILEINFO* fixed = static_cast<const VS_FIXEDFILEINFO*>(query(L"\\", &length));
    ASSERT_NE(nullptr, fixed);
    const auto numbers = [](DWORD ms, DWORD ls) {
        wchar_t text[32];
        swprintf(text, 32, L"%u.%u.%u.%u", HIWORD(ms), LOWORD(ms), HIWORD(ls), LOWORD(ls));
        return std::wstring(text);
    };
    const struct {
        const wchar_t* key;
        const wchar_t* expected;
    } texts[] = {
        {L"FileVersion", L"" KELVO_FILE_VERSION_TEXT}, {L"ProductVersion", L"" KELVO_PRODUCT_VERSION_TEXT},
        {L"InternalName", L"Kelvo"},          {L"OriginalFilename", L"Kelvo.EXE"},
        {L"FileDescription", L"Kelvo MFC Application"}, {L"ProductName", L"Kelvo Application"},
        {L"CompanyName", L"The Kelvo developers"},
        {L"LegalCopyright", L"Copyright (C) 2026 The Kelvo developers"},
    };
    for (const auto& row : texts) {
        const wchar_t* text = static_cast<const wchar_t*>(query(block + std::wstring(row.key), &length));
        EXPECT_EQ(std::wstring(row.expected), std::wstring(text ? text : L"(none)")) << block << row.key;
    }
    EXPECT_EQ(L"" KELVO_FILE_VERSION_TEXT, numbers(fixed->dwFileVersionMS, fixed->dwFileVersionLS)) << "file version numbers";
    EXPECT_EQ(L"" KELVO_PRODUCT_VERSION_TEXT, numbers(fixed->dwProductVersionMS, fixed->dwProductVersionLS))
        << "product version numbers";
}

TEST(KelvoResources, ManifestAsksForNoElevationAndDeclaresDpiAwareness) {
    const std::string manifest = Resource(RT_MANIFEST, 1);  // id 1: the one the loader reads
    for (const char* wanted : {"level=\"asInvoker\"", "uiAccess=\"false\"", ">true</dpiAware>"}) {
        EXPECT_NE(std::string::npos, manifest.find(wanted)) << wanted;
    }
    EXPECT_EQ(std::string::npos, manifest.find("Common-Controls")) << "classic controls";
}

}  // namespace
