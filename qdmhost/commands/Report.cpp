// qdmhost report --out DIR: the provider's device configuration report.
#include <CLI/CLI.hpp>

#include "FileUtility.h"
#include "adapters/ConfigReport.h"
#include "adapters/InstallRoot.h"
#include "adapters/Session.h"
#include "cli/Command.h"
#include "model/HostError.h"
#include "render/JsonRenderer.h"
#include "render/TextRenderer.h"
#include "store/UpdateLock.h"

namespace qdmcli {

namespace {

Outcome<ReportSummary> RunReport(const Options& options) {
    UseInstallRoot(options);
    if (!IsSafeHostPath(options.outFolder))
        throw HostError(kExitUsage, "--out must be an absolute path of letters, digits, '/', '_', '-', '.'");
    if (!CFileUtility::CreateFolder(options.outFolder)) RequirePath("--out", options.outFolder, PathNeed::kFolder);
    RequirePath("--out", options.outFolder, PathNeed::kWritableFolder);
    UpdateLock lock(options.root, options.waitSeconds, UpdateLock::Mode::kRead);
    Session session(options);
    std::vector<const Port*> reported = WriteConfigReport(session.ports(), options.outFolder);
    return {{options.outFolder + "/" + kReportFile, reported.size()}};
}

void AddReportOptions(CLI::App& command, Options& options) {
    command.add_option("--out", options.outFolder, "folder for Emulex_FcConfigInfo.xml; made when missing")
        ->type_name("DIR")
        ->required();
}

}  // namespace

Command ReportCommand() {
    return MakeCommand<ReportSummary>("report", "write the device configuration report (XML)",
                                      {{"--root", "--provider", "--port", "--trace-level", "--json", "--wait"},
                                       {kExitLockBusy, kExitProvider, kExitNoDevice}},
                                      AddReportOptions, RunReport, ReportJson, ReportText);
}

}  // namespace qdmcli
