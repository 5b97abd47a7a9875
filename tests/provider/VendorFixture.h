#pragma once
// Shared set-up of the vendor tests: a fake adapter tool that logs its runs
// and prints a fixed listing, a vendor with no model of its own, and the
// provider library's entry points resolved as the host resolves them.
#include <dlfcn.h>
#include <unistd.h>

#include "CFC_EMULEX_Vendor.h"
#include "CommonFixture.h"
#include "HostSys.h"

namespace vendortest {

using namespace commontest;

const std::string kFixedTemp = "/opt/velmora/qdm/provider/tmp/EMULEX/temp";
// Bus 3, device 0, function 1: the listing numbers it as function 1.
const char kDeviceId[] = "0000:03:00.1-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF";

// One port as the adapter tool lists it (values from column 17).
inline std::string Listing(const std::string& wwpn, const std::string& bus = "3", const std::string& function = "1") {
    return "Manageable HBA List\n\nPort WWN       : " + wwpn + "\nNode WWN       : 20:00:00:00:c9:12:34:56\n" +
           "Serial No.     : FC1\nPort Number    : " + function + "\nPCI Bus Number : " + bus +
           "\nPCI Function   : " + function + "\nPort Type      : FC\n\n";
}

// A vendor with no model of its own, with access to the fields a model sets.
class TestVendor : public CFC_EMULEX_Vendor {
public:
    explicit TestVendor(const std::string& id) : CFC_EMULEX_Vendor(id) {}
    void LinkDevice() override {}
    void Attach(CFirmware* firmware, CDriver* driver, CUtility* utility = nullptr) {
        firmwareModule = firmware;
        driverModule = driver;
        if (utility != nullptr) utilityModules.push_back(utility);
    }
    using CFC_EMULEX_Vendor::deviceId, CFC_EMULEX_Vendor::vendorClassName, CFC_EMULEX_Vendor::wwpn;
};

// The provider is also reached through its loaded library, as the host does;
// the factory's console lines are kept in shown_.
class VendorTest : public CommonTest {
protected:
    void SetUp() override {
        CommonTest::SetUp();
        QDM_REQUIRE_SANDBOX();
        qdmtest::WriteFile(kFixedTemp + "/.keep", "");  // the provider's own work folder, outside root_
        static void* library = ::dlopen(QDM_PROVIDER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr) << ::dlerror();
        factory_ = reinterpret_cast<void* (*)(const char*, const char*)>(::dlsym(library, "GetVendorFactory"));
        release_ = reinterpret_cast<void (*)(void*)>(::dlsym(library, "_Z13ReleaseVendorPv"));
        ASSERT_NE(factory_, nullptr) << "GetVendorFactory not exported under its plain name";
        ASSERT_NE(release_, nullptr) << "ReleaseVendor not exported as _Z13ReleaseVendorPv";
        qdmhost::SetShowMessageSink([this](const std::string& line) { shown_.push_back(line); });
    }
    void TearDown() override {
        qdmhost::SetShowMessageSink({});
        ::unlink(kHbacmd);
        CommonTest::TearDown();
    }
    // The fake tool prints `listing` for "listhbas", logging each such run as a line.
    void InstallHbacmd(const std::string& listing) {
        qdmtest::WriteFile(root_ + "/listing.txt", listing);
        qdmtest::WriteScript(kHbacmd, "case \"$1\" in listhbas) echo >> '" + runs_ + "'; cat '" + root_ +
                                          "/listing.txt';; esac\n");
    }
    std::string ListPath() const { return cache_ + "/Listhbas.txt"; }

    void* (*factory_)(const char*, const char*) = nullptr;
    void (*release_)(void*) = nullptr;
    std::vector<std::string> shown_;
};

}  // namespace vendortest
