// Finding the address from the adapter list, and falling back to NetBIOS.
#include "fake_platform.h"
#include "machine_id.h"

#include <string.h>

namespace {

const uint8_t kFirst[8] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0xEE, 0xEE};
const uint8_t kSecond[8] = {0x00, 0x50, 0x56, 0xC0, 0x00, 0x08, 0xEE, 0xEE};
const uint8_t kOther[8] = {0x66, 0x66, 0x66, 0x66, 0x66, 0x66, 0x66, 0x66};
const uint8_t kSentinel = 0xCC;

FakeAdapter Adapter(UINT type, const uint8_t (&address)[8], const char* ip) {
    FakeAdapter adapter{type, {}, ip};
    memcpy(adapter.address, address, sizeof address);
    return adapter;
}

FakeAdapter Ethernet(const uint8_t (&address)[8], const char* ip) {
    return Adapter(MIB_IF_TYPE_ETHERNET, address, ip);
}

// Which address a run ended with: one of the adapters, the NetBIOS answer,
// or none at all.
enum Source { kFromFirst, kFromSecond, kFromNetbios, kNone };

const char* Name(Source source) {
    const char* const names[] = {"first adapter", "second adapter", "NetBIOS", "none"};
    return names[source];
}

class MachineAddressTest : public FakePlatformTest {
protected:
    Source Run() {
        MachineAddress out;
        memset(&out, kSentinel, sizeof out);
        if (!GetMachineAddress(out)) {
            for (uint8_t byte : out.bytes) {
                EXPECT_EQ(kSentinel, byte) << "failed search wrote the address";
            }
            return kNone;
        }
        if (memcmp(out.bytes, kFirst, 6) == 0) return kFromFirst;
        if (memcmp(out.bytes, kSecond, 6) == 0) return kFromSecond;
        if (memcmp(out.bytes, Fake().netbiosAddress, 6) == 0) return kFromNetbios;
        ADD_FAILURE() << "address from nowhere";
        return kNone;
    }
};

struct SelectionCase {
    const char* name;
    bool legacyWindows;
    std::vector<FakeAdapter> adapters;
    Source expected;
};

TEST_F(MachineAddressTest, TakesTheFirstQualifyingEthernetEntry) {
    const SelectionCase cases[] = {
        {"other types only", false,
         {Adapter(IF_TYPE_IEEE80211, kOther, "10.0.0.2"), Adapter(MIB_IF_TYPE_PPP, kOther, "10.0.0.3"),
          Adapter(MIB_IF_TYPE_LOOPBACK, kOther, "127.0.0.1"),
          Adapter(MIB_IF_TYPE_TOKENRING, kOther, "10.0.0.4")},
         kFromNetbios},
        {"several Ethernet", false,
         {Ethernet(kFirst, "10.0.0.2"), Ethernet(kSecond, "10.0.0.3")}, kFromFirst},
        {"other type first", false,
         {Adapter(IF_TYPE_IEEE80211, kOther, "10.0.0.2"), Ethernet(kSecond, "10.0.0.3")},
         kFromSecond},
        {"NT takes an unassigned adapter", false,
         {Ethernet(kFirst, "0.0.0.0"), Ethernet(kSecond, "10.0.0.3")}, kFromFirst},
        {"legacy skips an unassigned adapter", true,
         {Ethernet(kFirst, "0.0.0.0"), Ethernet(kSecond, "10.0.0.3")}, kFromSecond},
        {"legacy with none assigned", true,
         {Ethernet(kFirst, "0.0.0.0"), Ethernet(kSecond, "0.0.0.0")}, kFromNetbios},
        {"legacy compares the whole text", true,
         {Ethernet(kFirst, "0.0.0.00"), Ethernet(kSecond, "10.0.0.3")}, kFromFirst},
        {"empty list", false, {}, kFromNetbios},
    };
    for (const SelectionCase& c : cases) {
        ResetFake();
        Fake().platformId = c.legacyWindows ? VER_PLATFORM_WIN32_WINDOWS : VER_PLATFORM_WIN32_NT;
        Fake().majorVersion = 4;
        Fake().adapters = c.adapters;
        EXPECT_STREQ(Name(c.expected), Name(Run())) << c.name;
        ExpectNothingHeld(c.name);
    }
}

