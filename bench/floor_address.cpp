// The floor program's machine address: a constant, found without asking the
// platform anything. Linked with Kelvo's own dialog, resources and text
// formatting, it makes a program that is Kelvo less the address discovery.
#include "machine_id.h"

bool GetMachineAddress(MachineAddress& out) {
    out = MachineAddress{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}};
    return true;
}
