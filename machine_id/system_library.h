// Loading a library by its full path in the system directory: how the
// program loads its libraries where the system cannot narrow the library
// search (Windows XP). Product code, linked by the program's platform and by
// the unit tests, which run it against the real loader.
#pragma once

#include <windows.h>
#include <wchar.h>

// Turns `path`, the system directory as GetSystemDirectoryW wrote it into a
// buffer of MAX_PATH characters with its result `length`, into the full
// path of the library `fileName` there: the directory, '\\', the name.
// Returns false, and leaves `path` as it was, when the system gave no
// directory (0), needed a larger buffer (MAX_PATH or more), or the name does
// not fit. Defined here so that the program carries it only inside the
// load below.
inline bool MakeSystemLibraryPath(wchar_t (&path)[MAX_PATH], UINT length, const wchar_t* fileName) {
    if (length == 0 || length + 1 + wcslen(fileName) >= MAX_PATH) {
        return false;
    }
    path[length] = L'\\';
    wcscpy(path + length + 1, fileName);
    return true;
}

// Loads the library `fileName` by its full path in the system directory,
// with LOAD_WITH_ALTERED_SEARCH_PATH: the library's own imports are then
// looked for in that directory first. Never takes a same-named library from
// anywhere else. Returns NULL when the library is not there or cannot be
// loaded; a non-NULL handle is given back with FreeLibrary.
HMODULE LoadSystemLibraryByPath(const wchar_t* fileName);
