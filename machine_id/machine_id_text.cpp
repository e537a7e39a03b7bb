// The identifier text: the hardware address folded into 32 bits, in hex.
#include "machine_id.h"

#include <stdio.h>

MachineIdText FormatMachineId(const MachineAddress& address) {
    const uint8_t* a = address.bytes;
    const uint32_t low = a[0] | a[1] << 8 | a[2] << 16 | uint32_t(a[3]) << 24;
    const uint32_t high = a[4] | a[5] << 8;
    // Only the low half of `low` is mixed: bytes 2 and 3 pass unchanged.
    // The fold and its collisions are the identifier's definition.
    const uint32_t id = low ^ high;

    char digits[20];
    sprintf_s(digits, sizeof digits, "%x", id);

    MachineIdText text = {};
    size_t n = 0;
    for (const char* c = "08-0x"; *c != '\0'; ++c) {
        text.chars[n++] = wchar_t(*c);
    }
    for (const char* c = digits; *c != '\0' && n + 1 < kMachineIdCapacity; ++c) {
        text.chars[n++] = wchar_t(*c);
    }
    return text;
}
