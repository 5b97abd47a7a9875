#pragma once
// The survey of the commands that only look (inventory, check, metrics).
#include "cli/Options.h"
#include "model/ServerSurvey.h"

namespace qdmcli {

// Prepares the install root, waits for a running update (--wait, else
// lock-busy), loads the repository as a looking command does (a missing
// default repository is none; an untrusted or unloadable one with a warning,
// kept in the survey's repository state), discovers the ports and surveys them.
// The survey's vendor and module pointers end with it. Throws HostError.
ServerSurvey SurveyFromOptions(const Options& options, const SurveyScope& scope);

}  // namespace qdmcli
