// Placeholder until the CLI host lands.
namespace qdmhost_placeholder {
int Nothing() { return 0; }
}
