#pragma once
// Shared set-up of the vendor tests: a fake adapter tool that records its
// runs and prints a fixed adapter listing, and a concrete test vendor.
#include <dlfcn.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "CEmulexCommon.h"
#include "CFC_EMULEX_Vendor.h"
#include "HostSys.h"
#include "TestEnv.h"

namespace vendortest {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
// Bus 3, device 0, function 1: the listing numbers it as function 1.
const char kDeviceId[] = "0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";
const char kWwpn[] = "10:00:00:00:c9:12:34:56";

// One port block as the adapter tool prints it (values from column 17).
inline std::string ListingBlock(const std::string& wwpn, const std::string& bus,
                                const std::string& function) {
    return "Port WWN       : " + wwpn + "\n" +
           "Node WWN       : 20:00:00:00:c9:12:34:56\n"
           "Serial No.     : FC1\n"
           "Port Number    : " + function + "\n" +
           "PCI Bus Number : " + bus + "\n" +
           "PCI Function   : " + function + "\n" +
           "Port Type      : FC\n\n";
}

inline std::string Listing(const std::string& wwpn) {
    return "Manageable HBA List\n\n" + ListingBlock(wwpn, "3", "1");
}

// A vendor with no model of its own: the base's behaviour, and access to
// the fields that the model vendors would set.
class TestVendor : public CFC_EMULEX_Vendor {
public:
    explicit TestVendor(const std::string& id) : CFC_EMULEX_Vendor(id) {}
    void LinkDevice() override {}
    void Attach(CFirmware* firmware, CDriver* driver) {
        firmwareModule = firmware;
        driverModule = driver;
    }
    void AttachUtility(CUtility* utility) { utilityModules.push_back(utility); }
    void SetWwpn(const std::string& value) { wwpn = value; }
    void SetClassName(const std::string& name) { vendorClassName = name; }
    void SetDeviceId(const std::string& id) { deviceId = id; }
};

class VendorTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        CEmulexCommon::SetLastError(0);
        runs_ = root_ + "/hbacmd_runs";
    }
    void TearDown() override {
        ::unlink(kHbacmd);
        HostTest::TearDown();
    }

    // The fake tool prints `listing` for "listhbas" and logs every run.
    void InstallHbacmd(const std::string& listing) {
        qdmtest::WriteFile(root_ + "/listing.txt", listing);
        qdmtest::WriteScript(kHbacmd, "echo \"$1\" >> '" + runs_ + "'\n"
                                      "case \"$1\" in listhbas) cat '" + root_ + "/listing.txt';; esac\n");
    }
    int HbacmdRuns(const std::string& verb) const {
        const std::string log = qdmtest::ReadFile(runs_);
        int count = 0;
        for (size_t at = log.find(verb + "\n"); at != std::string::npos; at = log.find(verb + "\n", at + 1))
            ++count;
        return count;
    }
    std::string ListPath() const { return cache_ + "/Listhbas.txt"; }

    std::string runs_;
};

}  // namespace vendortest

namespace vendortest {

// The provider library's two entry points, resolved by their exact symbols.
struct ProviderEntryPoints {
    void* (*factory)(const char*, const char*) = nullptr;
    void (*release)(void*) = nullptr;
};

// Loads the library once per process and keeps it loaded.
inline ProviderEntryPoints LoadProvider() {
    static void* library = ::dlopen(QDM_PROVIDER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ProviderEntryPoints entry;
    if (library == nullptr) return entry;
    entry.factory = reinterpret_cast<void* (*)(const char*, const char*)>(::dlsym(library, "GetVendorFactory"));
    entry.release = reinterpret_cast<void (*)(void*)>(::dlsym(library, "_Z13ReleaseVendorPv"));
    return entry;
}

// A vendor test that reaches the provider through its loaded library, as the
// host does; the factory's console lines are kept in shown_.
class ProviderTest : public VendorTest {
protected:
    void SetUp() override {
        VendorTest::SetUp();
        if (IsSkipped()) return;
        entry_ = LoadProvider();
        ASSERT_NE(entry_.factory, nullptr) << ::dlerror();
        ASSERT_NE(entry_.release, nullptr);
        qdmhost::SetShowMessageSink([this](const std::string& line) { shown_.push_back(line); });
    }
    void TearDown() override {
        qdmhost::SetShowMessageSink({});
        VendorTest::TearDown();
    }

    ProviderEntryPoints entry_;
    std::vector<std::string> shown_;
};

}  // namespace vendortest
