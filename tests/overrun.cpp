// A function built exactly as product code is built (stack cookies
// included), which copies `text` into an 8-byte local buffer.
#include <stdio.h>
#include <string.h>

void Overrun(const char* text) {
    char buffer[8];
    strcpy(buffer, text);
    puts(buffer);
}
