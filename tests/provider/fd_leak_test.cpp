// No provider operation leaves a file descriptor open or closes one of the
// host's. The open descriptors are listed before and after the provider is
// driven as the host drives it on the simulated demo server: every operation,
// then the early exits, where handles are easiest to lose.
#include <filesystem>
#include <functional>
#include <map>

#include "Sim.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

struct Port { std::string className, deviceId, modelKey, firmware; };  // firmware: as on the demo server
const Port kPorts[] = {
    {"CFC_EMULEX_8G_1P_Vendor", "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF", "fcelx_8g1p", "2.01a12"},
    {"CFC_EMULEX_8G_2P_Vendor", "0000:04:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF",
     "fcelx_8g2p_10df_f100_10df_f100", "2.02a5"},
    {"CFC_EMULEX_16G_Vendor", "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", "fcelx_16g", "10.2.370.15"},
};
enum { k8G = 0, k16G = 2 };
const char kNew[] = "11.4.204.8";

// Open descriptors of this process: number -> what it refers to (a file that
// someone else deletes meanwhile is no change).
std::map<int, std::string> OpenDescriptors() {
    std::map<int, std::string> open;
    std::error_code unreadable;  // the listing's own descriptor may be gone when its link is read
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string target = std::filesystem::read_symlink(entry.path(), unreadable).string();
        open[std::stoi(entry.path().filename().string())] = target.substr(0, target.rfind(" (deleted)"));
    }
    return open;
}

class FdLeakTest : public VendorTest {
protected:
    void SetUp() override {
        VendorTest::SetUp();
        if (IsSkipped()) return;
        folder_ = qdmtest::MakeTempDir("fdleak");
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState()).empty());
    }
    void TearDown() override {
        while (!built_.empty()) Release(built_.front());
        qdmtest::RemoveTree(folder_);
        VendorTest::TearDown();
    }
    CVendor* Linked(int port) {
        auto* vendor = static_cast<CVendor*>(factory_(kPorts[port].className.c_str(), kPorts[port].deviceId.c_str()));
        built_.push_back(vendor);
        vendor->LinkDevice();
        return vendor;
    }
    // As the host releases: through the provider, then whatever it left live.
    void Release(CVendor* vendor) {
        built_.remove(vendor);
        release_(vendor);
        if (CVendor::IsLive(vendor)) delete vendor;
    }
    static std::string Wwpn(CVendor* vendor) {
        std::list<std::pair<std::string, std::string>> info;
        std::string unused;
        vendor->GetExtendedInfo(info, &unused);
        return info.size() == 2 ? info.front().second : "";
    }
    static std::string Version(CVendor* vendor, const std::string& kind) {
        return vendor->FindModule(kind) != nullptr ? vendor->FindModule(kind)->RefreshOperatingVersionCache() : "";
    }
    // The whole update as the host runs it: the step that failed ("" for none); all but the apply check restore.
    static std::string Update(CVendor* vendor, const CManageRepositoryInfo& package) {
        const std::string& kind = package.moduleKind;
        CModuleManager* module = vendor->FindModule(kind);
        if (module == nullptr) return "register";
        const std::string operating = module->RefreshOperatingVersionCache();
        module->InitializeOperatingModuleInfo(operating);
        module->SetPrevVendorVersion(operating);
        module->SetUpdateVersion(package.version);
        module->CheckRegisterUpdateModule(package);
        module->SetUniqueName(package.uniqueName);
        const auto restore = [&] { return vendor->ExecuteUpdateRestore(kind, ""); };
        const std::pair<std::string, std::function<int()>> steps[] = {
            {"backup", [&] { return vendor->ExecuteUpdateBackup(kind, "", false); }},
            {"pre-update", [&] { return vendor->ExecutePreUpdate(kind, false); }},
            {"update", [&] { return vendor->ExecuteUpdate(kind, false); }},
            {"restore", restore},
            {"apply check", [&] { return vendor->ExecuteUpdateApplyCheck(kind); }},
        };
        for (const auto& [step, run] : steps) {
            if (run() == 0) continue;
            if (step != "apply check") restore();
            return step;
        }
        return "";
    }
    // An update module of the simulator's builder, registered as the repository would.
    CManageRepositoryInfo Package(const std::string& kind, int port, const std::string& version,
                                  std::vector<std::string> extra = {}) {
        const CManageRepositoryInfo package = {kPorts[port].modelKey, kind, version,
                                               folder_ + "/module" + std::to_string(++modules_) + ".zip"};
        if (kind == "firm") extra.insert(extra.begin(), {"--firmware", version, "--message"});
        EXPECT_TRUE(kind == "firm"     ? qdmtest::BuildFirmwareModule(package.archivePath, package.uniqueName, extra)
                    : kind == "driver" ? qdmtest::BuildDriverModule(package.archivePath, version, extra)
                                       : qdmtest::BuildUtilityModule(package.archivePath, version, extra));
        return package;
    }

    std::string folder_;
    std::list<CVendor*> built_;  // vendors still to release
    int modules_ = 0;
};

}  // namespace