struct VersionCase {
    bool answers;
    DWORD platformId;
    DWORD majorVersion;
    bool legacy;
};

TEST_F(MachineAddressTest, LegacyFamilyIsWin32sOrWindows4) {
    const VersionCase cases[] = {
        {false, VER_PLATFORM_WIN32_WINDOWS, 4, false},  // a failed query counts as NT
        {true, VER_PLATFORM_WIN32s, 3, true},
        {true, VER_PLATFORM_WIN32_WINDOWS, 4, true},
        {true, VER_PLATFORM_WIN32_WINDOWS, 5, false},
        {true, VER_PLATFORM_WIN32_NT, 4, false},
        {true, VER_PLATFORM_WIN32_NT, 10, false},
    };
    for (const VersionCase& c : cases) {
        ResetFake();
        Fake().versionAnswers = c.answers;
        Fake().platformId = c.platformId;
        Fake().majorVersion = c.majorVersion;
        Fake().adapters = {Ethernet(kFirst, "0.0.0.0"), Ethernet(kSecond, "10.0.0.3")};
        EXPECT_STREQ(Name(c.legacy ? kFromSecond : kFromFirst), Name(Run()))
            << "answers " << c.answers << ", platform " << c.platformId << ", major "
            << c.majorVersion;
        ExpectNothingHeld("version case");
    }
}

struct FaultCase {
    const char* name;
    void (*inject)(FakePlatform&);
    int adapterListCalls;
    int mallocCalls;
};

TEST_F(MachineAddressTest, AnyFaultInTheListFallsBackAndReleasesEverything) {
    const FaultCase cases[] = {
        {"no iphlpapi.dll", [](FakePlatform& f) { f.hasIphlpapi = false; }, 0, 0},
        {"no GetAdaptersInfo", [](FakePlatform& f) { f.hasGetAdaptersInfo = false; }, 0, 0},
        {"size query: no data",
         [](FakePlatform& f) { f.sizeQueryAnswer = ERROR_NO_DATA; }, 1, 0},
        {"size query: success",
         [](FakePlatform& f) { f.sizeQueryAnswer = ERROR_SUCCESS; }, 1, 0},
        {"no memory for the list", [](FakePlatform& f) { f.mallocFails = true; }, 2, 1},
        {"list call fails",
         [](FakePlatform& f) { f.listAnswer = ERROR_BUFFER_OVERFLOW; }, 2, 1},
        {"nothing qualifies",
         [](FakePlatform& f) { f.adapters = {Adapter(MIB_IF_TYPE_PPP, kOther, "10.0.0.2")}; }, 2, 1},
    };
    for (const FaultCase& c : cases) {
        ResetFake();
        Fake().adapters = {Ethernet(kFirst, "10.0.0.2")};
        c.inject(Fake());
        EXPECT_STREQ(Name(kFromNetbios), Name(Run())) << c.name;
        EXPECT_EQ(c.adapterListCalls, Fake().adapterListCalls) << c.name;
        EXPECT_EQ(c.mallocCalls, Fake().mallocCalls) << c.name;
        EXPECT_EQ(1, Fake().netbiosSessions) << c.name;
        ExpectNothingHeld(c.name);
    }
}

TEST_F(MachineAddressTest, ListPathLoadsOnlyFromTheSystemAndSkipsNetbios) {
    Fake().adapters = {Ethernet(kFirst, "10.0.0.2")};
    EXPECT_STREQ(Name(kFromFirst), Name(Run()));
    EXPECT_EQ(std::vector<std::wstring>{L"iphlpapi.dll"}, Fake().librariesLoaded);
    EXPECT_EQ(std::vector<std::string>{"GetAdaptersInfo"}, Fake().procsLookedUp);
    EXPECT_EQ(0, Fake().netbiosSessions);
    EXPECT_TRUE(Fake().requests.empty());
}

TEST_F(MachineAddressTest, NoSourceAnswersLeavesTheAddressUnwritten) {
    Fake().hasIphlpapi = false;
    Fake().hasNetbios = false;
    EXPECT_STREQ(Name(kNone), Name(Run()));
    EXPECT_EQ("Line 245: Got 0x3f from NetBios()\n", Fake().output);
}

}  // namespace
