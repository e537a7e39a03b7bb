// Kelvo.exe's resources: the dialog template, the icon, the version and the
// manifest, read from the built program as a data file.
#include <windows.h>

#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

namespace {

class KelvoResources : public testing::Test {
protected:
    static void SetUpTestSuite() {
        image = LoadLibraryExW(KELVO_EXE, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    }
    static void TearDownTestSuite() { FreeLibrary(image); }

    static std::string Resource(LPCWSTR type, LPCWSTR name) {
        const HRSRC found = FindResourceW(image, name, type);
        if (found == nullptr) return std::string();
        const HGLOBAL loaded = LoadResource(image, found);
        return std::string(static_cast<const char*>(LockResource(loaded)), SizeofResource(image, found));
    }

    static HMODULE image;
};
HMODULE KelvoResources::image = nullptr;

// Reads a DLGTEMPLATEEX and its items in order.
class TemplateReader {
public:
    explicit TemplateReader(const std::string& data) : data_(data) {}
    BYTE Byte() { BYTE v = 0; Read(&v, sizeof v); return v; }
    WORD Word() { WORD v = 0; Read(&v, sizeof v); return v; }
    DWORD Dword() { DWORD v = 0; Read(&v, sizeof v); return v; }
    short Short() { return short(Word()); }
    // A string, or an ordinal (0xFFFF and a number) shown as "#number".
    std::wstring SzOrOrdinal() {
        std::wstring text;
        WORD c = Word();
        if (c == 0xFFFF) return L"#" + std::to_wstring(Word());
        for (; c != 0 && pos_ < data_.size(); c = Word()) text += wchar_t(c);
        return text;
    }
    void AlignDword() { pos_ = (pos_ + 3) & ~size_t(3); }
    void Skip(size_t bytes) { pos_ += bytes; }

private:
    void Read(void* out, size_t size) {
        if (pos_ + size <= data_.size()) memcpy(out, data_.data() + pos_, size);
        pos_ += size;
    }
    const std::string& data_;
    size_t pos_ = 0;
};

struct Item {
    DWORD style;
    short x, y, cx, cy;
    DWORD id;
    std::wstring windowClass, text;
};

TEST_F(KelvoResources, DialogTemplateIsAsDesigned) {
    const std::string data = Resource(RT_DIALOG, MAKEINTRESOURCEW(102));
    ASSERT_FALSE(data.empty()) << "no dialog 102";
    TemplateReader in(data);
    EXPECT_EQ(1, in.Word()) << "dlgVer: the extended form";
    EXPECT_EQ(0xFFFF, in.Word()) << "signature";
    in.Skip(4);  // help ID
    EXPECT_EQ(DWORD(WS_EX_APPWINDOW), in.Dword());
    EXPECT_EQ(DWORD(DS_MODALFRAME | DS_SETFONT | WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU),
              in.Dword());
    const WORD count = in.Word();
    const short box[4] = {in.Short(), in.Short(), in.Short(), in.Short()};
    EXPECT_EQ((std::vector<short>{0, 0, 112, 55}), std::vector<short>(box, box + 4));
    EXPECT_EQ(L"", in.SzOrOrdinal()) << "menu";
    EXPECT_EQ(L"", in.SzOrOrdinal()) << "class";
    EXPECT_EQ(L"Kelvo", in.SzOrOrdinal());
    EXPECT_EQ(8, in.Word()) << "point size";
    EXPECT_EQ(0, in.Word()) << "weight";
    EXPECT_EQ(0, in.Byte()) << "italic";
    EXPECT_EQ(1, in.Byte()) << "character set";
    EXPECT_EQ(L"MS Sans Serif", in.SzOrOrdinal());

    const Item expected[] = {
        {WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_DEFPUSHBUTTON, 30, 40, 50, 14, IDOK, L"#128", L"OK"},
        {WS_CHILD | WS_VISIBLE | WS_GROUP | SS_LEFT, 2, 7, 43, 8, DWORD(-1), L"#130", L"Machine ID :"},
        {WS_CHILD | WS_VISIBLE | WS_BORDER | WS_TABSTOP | ES_READONLY | ES_AUTOHSCROLL, 45, 3, 65, 15,
         1000, L"#129", L""},
    };
    ASSERT_EQ(3, count);
    for (const Item& want : expected) {
        in.AlignDword();
        in.Skip(4);  // help ID
        const DWORD exStyle = in.Dword();
        Item got;
        got.style = in.Dword();
        got.x = in.Short(), got.y = in.Short(), got.cx = in.Short(), got.cy = in.Short();
        got.id = in.Dword();
        got.windowClass = in.SzOrOrdinal();
        got.text = in.SzOrOrdinal();
        in.Skip(in.Word());  // creation data
        EXPECT_EQ(0u, exStyle) << want.id;
        EXPECT_EQ(want.style, got.style) << "control " << long(want.id) << std::hex
                                         << ": style 0x" << got.style << " against 0x" << want.style;
        EXPECT_EQ((std::vector<short>{want.x, want.y, want.cx, want.cy}),
                  (std::vector<short>{got.x, got.y, got.cx, got.cy})) << long(want.id);
        EXPECT_EQ(want.id, got.id);
        EXPECT_EQ(want.windowClass, got.windowClass) << long(want.id);
        EXPECT_EQ(want.text, got.text) << long(want.id);
    }
}

TEST_F(KelvoResources, IconGroupHoldsOneSmall256ColourImage) {
    const std::string group = Resource(RT_GROUP_ICON, MAKEINTRESOURCEW(128));
    ASSERT_EQ(6u + 14u, group.size()) << "one entry";
    const BYTE* entry = reinterpret_cast<const BYTE*>(group.data()) + 6;
    EXPECT_EQ(16, entry[0]) << "width";
    EXPECT_EQ(16, entry[1]) << "height";
    WORD bitCount;
    memcpy(&bitCount, entry + 6, sizeof bitCount);
    EXPECT_EQ(8, bitCount);
}

TEST_F(KelvoResources, VersionStrings) {
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(KELVO_EXE, &ignored);
    ASSERT_NE(0u, size);
    std::vector<BYTE> info(size);
    ASSERT_TRUE(GetFileVersionInfoW(KELVO_EXE, 0, size, info.data()));

    const struct {
        const wchar_t* name;
        const wchar_t* value;
    } strings[] = {
        {L"FileVersion", L"1.0.0.4"},          {L"ProductVersion", L"6.20.0.0"},
        {L"InternalName", L"Kelvo"},           {L"OriginalFilename", L"Kelvo.EXE"},
        {L"FileDescription", L"Kelvo MFC Application"},
        {L"ProductName", L"Kelvo Application"},
    };
    for (const auto& s : strings) {
        const std::wstring path = std::wstring(L"\\StringFileInfo\\040904b0\\") + s.name;
        wchar_t* value = nullptr;
        UINT length = 0;
        ASSERT_TRUE(VerQueryValueW(info.data(), path.c_str(), reinterpret_cast<void**>(&value), &length))
            << s.name;
        EXPECT_EQ(std::wstring(s.value), std::wstring(value)) << s.name;
    }
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(MAKELONG(0, 1), LONG(fixed->dwFileVersionMS));
    EXPECT_EQ(MAKELONG(4, 0), LONG(fixed->dwFileVersionLS));
    EXPECT_EQ(MAKELONG(20, 6), LONG(fixed->dwProductVersionMS));
    EXPECT_EQ(0, LONG(fixed->dwProductVersionLS));
}

TEST_F(KelvoResources, ManifestAsksForNoElevationAndDeclaresDpiAwareness) {
    const std::string manifest = Resource(RT_MANIFEST, MAKEINTRESOURCEW(1));
    ASSERT_FALSE(manifest.empty()) << "no embedded manifest";
    for (const char* wanted : {"level=\"asInvoker\"", "uiAccess=\"false\"", ">true</dpiAware>"}) {
        EXPECT_NE(std::string::npos, manifest.find(wanted)) << wanted;
    }
    EXPECT_EQ(std::string::npos, manifest.find("Common-Controls")) << "classic controls";
}

}  // namespace
