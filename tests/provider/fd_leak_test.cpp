// No provider operation leaves a file descriptor open (or closes one of the
// host's). The process's descriptors are listed before and after each
// operation, driven as the host drives it, on the simulated demo server;
// the fault rows take the early exits, where handles are easiest to lose.
#include <dirent.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "HostSys.h"
#include "Sim.h"
#include "VendorFixture.h"

using namespace vendortest;

namespace {

struct Port {
    std::string name;
    std::string className;
    std::string deviceId;
    std::string modelKey;
    std::string firmware;  // the operating firmware version on the demo server
};

const Port k8GSinglePort = {"8G single-port", "CFC_EMULEX_8G_1P_Vendor",
                            "0000:03:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F11110DF", "fcelx_8g1p", "2.01a12"};
const Port k8GDualPort = {"8G dual-port", "CFC_EMULEX_8G_2P_Vendor",
                          "0000:04:00.0-PCI\\VEN_10DF&DEV_F100&SUBSYS_F10010DF",
                          "fcelx_8g2p_10df_f100_10df_f100", "2.02a5"};
const Port k16GPort = {"16G", "CFC_EMULEX_16G_Vendor", "0000:05:00.0-PCI\\VEN_10DF&DEV_E200&SUBSYS_E20010DF",
                       "fcelx_16g", "10.2.370.15"};
const Port* const kPorts[] = {&k8GSinglePort, &k8GDualPort, &k16GPort};
const char kDriverVersion[] = "11.2.156.27";
const char kUtilityVersion[] = "10.2.370.16";
const char kNewVersion[] = "11.4.204.8";
const char kNew8GFirmware[] = "2.02a5";
// The dual-port model writes the PCI ids it reads below the standard root.
const char kIdsFolder[] = "/opt/velmora/qdm/provider/tmp/EMULEX/temp";
const char kDiscoveryConfig[] = "/etc/emulexDiscConfig";

// Open descriptors of this process: number -> what it refers to.
using Descriptors = std::map<int, std::string>;

Descriptors OpenDescriptors() {
    Descriptors open;
    DIR* folder = ::opendir("/proc/self/fd");
    if (folder == nullptr) {
        ADD_FAILURE() << "/proc/self/fd cannot be listed";
        return open;
    }
    const int own = ::dirfd(folder);
    while (const dirent* entry = ::readdir(folder)) {
        if (entry->d_name[0] == '.') continue;
        const int fd = std::atoi(entry->d_name);
        if (fd == own) continue;
        char target[4096];
        const ssize_t length =
            ::readlink((std::string("/proc/self/fd/") + entry->d_name).c_str(), target, sizeof target);
        open[fd] = length > 0 ? std::string(target, static_cast<size_t>(length)) : "?";
    }
    ::closedir(folder);
    return open;
}

// "name: descriptor N (target) <what>" for each descriptor in `from` that `to` lacks.
void AddMissing(const std::string& name, const Descriptors& from, const Descriptors& to, const char* what,
                std::vector<std::string>& problems) {
    for (const auto& [fd, target] : from) {
        auto found = to.find(fd);
        if (found == to.end() || found->second != target)
            problems.push_back(name + ": descriptor " + std::to_string(fd) + " (" + target + ") " + what);
    }
}

// One call into the provider; answers whether it took the path the row is about.
struct Operation {
    std::string name;
    std::function<bool()> run;
};

// A fault row: `arrange` sets the fault up unmeasured, `act` is measured.
struct Fault {
    std::string name;
    std::function<void()> arrange;
    std::function<bool()> act;
};

// One host update step of a module kind; answers 0 on success.
using Step = std::pair<std::string, std::function<int()>>;

// The vendors of kPorts, in that order.
using Vendors = std::array<CVendor*, 3>;

class FdLeakTest : public ProviderTest {
protected:
    void SetUp() override {
        ProviderTest::SetUp();
        if (IsSkipped()) return;
        folder_ = qdmtest::MakeTempDir("fdleak");
        ASSERT_FALSE(qdmtest::InstallSimulator(folder_, qdmtest::DemoState()).empty());
        std::filesystem::create_directories(kIdsFolder);
    }
    void TearDown() override {
        while (!built_.empty()) Release(built_.front());
        qdmtest::RemoveTree(folder_);
        ProviderTest::TearDown();
    }

