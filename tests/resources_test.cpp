// Kelvo.exe's resources, read from the built program as a data file: the
// dialog's styles, version information findable the way Windows finds it,
// and a manifest that asks for nothing. How the dialog looks and behaves
// is checked on the live dialog by the end-to-end table.
#include <windows.h>

#include <gtest/gtest.h>

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

// Template 102's own styles as its description gives them. (The controls'
// styles show on the live dialog in the end-to-end table.)
TEST(KelvoResources, DialogTemplateHasTheDescribedStyles) {
    const std::string dialog = Resource(RT_DIALOG, 102);
    ASSERT_GE(dialog.size(), 16u) << "no dialog template 102";
    DWORD header[4];  // DLGTEMPLATEEX: version and signature, help id, extended style, style
    memcpy(header, dialog.data(), sizeof header);
    ASSERT_EQ(0xFFFF0001u, header[0]) << "not an extended template";
    EXPECT_EQ(DWORD(WS_EX_APPWINDOW), header[2]) << std::hex << "extended style 0x" << header[2];
    const DWORD style = DS_MODALFRAME | DS_SETFONT | WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU;
    EXPECT_EQ(style, header[3]) << std::hex << "style 0x" << header[3];
}

// Windows shows the strings of the language and code page that the
// translation table names; a table that names another block shows nothing.
TEST(KelvoResources, TranslationNamesTheStringBlock) {
    std::vector<BYTE> info(GetFileVersionInfoSizeW(KELVO_EXE, nullptr));
    ASSERT_TRUE(GetFileVersionInfoW(KELVO_EXE, 0, DWORD(info.size()), info.data()));
    WORD* translation = nullptr;
    VS_FIXEDFILEINFO* fixed = nullptr;
    wchar_t* text = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\VarFileInfo\\Translation",
                               reinterpret_cast<void**>(&translation), &length));
    ASSERT_EQ(4u, length) << "one language and code page";
    wchar_t path[64];
    swprintf(path, 64, L"\\StringFileInfo\\%04x%04x\\ProductVersion", translation[0], translation[1]);
    ASSERT_TRUE(VerQueryValueW(info.data(), path, reinterpret_cast<void**>(&text), &length)) << path;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    wchar_t numbers[32];
    swprintf(numbers, 32, L"%u.%u.%u.%u", HIWORD(fixed->dwProductVersionMS),
             LOWORD(fixed->dwProductVersionMS), HIWORD(fixed->dwProductVersionLS),
             LOWORD(fixed->dwProductVersionLS));
    EXPECT_EQ(std::wstring(numbers), std::wstring(text)) << "the text and the numbers disagree";
}

TEST(KelvoResources, ManifestAsksForNoElevationAndDeclaresDpiAwareness) {
    const std::string manifest = Resource(RT_MANIFEST, 1);  // id 1: the one the loader reads
    for (const char* wanted : {"level=\"asInvoker\"", "uiAccess=\"false\"", ">true</dpiAware>"}) {
        EXPECT_NE(std::string::npos, manifest.find(wanted)) << wanted;
    }
    EXPECT_EQ(std::string::npos, manifest.find("Common-Controls")) << "classic controls";
}

}  // namespace
