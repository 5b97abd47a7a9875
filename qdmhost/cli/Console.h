#pragma once
// What qdmhost says while it works: progress and operator messages on
// standard error (standard output is kept for the command's result), and the
// host hooks that route pauses and messages here.
#include <string>
#include <vector>

namespace qdmcli {

// Installs the sleep hook, the operator-message sink and the ShowMessage
// sink. With virtual time pauses are announced but not waited and
// time-outs shrink a hundredfold (tests).
void InstallHostHooks(bool virtualTime);
// Restores the host's own behaviour (before the provider is unloaded).
void RemoveHostHooks();
// True when QDMHOST_VIRTUAL_TIME is set to a non-empty value other than "0".
bool VirtualTimeRequested();

// "<port> <step>": what a pause is for ("waiting 30s for <port> <step>").
void SetActivity(const std::string& activity);
std::string CurrentActivity();
// One progress line on standard error, stamped with the run's elapsed time.
void Progress(const std::string& text);
void Warn(const std::string& text);
double ElapsedSeconds();

struct OperatorMessage {
    std::string id;
    std::string text;
};
// The operator messages received since the last call.
std::vector<OperatorMessage> TakeOperatorMessages();

}  // namespace qdmcli
