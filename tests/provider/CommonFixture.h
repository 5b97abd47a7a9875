#pragma once
// The fixture every provider test builds on: a fresh install root, a cleared
// last error, root_/bin first on PATH, and a fake adapter tool that logs each run.
#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>

#include "CEmulexCommon.h"
#include "TestEnv.h"

namespace commontest {

const char kHbacmd[] = "/usr/sbin/ocmanager/hbacmd";
const char kWwpn[] = "10:00:00:00:c9:12:34:56";

inline std::string Golden(const std::string& name) { return std::string(QDM_GOLDEN_DIR) + "/" + name; }

class CommonTest : public qdmtest::HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        runs_ = root_ + "/runs.txt";
        CEmulexCommon::SetLastError(0);
        path_ = std::getenv("PATH");  // fake programs in root_/bin come first
        ::setenv("PATH", (root_ + "/bin:" + path_).c_str(), 1);
    }
    void TearDown() override {
        if (!path_.empty()) ::setenv("PATH", path_.c_str(), 1);
        HostTest::TearDown();
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
    // The captured messages as " ID insert...", for exact comparison.
    std::string MessagesText() const {
        std::string text;
        for (const auto& message : Messages()) {
            text += " " + message.id;
            for (const std::string& insert : message.inserts) text += " " + insert;
        }
        return text;
    }
    void UseListing(const std::string& name) {
        qdmtest::WriteFile(cache_ + "/Listhbas.txt", qdmtest::ReadFile(Golden("listhbas/" + name)));
    }
    // One value of a joined outcome: a text, or a number (a bool as 1 or 0).
    struct Part {
        Part(std::string value) : text(std::move(value)) {}
        Part(const char* value) : text(value) {}
        template <typename N, typename = std::enable_if_t<std::is_arithmetic_v<N>>>
        Part(N value) : text(std::to_string(value)) {}
        std::string text;
    };
    // The values joined by blanks, for one comparison; a braced list is
    // evaluated in order, so the parts may be calls that act in turn.
    static std::string Joined(std::initializer_list<Part> parts) {
        std::string text;
        for (const Part& part : parts) text += (&part == parts.begin() ? "" : " ") + part.text;
        return text;
    }
    // A fresh start for the next row of a table: no captured lines, this last error.
    static void NextRow(unsigned long lastError = 0) {
        CTraceUtility::ClearCapture();
        CEmulexCommon::SetLastError(lastError);
    }

    std::string runs_;

private:
    std::string path_;
};

}  // namespace commontest
