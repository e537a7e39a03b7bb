// Drives a live Kelvo dialog from outside, as a user would, and reports
// what it saw as "key=value" lines on standard output:
//
//   kelvo_ui [--close ok|enter|escape|closebox] [--screenshot FILE.bmp]
//            [--timeout SECONDS] PATH\TO\Kelvo.exe
//
// It starts the program with its standard output on a pipe, waits for the
// dialog, reads it, closes it by the chosen means (OK by default) and
// reports how the process ended and every line it wrote. Exit status: 0
// when the dialog was found and the process ended, 1 otherwise.
#include "live_dialog.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <string>

namespace {

const int kDialogTemplate = 102;

struct Options {
    const wchar_t* close = L"ok";
    const wchar_t* screenshot = nullptr;
    DWORD timeoutMs = 30000;
    const wchar_t* program = nullptr;
};

std::string Utf8(const std::wstring& text) {
    if (text.empty()) return std::string();
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string out(size, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.c_str(), -1, &out[0], size, nullptr, nullptr);
    out.resize(size - 1);
    return out;
}

void Report(const char* key, const std::string& value) {
    printf("%s=%s\n", key, value.c_str());
}

void Report(const char* key, long value) {
    printf("%s=%ld\n", key, value);
}

std::wstring WindowText(HWND window) {
    wchar_t text[256] = {};
    GetWindowTextW(window, text, 256);
    return text;
}

HWND WaitForDialog(DWORD processId, HANDLE process, DWORD timeoutMs) {
    const DWORD start = GetTickCount();
    while (GetTickCount() - start < timeoutMs) {
        if (const HWND found = FindShownDialog(processId)) return found;
        if (WaitForSingleObject(process, 50) == WAIT_OBJECT_0) return nullptr;
    }
    return nullptr;
}

// Selects the whole field, copies it as a user would (Ctrl+C) and returns
// what the clipboard then holds.
std::wstring CopyField(HWND field) {
    if (OpenClipboard(nullptr)) {
        EmptyClipboard();
        CloseClipboard();
    }
    SendMessageW(field, EM_SETSEL, 0, -1);
    SendMessageW(field, WM_COPY, 0, 0);
    std::wstring copied;
    if (OpenClipboard(nullptr)) {
        if (HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
            if (const wchar_t* text = static_cast<const wchar_t*>(GlobalLock(data))) {
                copied = text;
                GlobalUnlock(data);
            }
        }
        CloseClipboard();
    }
    return copied;
}

INT_PTR CALLBACK InertDialogProc(HWND, UINT, WPARAM, LPARAM) {
    return FALSE;
}

// The client size that the program's own template 102 maps to, measured
// on a hidden copy of the dialog made here (dialog units depend on the
// template's font, and MapDialogRect works only on a dialog of one's own).
SIZE TemplateClientSize(const wchar_t* program) {
    SIZE size = {-1, -1};
    const HMODULE image = LoadLibraryExW(program, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (image == nullptr) return size;
    const HRSRC resource = FindResourceW(image, MAKEINTRESOURCEW(kDialogTemplate), RT_DIALOG);
    const HGLOBAL loaded = resource != nullptr ? LoadResource(image, resource) : nullptr;
    if (loaded != nullptr) {
        // A writable copy with WS_VISIBLE cleared, so the copy never shows.
        const DWORD length = SizeofResource(image, resource);
        std::string copy(static_cast<const char*>(LockResource(loaded)), length);
        DWORD style;
        memcpy(&style, &copy[12], sizeof style);  // DLGTEMPLATEEX.style
        style &= ~WS_VISIBLE;
        memcpy(&copy[12], &style, sizeof style);
        const HWND hidden = CreateDialogIndirectParamW(
            GetModuleHandleW(nullptr), reinterpret_cast<LPCDLGTEMPLATEW>(copy.data()), nullptr,
            InertDialogProc, 0);
        if (hidden != nullptr) {
            RECT units = {0, 0, 112, 55};
            MapDialogRect(hidden, &units);
            size.cx = units.right;
            size.cy = units.bottom;
            DestroyWindow(hidden);
        }
    }
    FreeLibrary(image);
    return size;
}

// Kelvo's icon is a blue tile with gold contacts. A dialog with a modal
// frame draws no caption icon unless it was given one, so both colours in
// the caption's left corner mean the icon was set.
bool CaptionShowsIcon(HWND window) {
    RECT rect;
    GetWindowRect(window, &rect);
    const HDC screen = GetDC(nullptr);
    bool blue = false, gold = false;
    for (int y = rect.top; y < rect.top + 24; ++y) {
        for (int x = rect.left; x < rect.left + 24; ++x) {
            const COLORREF c = GetPixel(screen, x, y);
            const int r = GetRValue(c), g = GetGValue(c), b = GetBValue(c);
            blue = blue || (abs(r - 0x1F) < 24 && abs(g - 0x5F) < 24 && abs(b - 0xA8) < 24);
            gold = gold || (abs(r - 0xE0) < 24 && abs(g - 0xB0) < 24 && abs(b - 0x30) < 24);
        }
    }
    ReleaseDC(nullptr, screen);
    return blue && gold;
}

bool SaveScreenshot(HWND window, const wchar_t* path) {
    RECT rect;
    GetWindowRect(window, &rect);
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    const HDC screen = GetDC(nullptr);
    const HDC memory = CreateCompatibleDC(screen);
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    void* bits = nullptr;
    const HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    bool saved = false;
    if (bitmap != nullptr) {
        const HGDIOBJ old = SelectObject(memory, bitmap);
        BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY);
        SelectObject(memory, old);
        const DWORD imageSize = DWORD((width * 3 + 3) & ~3) * height;
        BITMAPFILEHEADER file = {};
        file.bfType = 0x4D42;  // "BM"
        file.bfOffBits = sizeof file + sizeof info.bmiHeader;
        file.bfSize = file.bfOffBits + imageSize;
        if (FILE* out = _wfopen(path, L"wb")) {
            saved = fwrite(&file, sizeof file, 1, out) == 1 &&
                    fwrite(&info.bmiHeader, sizeof info.bmiHeader, 1, out) == 1 &&
                    fwrite(bits, imageSize, 1, out) == 1;
            fclose(out);
        }
        DeleteObject(bitmap);
    }
    DeleteDC(memory);
    ReleaseDC(nullptr, screen);
    return saved;
}

// Closes the dialog the way a user would by the chosen means.
bool CloseDialog(HWND dialog, HWND focus, const wchar_t* means) {
    if (wcscmp(means, L"ok") == 0) {
        return PostMessageW(GetDlgItem(dialog, IDOK), BM_CLICK, 0, 0);
    }
    if (wcscmp(means, L"enter") == 0 || wcscmp(means, L"escape") == 0) {
        const WPARAM key = means[1] == L'n' ? VK_RETURN : VK_ESCAPE;
        return PostMessageW(focus, WM_KEYDOWN, key, 1) && PostMessageW(focus, WM_KEYUP, key, 0xC0000001);
    }
    if (wcscmp(means, L"closebox") == 0) {
        return PostMessageW(dialog, WM_SYSCOMMAND, SC_CLOSE, 0);
    }
    return false;
}

void ReportOutput(HANDLE pipe) {
    std::string output;
    char chunk[512];
    DWORD read = 0;
    while (ReadFile(pipe, chunk, sizeof chunk, &read, nullptr) && read > 0) {
        output.append(chunk, read);
    }
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        if (end == std::string::npos) end = output.size();
        std::string line = output.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        Report("stdout", line);
        start = end + 1;
    }
}

