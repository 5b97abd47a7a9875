#pragma once
// One fixture for the adapter services: a fresh install root, a cleared last
// error, and a fake adapter tool that logs each run.
#include <algorithm>
#include <string>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace commontest {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";

inline std::string Golden(const std::string& name) { return std::string(QDM_GOLDEN_DIR) + "/" + name; }

class CommonTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        runs_ = root_ + "/runs.txt";
        CEmulexCommon::SetLastError(0);
    }
    // "RESULT eERROR" of the call just made; clears the error for the next one.
    static std::string Outcome(long result) {
        const std::string text = std::to_string(result) + " e" + std::to_string(CEmulexCommon::GetLastError());
        CEmulexCommon::SetLastError(0);
        return text;
    }
    // The tool appends its arguments to runs_, then does `action`.
    void InstallTool(const std::string& action) {
        qdmtest::WriteScript(kHbacmd, "echo \"$@\" >> " + runs_ + "\n" + action + "\n");
    }
    size_t Runs() const {
        const std::string runs = qdmtest::ReadFile(runs_);
        return static_cast<size_t>(std::count(runs.begin(), runs.end(), '\n'));
    }
    // The captured messages as "ID insert...;", for exact comparison.
    std::string MessagesText() const {
        std::string text;
        for (const auto& message : Messages()) {
            text += message.id;
            for (const std::string& insert : message.inserts) text += " " + insert;
            text += ";";
        }
        return text;
    }
    void UseListing(const std::string& name) {
        qdmtest::WriteFile(cache_ + "/Listhbas.txt", qdmtest::ReadFile(Golden("listhbas/" + name)));
    }
    // A fresh start for the next row of a table.
    void NextRow() {
        CTraceUtility::ClearCapture();
        CEmulexCommon::SetLastError(0);
    }

    std::string runs_;
};

}  // namespace commontest
