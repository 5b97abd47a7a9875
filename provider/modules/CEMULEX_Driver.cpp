#include "CEMULEX_Driver.h"

#include <cstdlib>
#include <fstream>
#include <utility>

#include "CEmulexCommon.h"
#include "FcTrace.h"
#include "StringUtil.h"
#include "TraceUtility.h"
#include "UpdateWindow.h"

namespace {

const char kTrace[] = "fc";
const char kAbnormal[] = "abnormal";

// One kernel module whose updated build depmod must prefer.
struct DepmodOverride {
    const char* file;
    const char* marker;
    const char* firstLine;
    const char* secondLine;
};

// The lpfc paths name "elx-lpfc", unlike the other two modules: that is where
// the package installs it.
const DepmodOverride kBe2net = {"/etc/depmod.d/elxbe2net.conf", "override be2net",
                                "override be2net * weak-updates/updates/be2net",
                                "override be2net * weak-updates/be2net"};
const DepmodOverride kLpfc = {"/etc/depmod.d/elxlpfc.conf", "override lpfc",
                              "override lpfc * weak-updates/updates/elx-lpfc",
                              "override lpfc * weak-updates/elx-lpfc"};
const DepmodOverride kBe2iscsi = {"/etc/depmod.d/elxbe2iscsi.conf", "override be2iscsi",
                                  "override be2iscsi * weak-updates/updates/be2iscsi",
                                  "override be2iscsi * weak-updates/be2iscsi"};

// True when some line holds the marker anywhere (a comment counts too).
bool HasMarkerLine(std::istream& in, const std::string& marker) {
    std::string line;
    while (std::getline(in, line))
        if (line.find(marker) != std::string::npos) return true;
    return false;
}

bool IsOverrideWritten(const DepmodOverride& entry) {
    std::ifstream in(entry.file);
    return in && HasMarkerLine(in, entry.marker);
}

// Appends the override lines unless present; false when the file cannot be written.
bool WriteOverride(const DepmodOverride& entry) {
    if (IsOverrideWritten(entry)) return true;
    std::ofstream out(entry.file, std::ios::app);
    if (out) {
        // The leading line feed keeps the lines apart from an unterminated last line.
        out << '\n' << entry.firstLine << '\n' << entry.secondLine << '\n';
        out.flush();
    }
    if (out) return true;
    CEmulexCommon::SetLastError(17);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "Failed to open file(%s).", entry.file);
    return false;
}

bool RunDepmod() {
    const char command[] = "depmod -a";
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "Execute depmod command by _tsystem method [%s]",
                              command);
    int status = std::system(command);
    if (status != 0) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR, "depmod -a error.(%d)", status);
        return false;
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO, "depmod -a ok.");
    return true;
}

// While the module is being updated the adapter is not asked.
std::string VersionDuringUpdate(CEMULEX_Driver& driver, const std::string& wwpn) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_INFO,
                              "CEMULEX_Driver::GetOperatingVersion() Update processing [%s] %s or %s", wwpn.c_str(),
                              driver.GetUpdateVersion().c_str(), driver.GetPrevVendorVersion().c_str());
    return emulex_update::VersionDuringUpdate(driver);
}

// The adapter's driver version in the module's format; a failed read drops
// the attribute cache so that the next reading asks the adapter afresh.
std::string ReadAdapterVersion(CEMULEX_Driver& driver, const std::string& wwpn) {
    std::string value;
    const int status = CEmulexCommon::GetHbaAttribData(wwpn, "Driver Version", value);
    if (status == 0) {
        CStringUtil::strTrimAll(value, value);
        return driver.FormatVersionString(value);
    }
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                              "CEMULEX_Driver::GetOperatingVersion() GetHbaAttribData return:%d", status);
    CEmulexCommon::DeleteHbaAttribCache(wwpn);
    return kAbnormal;
}

}  // namespace

CEMULEX_Driver::CEMULEX_Driver(std::string first, std::string second, std::string wwpn)
    : CDriverWithUpDrv(first, second), wwpn(std::move(wwpn)) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEMULEX_Driver::CEMULEX_Driver() [%s] [%s] [%s] [START]",
                              second.c_str(), first.c_str(), this->wwpn.c_str());
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEMULEX_Driver::CEMULEX_Driver() [%s] [%s] [%s] [END]",
                              second.c_str(), first.c_str(), this->wwpn.c_str());
}

