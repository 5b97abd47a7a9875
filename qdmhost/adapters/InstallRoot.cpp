#include "adapters/InstallRoot.h"

#include "FileUtility.h"
#include "TraceUtility.h"
#include "adapters/WorkArea.h"
#include "model/HostError.h"
#include "store/History.h"
#include "store/UpdateLock.h"

namespace qdmcli {

void UseInstallRoot(const Options& options) {
    if (!IsSafeHostPath(options.root))
        throw HostError(kExitUsage, "--root must be an absolute path of letters, digits, '/', '_', '-', '.'");
    RequirePath("--root", options.root, PathNeed::kFolder);
    // Named paths are checked before anything is read from the default ones.
    if (!options.repository.empty()) RequirePath("--repo", options.repository, PathNeed::kFolder);
    if (!options.provider.empty()) RequirePath("--provider", options.provider, PathNeed::kFile);
    CFileUtility::SetInstallPath(options.root);
    if (options.traceLevel >= 0) CTraceUtility::SetLevelMask(static_cast<unsigned>(options.traceLevel));
    PrepareWorkArea(options.root);
    UpdateLock::WhileNoUpdateRuns(options.root, [&] { RecoverInterruptedRuns(options.HostFolder()); });
}

}  // namespace qdmcli