    // Each operation between two listings of the open descriptors: one line
    // per descriptor left open or closed, and per unexpected answer.
    static std::vector<std::string> Problems(const std::vector<Operation>& operations) {
        std::vector<std::string> problems;
        for (const Operation& operation : operations) {
            const Descriptors before = OpenDescriptors();
            const bool tookItsPath = operation.run();
            const Descriptors after = OpenDescriptors();
            AddMissing(operation.name, after, before, "left open", problems);
            AddMissing(operation.name, before, after, "closed", problems);
            if (!tookItsPath) problems.push_back(operation.name + ": unexpected answer");
        }
        return problems;
    }

    std::vector<std::string> ProblemsOnFaults(const std::vector<Fault>& faults) {
        std::vector<std::string> problems;
        for (const Fault& fault : faults) {
            fault.arrange();
            for (std::string& problem : Problems(std::vector<Operation>{{fault.name, fault.act}}))
                problems.push_back(std::move(problem));
            for (const std::string& verb : switched_) qdmtest::SimFault(verb, "off");
            switched_.clear();
        }
        return problems;
    }

    void SwitchFault(const std::string& verb, const std::string& mode) {
        ASSERT_TRUE(qdmtest::SimFault(verb, mode)) << verb << " " << mode;
        switched_.push_back(verb);
    }

    CVendor* Build(const Port& port) {
        auto* vendor = static_cast<CVendor*>(entry_.factory(port.className.c_str(), port.deviceId.c_str()));
        if (vendor != nullptr) built_.push_back(vendor);
        return vendor;
    }

    CVendor* Linked(const Port& port) {
        CVendor* vendor = Build(port);
        if (vendor != nullptr) vendor->LinkDevice();
        return vendor;
    }

    // As the host releases: through the provider, then whatever it left live.
    bool Release(CVendor* vendor) {
        if (vendor == nullptr) return false;
        built_.remove(vendor);
        entry_.release(vendor);
        if (CVendor::IsLive(vendor)) delete vendor;
        return !CVendor::IsLive(vendor);
    }

    static std::string Wwpn(CVendor* vendor) {
        std::list<std::pair<std::string, std::string>> info;
        std::string unused;
        vendor->GetExtendedInfo(info, &unused);
        for (const auto& entry : info)
            if (entry.first == "WWPN") return entry.second;
        return "";
    }

    static std::string Version(CVendor* vendor, const std::string& kind) {
        CModuleManager* module = vendor->FindModule(kind);
        return module != nullptr ? module->RefreshOperatingVersionCache() : "(no module)";
    }

    // The host's steps for one module kind, registration first.
    static std::vector<Step> UpdateSteps(CVendor*& vendor, const std::string& kind,
                                         const CManageRepositoryInfo& package) {
        return {
            {"register", [&vendor, kind, package] { return Register(vendor, kind, package); }},
            {"backup", [&vendor, kind] { return vendor->ExecuteUpdateBackup(kind, "", false); }},
            {"pre-update", [&vendor, kind] { return vendor->ExecutePreUpdate(kind, false); }},
            {"update", [&vendor, kind] { return vendor->ExecuteUpdate(kind, false); }},
            {"restore", [&vendor, kind] { return vendor->ExecuteUpdateRestore(kind, ""); }},
            {"apply check", [&vendor, kind] { return vendor->ExecuteUpdateApplyCheck(kind); }},
        };
    }

