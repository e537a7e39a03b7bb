// Finding the address from the adapter list, and falling back to NetBIOS.
#include "fake_platform.h"
#include "machine_id.h"

#include <string.h>

namespace {

const uint8_t kFirst[8] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0xEE, 0xEE};
const uint8_t kSecond[8] = {0x00, 0x50, 0x56, 0xC0, 0x00, 0x08, 0xEE, 0xEE};
const uint8_t kOther[8] = {0x66, 0x66, 0x66, 0x66, 0x66, 0x66, 0x66, 0x66};

FakeAdapter Ethernet(const uint8_t* address, const char* ip) {
    return {MIB_IF_TYPE_ETHERNET, address, ip};
}

// Which address a run ended with: one of the adapters, the NetBIOS answer,
// or none at all.
const char* AddressSource() {
    MachineAddress out;
    if (!GetMachineAddress(out)) return "none";
    if (memcmp(out.bytes, kFirst, 6) == 0) return "first adapter";
    if (memcmp(out.bytes, kSecond, 6) == 0) return "second adapter";
    if (memcmp(out.bytes, Fake().netbiosAddress, 6) == 0) return "NetBIOS";
    return "an address from nowhere";
}

// The legacy family (Win32s, Windows 4.x of the 9x line) passes over
// Ethernet adapters whose first IPv4 address is "0.0.0.0". Only what Wine
// cannot be made to report is here: other adapter types, other versions, a
// failed version query, an empty list that claims success. The first
// Ethernet entry in the platform's order, and an unassigned adapter on
// either family, are proven against Wine by the end-to-end table.
struct SelectionCase {
    const char* name;
    DWORD platformId;  // 0xFFFF: the version query fails
    DWORD majorVersion;
    std::vector<FakeAdapter> adapters;
    const char* expected;
};

TEST(MachineAddress, TakesTheFirstQualifyingEthernetEntry) {
    const DWORD nt = VER_PLATFORM_WIN32_NT, nine = VER_PLATFORM_WIN32_WINDOWS, failed = 0xFFFF;
    const std::vector<FakeAdapter> unassignedFirst = {Ethernet(kFirst, "0.0.0.0"),
                                                      Ethernet(kSecond, "10.0.0.3")};
    const SelectionCase cases[] = {
        {"other types only", nt, 10,
         {{IF_TYPE_IEEE80211, kOther, "10.0.0.2"}, {MIB_IF_TYPE_PPP, kOther, "10.0.0.3"},
          {MIB_IF_TYPE_LOOPBACK, kOther, "127.0.0.1"}, {MIB_IF_TYPE_TOKENRING, kOther, "10.0.0.4"}},
         "NetBIOS"},
        {"empty list", nt, 10, {}, "NetBIOS"},
        {"NT 4 is not legacy", nt, 4, unassignedFirst, "first adapter"},
        {"Win32s is legacy", VER_PLATFORM_WIN32s, 3, unassignedFirst, "second adapter"},
        {"Windows 5 of the 9x line is not legacy", nine, 5, unassignedFirst, "first adapter"},
        {"a failed version query counts as NT", failed, 4, unassignedFirst, "first adapter"},
        {"legacy compares the whole text", nine, 4,
         {Ethernet(kFirst, "0.0.0.00"), Ethernet(kSecond, "10.0.0.3")}, "first adapter"},
    };
    for (const SelectionCase& c : cases) {
        FakePlatform& fake = ResetFake();
        fake.versionAnswers = c.platformId != failed;
        fake.platformId = c.platformId == failed ? nine : c.platformId;
        fake.majorVersion = c.majorVersion;
        fake.adapters = c.adapters;
        EXPECT_STREQ(c.expected, AddressSource()) << c.name;
        EXPECT_EQ(0, fake.heldWhenNetbiosOpened) << c.name << ": list or library held into NetBIOS";
        ExpectNothingHeld(c.name);
    }
}

struct FaultCase {
    const char* name;
    void (*inject)(FakePlatform&);
    int adapterListCalls;
    int mallocCalls;
};

// Whatever goes wrong with the list, the library is unloaded and the list
// freed before NetBIOS is asked, and NetBIOS decides.
TEST(MachineAddress, AnyFaultInTheListFallsBackAndReleasesEverything) {
    using F = FakePlatform&;
    const FaultCase cases[] = {
        {"no iphlpapi.dll", [](F f) { f.hasIphlpapi = false; }, 0, 0},
        {"no GetAdaptersInfo", [](F f) { f.hasGetAdaptersInfo = false; }, 0, 0},
        {"size query: no data", [](F f) { f.sizeQueryAnswer = ERROR_NO_DATA; }, 1, 0},
        {"size query: success", [](F f) { f.sizeQueryAnswer = ERROR_SUCCESS; }, 1, 0},
        {"no memory for the list", [](F f) { f.mallocFails = true; }, 2, 1},
        {"list call fails", [](F f) { f.listAnswer = ERROR_BUFFER_OVERFLOW; }, 2, 1},
    };
    for (const FaultCase& c : cases) {
        FakePlatform& fake = ResetFake();
        fake.adapters = {Ethernet(kFirst, "10.0.0.2")};
        c.inject(fake);
        EXPECT_STREQ("NetBIOS", AddressSource()) << c.name;
        EXPECT_EQ(c.adapterListCalls, fake.adapterListCalls) << c.name;
        EXPECT_EQ(c.mallocCalls, fake.mallocCalls) << c.name;
        EXPECT_EQ(0, fake.heldWhenNetbiosOpened) << c.name << ": list or library held into NetBIOS";
        ExpectNothingHeld(c.name);
    }
}

}  // namespace
