// The host's module lifecycle: names, registration and the progress window
// that the Execute... steps open around PreUpdate and Update.
#include "ModuleManager.h"
#include "TestEnv.h"

namespace {

// Records what the lifecycle hands to the overridable steps.
class RecordingModule : public CUtility {
public:
    explicit RecordingModule(bool checkFails) : CUtility("0000:03:00.0-PCI", "ocm"), checkFails_(checkFails) {}
    std::string GetOperatingVersion() override { return "11.2.3.4"; }
    int CheckVendorVersion(std::string, std::string) override { return 0; }
    int PreUpdate(std::string device, std::string archive, std::list<std::string>* files, bool) override {
        preUpdateProgress = GetUpdateProgress();
        seenDevice = device;
        seenArchive = archive;
        files->push_back("written.bin");
        return 0;
    }
    int Update(std::string, std::string, std::list<std::string>* files, bool) override {
        updateProgress = GetUpdateProgress();
        filesSeenByUpdate = files->size();
        return 7;
    }
    bool UpdateApplyCheck(std::string) override {
        applyCheckProgress = GetUpdateProgress();
        return checkFails_;
    }
    int preUpdateProgress = -1;
    int updateProgress = -1;
    int applyCheckProgress = -1;
    size_t filesSeenByUpdate = 0;
    std::string seenDevice;
    std::string seenArchive;

private:
    bool checkFails_;
};

bool InsideUpdateWindow(int progress) { return progress >= 25 && progress <= 84; }

TEST(ModuleManagerTest, ProgressWindowAroundPreUpdateAndUpdate) {
    RecordingModule module(false);
    CManageRepositoryInfo repository{"fcelx_16g", "util", "12.0.0.1", "/repo/ocm.zip"};
    EXPECT_EQ(0, module.CheckRegisterUpdateModule(repository));
    EXPECT_EQ(0, module.GetUpdateProgress());
    EXPECT_EQ(0, module.ExecuteUpdateBackup("/backup", false));
    EXPECT_FALSE(InsideUpdateWindow(module.GetUpdateProgress()));
    EXPECT_EQ(0, module.ExecutePreUpdate(false));
    EXPECT_EQ(7, module.ExecuteUpdate(false));
    EXPECT_FALSE(InsideUpdateWindow(module.GetUpdateProgress()));
    EXPECT_FALSE(module.ExecuteUpdateApplyCheck());

    EXPECT_TRUE(InsideUpdateWindow(module.preUpdateProgress));
    EXPECT_TRUE(InsideUpdateWindow(module.updateProgress));
    EXPECT_FALSE(InsideUpdateWindow(module.applyCheckProgress));
    EXPECT_EQ("0000:03:00.0-PCI", module.seenDevice);
    EXPECT_EQ("/repo/ocm.zip", module.seenArchive);
    EXPECT_EQ(1U, module.filesSeenByUpdate) << "the file list lives across the steps";
    EXPECT_EQ(CModuleManager::STATUS_SUCCESS, module.GetUpdateStatus());
    EXPECT_EQ(CModuleManager::PROGRESS_DONE, module.GetUpdateProgress());
    EXPECT_FALSE(module.GetLatestUpdateDate().empty());
    EXPECT_EQ("12.0.0.1", module.GetOperatingModuleInfo().version);
    EXPECT_EQ("fcelx_16g", module.GetUniqueName());
}

TEST(ModuleManagerTest, FailedApplyCheckMarksFailure) {
    RecordingModule module(true);
    EXPECT_TRUE(module.ExecuteUpdateApplyCheck());
    EXPECT_EQ(CModuleManager::STATUS_FAILURE, module.GetUpdateStatus());
    EXPECT_TRUE(module.GetLatestUpdateDate().empty());
}

TEST(ModuleManagerTest, NamesVersionsAndCache) {
    struct Probe : CDriver {
        using CDriver::CDriver;
        std::string GetOperatingVersion() override { return "12.8.1"; }
        int CheckVendorVersion(std::string, std::string) override { return 0; }
    };
    EXPECT_EQ("driver", Probe("dev").GetModuleName());
    EXPECT_EQ("driver", Probe("dev", "").GetModuleName());
    EXPECT_EQ("lpfc", Probe("dev", "lpfc").GetModuleName());
    Probe probe("dev");
    EXPECT_EQ("dev", probe.GetDeviceName());
    EXPECT_EQ("", probe.GetOperatingVersionCache());
    EXPECT_EQ("12.8.1", probe.RefreshOperatingVersionCache());
    EXPECT_EQ("12.8.1", probe.GetOperatingVersionCache());
    probe.InitializeOperatingModuleInfo("12.0");
    EXPECT_EQ("12.0", probe.GetOldOperatingModuleInfo().version);
    EXPECT_EQ("12.0", probe.GetPrevVendorVersion());
    EXPECT_EQ(0, probe.RegistUpdateModule("key", "/a.zip"));
    EXPECT_EQ("key", probe.GetManageModuleInfo().uniqueName);
    EXPECT_EQ("driver", probe.GetManageModuleInfo().moduleName);
}

}  // namespace
