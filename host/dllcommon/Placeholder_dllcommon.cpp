// Placeholder until the host services land.
namespace qdm_placeholder_dllcommon { int Nothing() { return 0; } }
