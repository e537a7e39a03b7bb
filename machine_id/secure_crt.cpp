// Bounded string copy, append and format for every Windows Kelvo runs on.
//
// msvcrt.dll gained strcpy_s, strcat_s and vsprintf_s with Windows Vista.
// The msvcrt.dll of Windows XP and Server 2003 lacks them, and Windows will
// not start a program that imports a function its DLL does not export. The
// runtime's headers declare these functions as imports, so every call goes
// through an import slot (__imp__strcpy_s and so on). This unit fills those
// slots itself, with implementations built only on what XP's msvcrt.dll
// exports. Callers keep the runtime's names and calls, and XP, Wine and
// today's Windows all run this same code.
//
// Results are as the runtime documents them, except that no
// invalid-parameter handler is called. A bad argument gives EINVAL and a
// destination too small gives ERANGE (sprintf_s returns -1 and sets errno).
// Either way, a destination that exists is left as an empty string.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace {

errno_t __cdecl BoundedCopy(char* dest, rsize_t size, const char* src) {
    if (dest == nullptr || size == 0) return EINVAL;
    if (src == nullptr) {
        dest[0] = '\0';
        return EINVAL;
    }
    const size_t length = strnlen(src, size);
    if (length == size) {
        dest[0] = '\0';
        return ERANGE;
    }
    memcpy(dest, src, length + 1);
    return 0;
}

errno_t __cdecl BoundedAppend(char* dest, rsize_t size, const char* src) {
    if (dest == nullptr || size == 0) return EINVAL;
    const size_t used = strnlen(dest, size);
    if (src == nullptr || used == size) {  // no string to append to
        dest[0] = '\0';
        return EINVAL;
    }
    const errno_t result = BoundedCopy(dest + used, size - used, src);
    if (result != 0) dest[0] = '\0';
    return result;
}

int __cdecl BoundedFormat(char* dest, size_t size, const char* format, ...) {
    if (dest == nullptr || size == 0 || format == nullptr) {
        if (dest != nullptr && size != 0) dest[0] = '\0';
        errno = EINVAL;
        return -1;
    }
    va_list args;
    va_start(args, format);
    // Fills at most `size` bytes; -1 or `size` means no room for the zero.
    const int length = _vsnprintf(dest, size, format, args);
    va_end(args);
    if (length < 0 || size_t(length) >= size) {
        dest[0] = '\0';
        errno = ERANGE;
        return -1;
    }
    return length;
}

}  // namespace

extern "C" {
decltype(&BoundedCopy) __MINGW_IMP_SYMBOL(strcpy_s) = BoundedCopy;
decltype(&BoundedAppend) __MINGW_IMP_SYMBOL(strcat_s) = BoundedAppend;
decltype(&BoundedFormat) __MINGW_IMP_SYMBOL(sprintf_s) = BoundedFormat;
}
