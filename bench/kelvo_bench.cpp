// Measures how long programs take from process creation until their dialog
// shows a filled identifier field, and how much memory they use meanwhile:
//
//   kelvo_bench [--runs N] [--warmup N] PROGRAM.exe...
//
// Each round starts every program once, in the order given, one at a time:
// the clock starts just before CreateProcessW and stops when the process's
// dialog is visible and its field is not empty (polled every millisecond).
// The peak working set is read at that moment; then OK closes the dialog
// and the next program starts once the process has ended. Warm-up rounds
// are run first and not counted. Prints one summary line per program and
// the ratio of the first program's median to the second's. Exit status: 0
// when every run showed its field, 1 otherwise.
#include <windows.h>

#include <psapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// Owns a kernel handle.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
    ~Handle() { Reset(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE get() const { return handle_; }
    HANDLE* out() { Reset(); return &handle_; }
    void Reset() {
        if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        handle_ = nullptr;
    }

private:
    HANDLE handle_;
};

// The identifier field's control id in dialog template 102.
const int kFieldId = 1000;

struct DialogSearch {
    DWORD processId;
    HWND found;
};

BOOL CALLBACK MatchShownDialog(HWND window, LPARAM lParam) {
    DialogSearch* search = reinterpret_cast<DialogSearch*>(lParam);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    wchar_t className[16] = {};
    GetClassNameW(window, className, 16);
    if (owner != search->processId || wcscmp(className, L"#32770") != 0 ||
        !IsWindowVisible(window)) {
        return TRUE;
    }
    search->found = window;
    return FALSE;
}

// The visible dialog (class "#32770") of the process, or null.
HWND FindShownDialog(DWORD processId) {
    DialogSearch search = {processId, nullptr};
    EnumWindows(MatchShownDialog, reinterpret_cast<LPARAM>(&search));
    return search.found;
}

// The field's text. A control of another process answers only WM_GETTEXT.
std::wstring FieldText(HWND dialog) {
    wchar_t text[64] = {};
    SendMessageW(GetDlgItem(dialog, kFieldId), WM_GETTEXT, 64, reinterpret_cast<LPARAM>(text));
    return text;
}

struct Sample {
    double ms;
    double peakKib;
};

struct Program {
    const wchar_t* path;
    std::vector<Sample> samples;
    std::wstring field;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double Seconds(const LARGE_INTEGER& from, const LARGE_INTEGER& to) {
    static LARGE_INTEGER frequency = {};
    if (frequency.QuadPart == 0) QueryPerformanceFrequency(&frequency);
    return double(to.QuadPart - from.QuadPart) / double(frequency.QuadPart);
}

// One run of the program. False when no filled field appeared in time.
bool RunOnce(Program& program, bool counted) {
    std::wstring commandLine = L"\"" + std::wstring(program.path) + L"\"";
    // No standard output, as when started from the desktop.
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    Handle nul(CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, nullptr));
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = startup.hStdOutput = startup.hStdError = nul.get();
    PROCESS_INFORMATION child = {};
    LARGE_INTEGER start, shown;
    QueryPerformanceCounter(&start);
    if (!CreateProcessW(program.path, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &child)) {
        fwprintf(stderr, L"cannot start %ls: error %lu\n", program.path, GetLastError());
        return false;
    }
    Handle process(child.hProcess), thread(child.hThread);

    HWND dialog = nullptr;
    std::wstring field;
    for (;;) {
        if ((dialog = FindShownDialog(child.dwProcessId)) != nullptr &&
            !(field = FieldText(dialog)).empty()) {
            break;
        }
        QueryPerformanceCounter(&shown);
        if (Seconds(start, shown) > 30 || WaitForSingleObject(process.get(), 1) == WAIT_OBJECT_0) {
            fwprintf(stderr, L"%ls: no filled field appeared\n", program.path);
            TerminateProcess(process.get(), 99);
            return false;
        }
    }
    QueryPerformanceCounter(&shown);

    PROCESS_MEMORY_COUNTERS memory = {};
    memory.cb = sizeof memory;
    const double peakKib =
        GetProcessMemoryInfo(process.get(), &memory, sizeof memory) ? memory.PeakWorkingSetSize / 1024.0 : 0;

    PostMessageW(GetDlgItem(dialog, IDOK), BM_CLICK, 0, 0);
    if (WaitForSingleObject(process.get(), 10000) != WAIT_OBJECT_0) {
        fwprintf(stderr, L"%ls: did not end after OK\n", program.path);
        TerminateProcess(process.get(), 99);
        return false;
    }
    if (counted) {
        program.samples.push_back({Seconds(start, shown) * 1000, peakKib});
        program.field = field;
    }
    return true;
}

void PrintSummary(const Program& program) {
    std::vector<double> ms, peak;
    for (const Sample& s : program.samples) {
        ms.push_back(s.ms);
        peak.push_back(s.peakKib);
    }
    const wchar_t* name = program.path;
    for (const wchar_t* c = program.path; *c != L'\0'; ++c) {
        if (*c == L'\\' || *c == L'/') name = c + 1;
    }
    wprintf(L"%-16ls runs %3u  median %7.1f ms  min %7.1f  max %7.1f  peak working set %6.0f KiB  field %ls\n",
            name, unsigned(ms.size()), Median(ms), *std::min_element(ms.begin(), ms.end()),
            *std::max_element(ms.begin(), ms.end()), Median(peak), program.field.c_str());
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    int runs = 30, warmup = 3;
    std::vector<Program> programs;
    for (int i = 1; i < argc; ++i) {
        if (wcscmp(argv[i], L"--runs") == 0 && i + 1 < argc) {
            runs = _wtoi(argv[++i]);
        } else if (wcscmp(argv[i], L"--warmup") == 0 && i + 1 < argc) {
            warmup = _wtoi(argv[++i]);
        } else {
            programs.push_back({argv[i], {}, {}});
        }
    }
    if (programs.empty() || runs < 1 || warmup < 0) {
        fwprintf(stderr, L"usage: kelvo_bench [--runs N] [--warmup N] PROGRAM.exe...\n");
        return 2;
    }

    for (int round = 0; round < warmup + runs; ++round) {
        for (Program& program : programs) {
            if (!RunOnce(program, round >= warmup)) return 1;
        }
    }
    for (const Program& program : programs) PrintSummary(program);
    if (programs.size() >= 2) {
        std::vector<double> first, second;
        for (const Sample& s : programs[0].samples) first.push_back(s.ms);
        for (const Sample& s : programs[1].samples) second.push_back(s.ms);
        wprintf(L"ratio=%.2f\n", Median(first) / Median(second));
    }
    return 0;
}
