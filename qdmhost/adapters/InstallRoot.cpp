#include "adapters/InstallRoot.h"

#include "FileUtility.h"
#include "TraceUtility.h"
#include "model/HostError.h"
#include "store/History.h"
#include "store/UpdateLock.h"

namespace qdmcli {

void UseInstallRoot(const Options& options) {
    if (!IsSafeHostPath(options.root))
        throw HostError(kExitUsage, "--root must be an absolute path of letters, digits, '/', '_', '-', '.'");
    CFileUtility::SetInstallPath(options.root);
    if (options.traceLevel >= 0) CTraceUtility::SetLevelMask(static_cast<unsigned>(options.traceLevel));
    if (!CFileUtility::CreateFolder(options.root + "/tmp"))
        throw HostError(kExitInternal, "cannot create " + options.root + "/tmp");
    UpdateLock::WhileNoUpdateRuns(options.root, [&] { RecoverInterruptedRuns(options.HostFolder()); });
}

}  // namespace qdmcli