TEST_F(FdLeakTest, EveryOperationAndEarlyExitKeepsTheDescriptors) {
    // Every kind in the vendor's order (utility, firmware, driver), and the 16G firmware.
    const std::pair<int, CManageRepositoryInfo> updates[] = {
        {k8G, Package("util", k8G, kNew)}, {k8G, Package("firm", k8G, "2.02a5")},
        {k8G, Package("driver", k8G, kNew)}, {k16G, Package("firm", k16G, kNew)}};
    const CManageRepositoryInfo truncated = Package("firm", k16G, kNew);
    std::filesystem::resize_file(truncated.archivePath, std::filesystem::file_size(truncated.archivePath) / 2);
    CManageRepositoryInfo otherVersion = Package("firm", k16G, kNew);
    otherVersion.version = "11.4.204.9";  // not what the image holds
    // The early exits, each on a port linked anew: the cache is dropped and the tool's `verb` fails as `mode`.
    const auto unreadable = [](const char* kind) {
        return [kind](CVendor* vendor) { return Version(vendor, kind) == "abnormal"; };
    };
    const auto fails = [](const CManageRepositoryInfo& package, const std::string& step) {
        return [package, step](CVendor* vendor) { return Update(vendor, package) == step; };
    };
    const struct { const char *verb, *mode; int port; std::function<bool(CVendor*)> exits; } faults[] = {
        {"listhbas", "hang", k16G, [this](CVendor*) { return Wwpn(Linked(k16G)).empty(); }},  // linked as it is killed
        {"HbaAttributes", "error", k16G, unreadable("firm")},
        {"HbaAttributes", "nokeys", k16G, unreadable("driver")},
        // No cache folder for the attributes.
        {"", "", k16G, [this, unreadable](CVendor* vendor) {
             qdmtest::RemoveTree(cache_);
             return unreadable("firm")(vendor);
         }},
        {"", "", k16G, fails(truncated, "pre-update")},
        {"", "", k16G, fails(Package("firm", k16G, kNew, {"--missing", "firmware"}), "pre-update")},  // no image
        {"Download", "fail", k16G, fails(Package("firm", k16G, kNew), "pre-update")},
        {"", "", k16G, fails(otherVersion, "apply check")},
        {"", "", k8G, fails(Package("driver", k8G, kNew, {"--packages", "0"}), "update")},
        {"rpm", "fail", k8G, fails(Package("driver", k8G, kNew), "update")},
        // The utility's configuration is missing.
        {"", "", k8G, [](CVendor* vendor) {
             return ::unlink("/etc/emulexDiscConfig") == 0 &&
                    vendor->CheckUpdateConditionByDevicevendor("util", nullptr) != 0;
         }},
        // The report folder cannot be written.
        {"", "", k16G, [this](CVendor* vendor) {
             qdmtest::WriteFile(root_ + "/plainfile", "");
             vendor->ExecOutputDeviceConfigInfo("", nullptr);
             return vendor->EndOutputDeviceConfigInfo(root_ + "/plainfile/", nullptr) != 0;
         }},
        // The utility's install script fails (the tool is gone afterwards).
        {"", "", k8G, fails(Package("util", k8G, kNew, {"--fail-install"}), "pre-update")},
    };
    const auto before = OpenDescriptors();

    CVendor* vendors[3] = {};
    for (int port = 0; port < 3; ++port) {
        CVendor* vendor = vendors[port] = Linked(port);  // the listing is read
        // The attributes are read for the firmware, then cached for the driver.
        EXPECT_EQ(Joined({vendor->GetModelKey(), Wwpn(vendor).empty(), Version(vendor, "firm"), Version(vendor, "driver"),
                          Version(vendor, "util"), vendor->CheckUpdateConditionByDevicevendor("util", nullptr),
                          vendor->ExecOutputDeviceConfigInfo("", nullptr)}),
                  Joined({kPorts[port].modelKey, 0, kPorts[port].firmware, "11.2.156.27", "10.2.370.16", 0, 0}));
    }
    for (const auto& [port, package] : updates) EXPECT_EQ(Update(vendors[port], package), "") << package.archivePath;
    EXPECT_EQ(Joined({vendors[k8G]->StartOutputDeviceConfigInfo("", nullptr),
                      vendors[k8G]->EndOutputDeviceConfigInfo(root_ + "/", nullptr),
                      qdmtest::Exists(root_ + "/Emulex_FcConfigInfo.xml")}),
              "0 0 1");
    for (CVendor* vendor : vendors) Release(vendor);

    // The early exits.
    for (const auto& row : faults) {
        CVendor* vendor = Linked(row.port);
        qdmtest::RemoveTree(cache_);
        std::filesystem::create_directories(cache_);
        EXPECT_TRUE(!*row.verb || qdmtest::SimFault(row.verb, row.mode)) << row.verb;
        EXPECT_TRUE(row.exits(vendor)) << "early exit " << &row - faults;
        if (*row.verb) qdmtest::SimFault(row.verb, "off");
    }
    while (!built_.empty()) Release(built_.front());
    EXPECT_EQ(OpenDescriptors(), before);
}