    static int Register(CVendor* vendor, const std::string& kind, const CManageRepositoryInfo& package) {
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

    // The whole update of one kind as the host runs it; answers the failed
    // step, "" when every step succeeded.
    static std::string FailedStep(CVendor* vendor, const std::string& kind, const CManageRepositoryInfo& package) {
        for (const Step& step : UpdateSteps(vendor, kind, package)) {
            if (step.second() == 0) continue;
            if (step.first != "apply check") vendor->ExecuteUpdateRestore(kind, "");
            return step.first;
        }
        return "";
    }

    // An update module built by the simulator's builder, registered as the repository would.
    CManageRepositoryInfo Package(const std::string& kind, const std::string& uniqueName,
                                  const std::string& version, std::vector<std::string> extra = {}) {
        const CManageRepositoryInfo package = {uniqueName, kind, version,
                                               folder_ + "/module" + std::to_string(++modules_) + ".zip"};
        bool built = false;
        if (kind == "firm") {
            extra.insert(extra.begin(), {"--firmware", version, "--message"});
            built = qdmtest::BuildFirmwareModule(package.archivePath, uniqueName, extra);
        } else if (kind == "driver") {
            built = qdmtest::BuildDriverModule(package.archivePath, version, extra);
        } else {
            built = qdmtest::BuildUtilityModule(package.archivePath, version, extra);
        }
        EXPECT_TRUE(built) << package.archivePath;
        return package;
    }

    // Drops the cached adapter listing, attributes and versions.
    void ForgetCache() {
        qdmtest::RemoveTree(cache_);
        std::filesystem::create_directories(cache_);
    }

    std::vector<Operation> Inventory(const Port& port, CVendor*& vendor) {
        const std::string at = port.name + " ";
        return {
            {at + "create", [this, &port, &vendor] {
                 vendor = Build(port);
                 return vendor != nullptr && vendor->GetModelKey() == port.modelKey;
             }},
            {at + "link (listing)", [&vendor] {
                 vendor->LinkDevice();
                 return vendor->FindModule("util") != nullptr;
             }},
            {at + "extended info", [&vendor] { return !Wwpn(vendor).empty(); }},
            {at + "firmware version (attributes read)",
             [&port, &vendor] { return Version(vendor, "firm") == port.firmware; }},
            {at + "driver version (attributes cached)",
             [&vendor] { return Version(vendor, "driver") == kDriverVersion; }},
            {at + "utility version", [&vendor] { return Version(vendor, "util") == kUtilityVersion; }},
            {at + "missing components", [&vendor] {
                 std::list<CNecessaryComponentInfo> missing;
                 vendor->GetShortageOfNecessaryApplicationInfo(missing);
                 return missing.empty();
             }},
            {at + "utility condition", [&vendor] {
                 CManageRepositoryInfo package;
                 return vendor->CheckUpdateConditionByDevicevendor("util", &package) == 0;
             }},
        };
    }

    std::vector<Operation> Update(const Port& port, CVendor*& vendor, const CManageRepositoryInfo& package) {
        std::vector<Operation> operations;
        for (Step& step : UpdateSteps(vendor, package.moduleKind, package)) {
            std::function<int()> run = std::move(step.second);
            operations.push_back(
                {port.name + " " + package.moduleKind + " " + step.first, [run] { return run() == 0; }});
        }
        return operations;
    }

    // The configuration report over every port (vendors in kPorts' order).
    std::vector<Operation> Report(Vendors& vendors) {
        const std::string folder = root_ + "/report/";
        std::vector<Operation> operations = {
            {"report start", [&vendors] { return vendors[0]->StartOutputDeviceConfigInfo("", nullptr) == 0; }}};
        for (size_t at = 0; at < vendors.size(); ++at)
            operations.push_back({kPorts[at]->name + " report exec", [&vendors, at] {
                                      return vendors[at]->ExecOutputDeviceConfigInfo("", nullptr) == 0;
                                  }});
        std::filesystem::create_directories(folder);
        operations.push_back({"report end", [&vendors, folder] {
                                  return vendors[0]->EndOutputDeviceConfigInfo(folder, nullptr) == 0 &&
                                         qdmtest::Exists(folder + "Emulex_FcConfigInfo.xml");
                              }});
        return operations;
    }

    std::string folder_;
    std::list<CVendor*> built_;          // vendors still to release
    std::vector<std::string> switched_;  // fault switches to clear after the row
    int modules_ = 0;
};

template <typename T>
void Append(std::vector<T>& to, std::vector<T> more) {
    for (T& item : more) to.push_back(std::move(item));
}

}  // namespace

TEST_F(FdLeakTest, InventoryUpdateReportAndReleaseCloseEveryDescriptor) {
    Vendors vendors = {};
    CVendor*& single = vendors[0];
    CVendor*& sixteen = vendors[2];
    std::vector<Operation> operations;
    for (size_t at = 0; at < vendors.size(); ++at) Append(operations, Inventory(*kPorts[at], vendors[at]));
    // The vendor's order: utility, firmware, driver; the 16G firmware too.
    Append(operations, Update(k8GSinglePort, single, Package("util", k8GSinglePort.modelKey, kNewVersion)));
    Append(operations, Update(k8GSinglePort, single, Package("firm", k8GSinglePort.modelKey, kNew8GFirmware)));
    Append(operations, Update(k8GSinglePort, single, Package("driver", k8GSinglePort.modelKey, kNewVersion)));
    Append(operations, Update(k16GPort, sixteen, Package("firm", k16GPort.modelKey, kNewVersion)));
    Append(operations, Report(vendors));
    for (size_t at = 0; at < vendors.size(); ++at)
        operations.push_back(
            {kPorts[at]->name + " release", [this, &vendors, at] { return Release(vendors[at]); }});

    EXPECT_EQ(Problems(operations), std::vector<std::string>{});
}

TEST_F(FdLeakTest, EarlyExitsOnFaultsCloseEveryDescriptor) {
    CVendor* vendor = nullptr;  // the port of the current row
    // Arrangements: a linked port; a linked port with the cache dropped and a tool fault on.
    const auto linked = [this, &vendor](const Port& port) {
        return [this, &vendor, &port] { vendor = Linked(port); };
    };
    const auto faulty = [this, linked](const Port& port, const char* verb, const char* mode) {
        return [this, linked, &port, verb, mode] {
            linked(port)();
            ForgetCache();
            SwitchFault(verb, mode);
        };
    };
    // Acts: the update of a kind that stops at `step`; a module version read as unreadable.
    const auto fails = [&vendor](const CManageRepositoryInfo& package, const std::string& step) {
        return [&vendor, package, step] { return FailedStep(vendor, package.moduleKind, package) == step; };
    };
    const auto unreadable = [&vendor](const char* kind) {
        return [&vendor, kind] { return Version(vendor, kind) == "abnormal"; };
    };

    const CManageRepositoryInfo notAZip = {k16GPort.modelKey, "firm", kNewVersion, folder_ + "/not-a-zip.zip"};
    qdmtest::WriteFile(notAZip.archivePath, "this is no zip archive\n");
    const CManageRepositoryInfo truncated = Package("firm", k16GPort.modelKey, kNewVersion);
    std::filesystem::resize_file(truncated.archivePath, std::filesystem::file_size(truncated.archivePath) / 2);
    const CManageRepositoryInfo good16G = Package("firm", k16GPort.modelKey, kNewVersion);
    CManageRepositoryInfo otherVersion = good16G;
    otherVersion.version = "11.4.204.9";  // not what the image holds
    const std::vector<Fault> faults = {
        {"listing: the tool prints an error", [this] { ForgetCache(); SwitchFault("listhbas", "error"); },
         [this] { return Wwpn(Linked(k16GPort)).empty(); }},
        {"listing: the tool prints garbage", [this] { ForgetCache(); SwitchFault("listhbas", "garbage"); },
         [this] { return Wwpn(Linked(k16GPort)).empty(); }},
        {"listing: the tool hangs and is killed", [this] { ForgetCache(); SwitchFault("listhbas", "hang"); },
         [this] { return Wwpn(Linked(k16GPort)).empty(); }},
        {"attributes: the tool prints an error", faulty(k16GPort, "HbaAttributes", "error"), unreadable("firm")},
        {"attributes: the version keys are missing", faulty(k16GPort, "HbaAttributes", "nokeys"),
         unreadable("driver")},
        {"utility version: the tool prints an error", faulty(k16GPort, "version", "error"), unreadable("util")},
        {"attributes: the cache folder is missing",
         [this, linked] {
             linked(k16GPort)();
             qdmtest::RemoveTree(cache_);
         },
         unreadable("firm")},
        {"firmware: the module is no archive", linked(k16GPort), fails(notAZip, "pre-update")},
        {"firmware: the module is cut short", linked(k16GPort), fails(truncated, "pre-update")},
        {"firmware: the module lacks its image", linked(k16GPort),
         fails(Package("firm", k16GPort.modelKey, kNewVersion, {"--missing", "firmware"}), "pre-update")},
        {"firmware: the download fails", faulty(k16GPort, "Download", "fail"), fails(good16G, "pre-update")},
        {"apply check: the adapter reports another version", linked(k16GPort), fails(otherVersion, "apply check")},
        {"driver: the module holds no package", linked(k8GSinglePort),
         fails(Package("driver", k8GSinglePort.modelKey, kNewVersion, {"--packages", "0"}), "update")},
        {"driver: rpm fails", faulty(k8GSinglePort, "rpm", "fail"),
         fails(Package("driver", k8GSinglePort.modelKey, kNewVersion), "update")},
        {"utility condition: the configuration is missing",
         [linked] {
             linked(k8GSinglePort)();
             EXPECT_EQ(::unlink(kDiscoveryConfig), 0);
         },
         [&vendor] {
             CManageRepositoryInfo package;
             return vendor->CheckUpdateConditionByDevicevendor("util", &package) != 0;
         }},
        {"report: the folder cannot be written", linked(k16GPort), [this, &vendor] {
             qdmtest::WriteFile(root_ + "/plainfile", "");
             vendor->ExecOutputDeviceConfigInfo("", nullptr);
             return vendor->EndOutputDeviceConfigInfo(root_ + "/plainfile/", nullptr) != 0;
         }},
        {"utility: the install script fails (the tool is gone afterwards)", linked(k8GSinglePort),
         fails(Package("util", k8GSinglePort.modelKey, kNewVersion, {"--fail-install"}), "pre-update")},
        {"release after the faults", [] {}, [this, &vendor] { return Release(vendor); }},
    };

    EXPECT_EQ(ProblemsOnFaults(faults), std::vector<std::string>{});
}
