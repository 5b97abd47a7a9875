// Placeholder until the CLI host lands.
int main() { return 1; }
