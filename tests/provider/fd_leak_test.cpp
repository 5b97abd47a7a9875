// No provider operation leaves a file descriptor open or closes one of the
// host's. The open descriptors are listed before and after each operation,
// driven as the host drives it on the simulated demo server; the fault rows
// take the early exits, where handles are easiest to lose.
#include <filesystem>
#include <functional>
#include <map>

#include "Sim.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

struct Port { std::string name, className, deviceId, modelKey, firmware; };  // firmware: as on the demo server
const Port kPorts[] = {
    {"8G single-port", "CFC_EMULEX_8G_1P_Vendor", "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF", "fcelx_8g1p",
     "2.01a12"},
    {"8G dual-port", "CFC_EMULEX_8G_2P_Vendor", "0000:04:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF",
     "fcelx_8g2p_10df_f100_10df_f100", "2.02a5"},
    {"16G", "CFC_EMULEX_16G_Vendor", "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF", "fcelx_16g", "10.2.370.15"},
};
enum { k8G = 0, k16G = 2 };
const char kNew[] = "11.4.204.8";
const char* const kSteps[] = {"register", "backup", "pre-update", "update", "restore", "apply check"};

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

// A row acts on its port's vendor and answers whether it took the path it is about.
using Act = std::function<bool(const Port&, CVendor*&)>;
// `arrange` (a fault, a linked port) is not measured; `act` is.
struct Row { std::string name; int port; std::function<void(const Port&, CVendor*&)> arrange; Act act; };

class FdLeakTest : public ProviderTest {
protected:
    void SetUp() override {
        ProviderTest::SetUp();
        if (IsSkipped()) return;
        folder_ = qdmtest::MakeTempDir("fdleak");
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState()).empty());
        std::filesystem::create_directories("/opt/velmora/qdm/provider/tmp/EMULEX/temp");
    }
    void TearDown() override {
        while (!built_.empty()) Release(built_.front());
        qdmtest::RemoveTree(folder_);
        ProviderTest::TearDown();
    }
    CVendor* Linked(const Port& port) {
        auto* vendor = static_cast<CVendor*>(factory_(port.className.c_str(), port.deviceId.c_str()));
        if (vendor != nullptr) { built_.push_back(vendor); vendor->LinkDevice(); }
        return vendor;
    }
    // As the host releases: through the provider, then whatever it left live.
    bool Release(CVendor* vendor) {
        built_.remove(vendor);
        release_(vendor);
        if (CVendor::IsLive(vendor)) delete vendor;
        return !CVendor::IsLive(vendor);
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
    // One host update step; "register" is what the host does before the others.
    static int Step(CVendor* vendor, const std::string& step, const CManageRepositoryInfo& package) {
        const std::string& kind = package.moduleKind;
        if (step == "backup") return vendor->ExecuteUpdateBackup(kind, "", false);
        if (step == "pre-update") return vendor->ExecutePreUpdate(kind, false);
        if (step == "update") return vendor->ExecuteUpdate(kind, false);
        if (step == "restore") return vendor->ExecuteUpdateRestore(kind, "");
        if (step == "apply check") return vendor->ExecuteUpdateApplyCheck(kind);
        CModuleManager* module = vendor->FindModule(kind);
        if (module == nullptr) return 1;
        const std::string operating = module->RefreshOperatingVersionCache();
        module->InitializeOperatingModuleInfo(operating);
        module->SetPrevVendorVersion(operating);
        module->SetUpdateVersion(package.version);
        module->CheckRegisterUpdateModule(package);
        module->SetUniqueName(package.uniqueName);
        return 0;
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
    CVendor* vendors_[3] = {};
    std::list<CVendor*> built_;          // vendors still to release
    std::string fault_;                  // the fault switch to clear after the row
    int modules_ = 0;
};

}  // namespace