CEMULEX_Driver::~CEMULEX_Driver() {
    TraceFunc("CEMULEX_Driver::~CEMULEX_Driver() [START]");
    TraceFunc("CEMULEX_Driver::~CEMULEX_Driver() [END]");
}

void CEMULEX_Driver::SetWWPNorMac(std::string value) { wwpn = std::move(value); }

std::string CEMULEX_Driver::GetOperatingVersion() {
    TraceFunc("CEMULEX_Driver::GetOperatingVersion() [START]");
    std::string result = kAbnormal;
    if (!wwpn.empty())
        result = emulex_update::IsUpdateInProgress(GetUpdateProgress()) ? VersionDuringUpdate(*this, wwpn) : ReadAdapterVersion(*this, wwpn);
    TraceFunc("CEMULEX_Driver::GetOperatingVersion() [END]");
    return result;
}

int CEMULEX_Driver::CheckVendorVersion(std::string first, std::string second) {
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC, "CEMULEX_Driver::CheckVendorVersion() [%s] [%s] [%s] [START]",
                              wwpn.c_str(), first.c_str(), second.c_str());
    const int result = CEmulexCommon::CheckVendorVersion4SegNormal(first, second);
    CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_FUNC,
                              "CEMULEX_Driver::CheckVendorVersion() [%s] [%s] [%s] [END] return:%d", wwpn.c_str(),
                              first.c_str(), second.c_str(), result);
    return result;
}

std::string CEMULEX_Driver::FormatVersionString(std::string version) {
    TraceFunc("CEMULEX_Driver::FormatVersionString() [START]");
    CStringUtil::strTrimAll(version, version);
    std::string result = CEmulexCommon::FormatVersion4SegCleanDust(version);
    if (!CStringUtil::CheckVersion4SegFormat(result)) {
        CTraceUtility::WriteDebug(kTrace, CTraceUtility::TRACE_ERROR,
                                  "CEMULEX_Driver::FormatVersionString() Version format error. [%s]", result.c_str());
        result = kAbnormal;
    }
    TraceFunc("CEMULEX_Driver::FormatVersionString() [END]");
    return result;
}

// The five update steps update nothing at this level; the FC driver module
// supplies the real ones.
int CEMULEX_Driver::UpdateBackup(std::string, bool) {
    TraceFunc("CEMULEX_Driver::UpdateBackup() [START]");
    TraceFunc("CEMULEX_Driver::UpdateBackup() [END]");
    return 0;
}

int CEMULEX_Driver::PreUpdate(std::string, std::string, std::list<std::string>*, bool) {
    TraceFunc("CEMULEX_Driver::PreUpdate() [START]");
    TraceFunc("CEMULEX_Driver::PreUpdate() [END]");
    return 0;
}

int CEMULEX_Driver::Update(std::string, std::string, std::list<std::string>*, bool) {
    TraceFunc("CEMULEX_Driver::Update() [START]");
    TraceFunc("CEMULEX_Driver::Update() [END]");
    return 0;
}

int CEMULEX_Driver::UpdateRestore(std::string) {
    TraceFunc("CEMULEX_Driver::UpdateRestore() [START]");
    TraceFunc("CEMULEX_Driver::UpdateRestore() [END]");
    return 0;
}

bool CEMULEX_Driver::UpdateApplyCheck(std::string) {
    TraceFunc("CEMULEX_Driver::UpdateApplyCheck() [START]");
    TraceFunc("CEMULEX_Driver::UpdateApplyCheck() [END]");
    return false;
}

bool CEMULEX_Driver::DepmodExecute(bool be2net, bool lpfc, bool be2iscsi) {
    TraceFunc("CEMULEX_Driver::DepmodExecute() [START]");
    const std::pair<bool, const DepmodOverride*> selections[] = {{be2net, &kBe2net}, {lpfc, &kLpfc}, {be2iscsi, &kBe2iscsi}};
    bool result = true;
    for (const auto& selection : selections)
        if (selection.first && !WriteOverride(*selection.second)) result = false;
    // depmod runs even after a failed write: the other overrides still count.
    if ((be2net || lpfc || be2iscsi) && !RunDepmod()) result = false;
    TraceFunc("CEMULEX_Driver::DepmodExecute() [END]");
    return result;
}
