#include "commands/Survey.h"

#include "adapters/InstallRoot.h"

namespace qdmcli {

ServerSurvey SurveyFromOptions(const Options& options, const SurveyScope& scope) {
    UseInstallRoot(options);
    Repository repository = Repository::LoadOptional(options.RepositoryFolder(), !options.repository.empty(),
                                                     TrustPolicy{options.HostFolder(), options.allowUnsigned, false});
    Session session(options);
    return SurveyServer(session.ports(), repository, scope, options.root);
}

}  // namespace qdmcli