TEST_F(FdLeakTest, InventoryUpdateReportReleaseAndEarlyExitsCloseEveryDescriptor) {
    const std::pair<std::string, Act> inventory[] = {
        {"create and link (listing)", [this](const Port& p, CVendor*& v) {
             v = Linked(p);
             return v != nullptr && v->GetModelKey() == p.modelKey && v->FindModule("util") != nullptr;
         }},
        {"extended info", [](const Port&, CVendor*& v) { return !Wwpn(v).empty(); }},
        {"firmware version (attributes read)", [](const Port& p, CVendor*& v) { return Version(v, "firm") == p.firmware; }},
        {"driver version (attributes cached)", [](const Port&, CVendor*& v) { return Version(v, "driver") == "11.2.156.27"; }},
        {"utility version", [](const Port&, CVendor*& v) { return Version(v, "util") == "10.2.370.16"; }},
        {"utility condition", [](const Port&, CVendor*& v) { return v->CheckUpdateConditionByDevicevendor("util", nullptr) == 0; }},
        {"report exec", [](const Port&, CVendor*& v) { return v->ExecOutputDeviceConfigInfo("", nullptr) == 0; }},
    };
    std::vector<Row> rows;
    for (int port = 0; port < 3; ++port)
        for (const auto& [name, act] : inventory) rows.push_back({kPorts[port].name + " " + name, port, {}, act});
    // Every step of each kind in the vendor's order (utility, firmware, driver), and the 16G firmware.
    for (const auto& [port, package] : {std::make_pair(k8G, Package("util", k8G, kNew)),
                                        std::make_pair(k8G, Package("firm", k8G, "2.02a5")),
                                        std::make_pair(k8G, Package("driver", k8G, kNew)),
                                        std::make_pair(k16G, Package("firm", k16G, kNew))})
        for (const std::string step : kSteps)
            rows.push_back({package.moduleKind + " " + step, port, {}, [step, package = package](const Port&, CVendor*& v) {
                                return Step(v, step, package) == 0;
                            }});
    rows.push_back({"report start and end", k8G, {}, [this](const Port&, CVendor*& v) {
                        return v->StartOutputDeviceConfigInfo("", nullptr) == 0 &&
                               v->EndOutputDeviceConfigInfo(root_ + "/", nullptr) == 0 &&
                               qdmtest::Exists(root_ + "/Emulex_FcConfigInfo.xml");
                    }});
    for (int port = 0; port < 3; ++port)
        rows.push_back({kPorts[port].name + " release", port, {}, [this](const Port&, CVendor*& v) { return Release(v); }});

    // The early exits: a linked port, with the cache dropped and a tool fault on when a fault is named.
    const auto linked = [this](const char* verb = nullptr, const char* mode = nullptr) {
        return [this, verb, mode](const Port& p, CVendor*& v) {
            if (verb == nullptr || std::string(verb) != "listhbas") v = Linked(p);
            if (verb == nullptr) return;
            qdmtest::RemoveTree(cache_);
            std::filesystem::create_directories(cache_);
            EXPECT_TRUE(qdmtest::SimFault(fault_ = verb, mode)) << verb << " " << mode;
        };
    };
    const Act unlisted = [this](const Port& p, CVendor*& v) { return Wwpn(v = Linked(p)).empty(); };
    const auto unreadable = [](const char* kind) {
        return Act([kind](const Port&, CVendor*& v) { return Version(v, kind) == "abnormal"; });
    };
    // The whole update as the host runs it stops at `step`, and is restored unless that is the apply check.
    const auto fails = [](const CManageRepositoryInfo& package, const std::string& step) {
        return Act([package, step](const Port&, CVendor*& v) {
            for (const std::string failed : kSteps) {
                if (Step(v, failed, package) == 0) continue;
                if (failed != "apply check") Step(v, "restore", package);
                return failed == step;
            }
            return false;
        });
    };
    const CManageRepositoryInfo notAZip = {"fcelx_16g", "firm", kNew, folder_ + "/not-a-zip.zip"};
    qdmtest::WriteFile(notAZip.archivePath, "this is no zip archive\n");
    const CManageRepositoryInfo truncated = Package("firm", k16G, kNew);
    std::filesystem::resize_file(truncated.archivePath, std::filesystem::file_size(truncated.archivePath) / 2);
    const CManageRepositoryInfo good16G = Package("firm", k16G, kNew);
    CManageRepositoryInfo otherVersion = good16G;
    otherVersion.version = "11.4.204.9";  // not what the image holds
    const Row faults[] = {
        {"listing: the tool prints an error", k16G, linked("listhbas", "error"), unlisted},
        {"listing: the tool prints garbage", k16G, linked("listhbas", "garbage"), unlisted},
        {"listing: the tool hangs and is killed", k16G, linked("listhbas", "hang"), unlisted},
        {"attributes: the tool prints an error", k16G, linked("HbaAttributes", "error"), unreadable("firm")},
        {"attributes: the version keys are missing", k16G, linked("HbaAttributes", "nokeys"), unreadable("driver")},
        {"utility version: the tool prints an error", k16G, linked("version", "error"), unreadable("util")},
        {"attributes: the cache folder is missing", k16G,
         [this](const Port& p, CVendor*& v) { v = Linked(p); qdmtest::RemoveTree(cache_); }, unreadable("firm")},
        {"firmware: the module is no archive", k16G, linked(), fails(notAZip, "pre-update")},
        {"firmware: the module is cut short", k16G, linked(), fails(truncated, "pre-update")},
        {"firmware: the module lacks its image", k16G, linked(),
         fails(Package("firm", k16G, kNew, {"--missing", "firmware"}), "pre-update")},
        {"firmware: the download fails", k16G, linked("Download", "fail"), fails(good16G, "pre-update")},
        {"apply check: the adapter reports another version", k16G, linked(), fails(otherVersion, "apply check")},
        {"driver: the module holds no package", k8G, linked(), fails(Package("driver", k8G, kNew, {"--packages", "0"}), "update")},
        {"driver: rpm fails", k8G, linked("rpm", "fail"), fails(Package("driver", k8G, kNew), "update")},
        {"utility condition: the configuration is missing", k8G,
         [this](const Port& p, CVendor*& v) { v = Linked(p); EXPECT_EQ(::unlink("/etc/emulexDiscConfig"), 0); },
         [](const Port&, CVendor*& v) { return v->CheckUpdateConditionByDevicevendor("util", nullptr) != 0; }},
        {"report: the folder cannot be written", k16G, linked(), [this](const Port&, CVendor*& v) {
             qdmtest::WriteFile(root_ + "/plainfile", "");
             v->ExecOutputDeviceConfigInfo("", nullptr);
             return v->EndOutputDeviceConfigInfo(root_ + "/plainfile/", nullptr) != 0;
         }},
        {"utility: the install script fails (the tool is gone afterwards)", k8G, linked(),
         fails(Package("util", k8G, kNew, {"--fail-install"}), "pre-update")},
        {"release after the faults", k8G, {}, [this](const Port&, CVendor*& v) { return Release(v); }},
    };
    rows.insert(rows.end(), std::begin(faults), std::end(faults));

    for (const Row& row : rows) {
        if (row.arrange) row.arrange(kPorts[row.port], vendors_[row.port]);
        const auto before = OpenDescriptors();
        EXPECT_TRUE(row.act(kPorts[row.port], vendors_[row.port])) << row.name << ": unexpected answer";
        EXPECT_EQ(OpenDescriptors(), before) << row.name << ": descriptors left open or closed";
        if (!fault_.empty()) qdmtest::SimFault(fault_, "off");
        fault_.clear();
    }
}
