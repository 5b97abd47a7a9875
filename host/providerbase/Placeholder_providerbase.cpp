// Placeholder until the host services land.
namespace qdm_placeholder_providerbase { int Nothing() { return 0; } }