bool ParseOptions(int argc, wchar_t** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (wcscmp(argv[i], L"--close") == 0 && hasValue) {
            options.close = argv[++i];
        } else if (wcscmp(argv[i], L"--screenshot") == 0 && hasValue) {
            options.screenshot = argv[++i];
        } else if (wcscmp(argv[i], L"--timeout") == 0 && hasValue) {
            options.timeoutMs = DWORD(_wtoi(argv[++i])) * 1000;
        } else if (options.program == nullptr && argv[i][0] != L'-') {
            options.program = argv[i];
        } else {
            return false;
        }
    }
    return options.program != nullptr;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        fprintf(stderr, "usage: kelvo_ui [--close ok|enter|escape|closebox] "
                        "[--screenshot FILE.bmp] [--timeout SECONDS] Kelvo.exe\n");
        return 2;
    }

    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    Handle readEnd, writeEnd;
    if (!CreatePipe(readEnd.out(), writeEnd.out(), &inherit, 0)) return 1;
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd.get();
    startup.hStdError = writeEnd.get();
    std::wstring commandLine = L"\"" + std::wstring(options.program) + L"\"";
    PROCESS_INFORMATION child = {};
    if (!CreateProcessW(options.program, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &child)) {
        Report("error", "cannot start the program: " + std::to_string(GetLastError()));
        return 1;
    }
    Handle process(child.hProcess), thread(child.hThread);
    writeEnd.Reset();  // the child holds the only write end: EOF when it ends

    const HWND dialog = WaitForDialog(child.dwProcessId, process.get(), options.timeoutMs);
    if (dialog == nullptr) {
        Report("error", "no dialog appeared");
        TerminateProcess(process.get(), 99);
        return 1;
    }
    const HWND field = GetDlgItem(dialog, kFieldId);
    const std::wstring text = FieldText(dialog);
    Report("field", Utf8(text));
    Report("caption", Utf8(WindowText(dialog)));
    Report("readonly", (GetWindowLongW(field, GWL_STYLE) & ES_READONLY) != 0);
    const std::wstring copied = CopyField(field);
    Report("copied", Utf8(copied));

    GUITHREADINFO gui = {};
    gui.cbSize = sizeof gui;
    GetGUIThreadInfo(child.dwThreadId, &gui);
    Report("focus_ok", gui.hwndFocus != nullptr && gui.hwndFocus == GetDlgItem(dialog, IDOK));
    // Wine answers WM_GETICON from another process with 0 even when the
    // icons are set, so the caption is looked at instead.
    RedrawWindow(dialog, nullptr, nullptr, RDW_FRAME | RDW_INVALIDATE | RDW_UPDATENOW);
    Report("caption_icon", CaptionShowsIcon(dialog));

    RECT client;
    GetClientRect(dialog, &client);
    const SIZE expected = TemplateClientSize(options.program);
    Report("client", std::to_string(client.right) + "x" + std::to_string(client.bottom));
    Report("client_template", std::to_string(expected.cx) + "x" + std::to_string(expected.cy));

    if (options.screenshot != nullptr) {
        Report("screenshot", SaveScreenshot(dialog, options.screenshot) ? "saved" : "failed");
    }

    const HWND focus = gui.hwndFocus != nullptr ? gui.hwndFocus : dialog;
    Report("close", Utf8(options.close));
    if (!CloseDialog(dialog, focus, options.close)) {
        Report("error", "cannot close the dialog that way");
    }
    if (WaitForSingleObject(process.get(), options.timeoutMs) != WAIT_OBJECT_0) {
        Report("ended", 0L);
        TerminateProcess(process.get(), 99);
        return 1;
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process.get(), &exitCode);
    Report("ended", 1L);
    Report("exit_code", long(exitCode));
    ReportOutput(readEnd.get());
    return 0;
}
