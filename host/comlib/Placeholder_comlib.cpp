// Placeholder until the host services land.
namespace qdm_placeholder_comlib { int Nothing() { return 0; } }
