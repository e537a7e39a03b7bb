#include "help_file.h"

#include <string.h>

bool MakeHelpFilePath(wchar_t (&path)[MAX_PATH], DWORD length) {
    if (length == 0 || length >= MAX_PATH) {
        return false;  // failed or cut short
    }
    wchar_t* end = path + length;
    for (wchar_t* c = end; c > path && c[-1] != L'\\'; --c) {
        if (c[-1] == L'.') {
            end = c - 1;
            break;
        }
    }
    const wchar_t extension[] = L".HLP";
    if (end + sizeof extension / sizeof *extension > path + MAX_PATH) {
        return false;
    }
    memcpy(end, extension, sizeof extension);
    return true;
}
