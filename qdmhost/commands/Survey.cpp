#include "commands/Survey.h"

#include "adapters/InstallRoot.h"
#include "store/UpdateLock.h"

namespace qdmcli {

ServerSurvey SurveyFromOptions(const Options& options, const SurveyScope& scope) {
    UseInstallRoot(options);
    UpdateLock lock(options.root, options.waitSeconds, UpdateLock::Mode::kRead);
    Repository repository = Repository::LoadOptional(options.RepositoryFolder(), !options.repository.empty(),
                                                     TrustPolicy{options.HostFolder(), options.allowUnsigned, false});
    Session session(options);
    return SurveyServer(session.ports(), repository, scope, options.root);
}

}  // namespace qdmcli
