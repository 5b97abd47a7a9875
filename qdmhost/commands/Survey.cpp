#include "commands/Survey.h"

#include <sys/stat.h>

#include "adapters/InstallRoot.h"
#include "cli/Console.h"
#include "model/HostError.h"
#include "repository/ChannelConfig.h"
#include "store/UpdateLock.h"

namespace qdmcli {

namespace {

// A missing default repository is no repository; one that is not trusted is
// loaded with a warning, its versions unverified; one that cannot be loaded
// (missing, broken, hostile) is left out with a warning and its failure kept
// for the exit code.
Repository OptionalRepository(const Options& options) {
    struct stat info;
    if (options.repository.empty() && ::stat(options.RepositoryFolder().c_str(), &info) != 0) return Repository();
    try {
        return Repository::Load(
            options.RepositoryFolder(),
            TrustPolicy{options.HostFolder(), ReadChannel(options.HostFolder()), options.allowUnsigned, false});
    } catch (const HostError& error) {
        if (error.code() != kExitRepository && error.code() != kExitUntrusted) throw;
        Warn(std::string(error.what()) + "; the adapters are read without the repository");
        RepositoryTrust trust;
        trust.problem = error.reason().empty() ? DescribeExitCode(error.code()).name : error.reason();
        trust.message = error.what();
        trust.failureCode = error.code();
        return Repository(options.RepositoryFolder(), {}, trust);
    }
}

}  // namespace

ServerSurvey SurveyFromOptions(const Options& options, const SurveyScope& scope) {
    UseInstallRoot(options);
    UpdateLock lock(options.root, options.waitSeconds, UpdateLock::Mode::kRead);
    Repository repository = OptionalRepository(options);
    Session session(options);
    return SurveyServer(session.ports(), repository, scope, options.root);
}

}  // namespace qdmcli
