#include "system_library.h"

HMODULE LoadSystemLibraryByPath(const wchar_t* fileName) {
    wchar_t path[MAX_PATH];
    const UINT length = GetSystemDirectoryW(path, MAX_PATH);
    if (!MakeSystemLibraryPath(path, length, fileName)) {
        return nullptr;
    }
    return LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}
