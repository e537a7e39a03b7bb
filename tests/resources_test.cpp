// Kelvo.exe's resources, read from the built program as a data file: the
// ones Windows looks up by number are there, the version information is
// findable the way Windows finds it, and the manifest asks for nothing.
// The dialog's look is checked on the live dialog by the end-to-end table.
#include <windows.h>

#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

namespace {

class KelvoResources : public testing::Test {
protected:
    static void SetUpTestSuite() {
        image = LoadLibraryExW(KELVO_EXE, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    }
    static void TearDownTestSuite() { FreeLibrary(image); }

    static std::string Resource(LPCWSTR type, WORD id) {
        const HRSRC found = FindResourceW(image, MAKEINTRESOURCEW(id), type);
        if (found == nullptr) return std::string();
        const HGLOBAL loaded = LoadResource(image, found);
        return std::string(static_cast<const char*>(LockResource(loaded)), SizeofResource(image, found));
    }

    static HMODULE image;
};
HMODULE KelvoResources::image = nullptr;

TEST_F(KelvoResources, EveryNumberedResourceIsPresent) {
    ASSERT_NE(nullptr, image) << "cannot open Kelvo.exe";
    const struct {
        LPCWSTR type;
        WORD id;
        const char* what;
    } wanted[] = {
        {RT_DIALOG, 102, "dialog template"},
        {RT_GROUP_ICON, 128, "icon group"},
        {RT_VERSION, 1, "version information"},
        {RT_MANIFEST, 1, "the program's manifest"},  // id 1: the one the loader reads
    };
    for (const auto& w : wanted) {
        EXPECT_FALSE(Resource(w.type, w.id).empty()) << w.what << " " << w.id;
    }
}

// Windows shows the strings of the language and code page that the
// translation table names; a table that names another block shows nothing.
TEST_F(KelvoResources, TranslationNamesTheStringBlock) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(KELVO_EXE, &ignored);
    ASSERT_NE(0u, size);
    std::vector<BYTE> info(size);
    ASSERT_TRUE(GetFileVersionInfoW(KELVO_EXE, 0, size, info.data()));

    WORD* translation = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\VarFileInfo\\Translation",
                               reinterpret_cast<void**>(&translation), &length));
    ASSERT_EQ(4u, length) << "one language and code page";
    wchar_t path[64];
    swprintf(path, 64, L"\\StringFileInfo\\%04x%04x\\ProductVersion", translation[0], translation[1]);
    wchar_t* value = nullptr;
    ASSERT_TRUE(VerQueryValueW(info.data(), path, reinterpret_cast<void**>(&value), &length)) << path;

    VS_FIXEDFILEINFO* fixed = nullptr;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    wchar_t numbers[32];
    swprintf(numbers, 32, L"%u.%u.%u.%u", HIWORD(fixed->dwProductVersionMS),
             LOWORD(fixed->dwProductVersionMS), HIWORD(fixed->dwProductVersionLS),
             LOWORD(fixed->dwProductVersionLS));
    EXPECT_EQ(std::wstring(numbers), std::wstring(value)) << "the text and the numbers disagree";
}

TEST_F(KelvoResources, ManifestAsksForNoElevationAndDeclaresDpiAwareness) {
    const std::string manifest = Resource(RT_MANIFEST, 1);
    for (const char* wanted : {"level=\"asInvoker\"", "uiAccess=\"false\"", ">true</dpiAware>"}) {
        EXPECT_NE(std::string::npos, manifest.find(wanted)) << wanted;
    }
    EXPECT_EQ(std::string::npos, manifest.find("Common-Controls")) << "classic controls";
}

}  // namespace
