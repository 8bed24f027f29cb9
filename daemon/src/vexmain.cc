// Placeholder until the daemon's entry point is written.
int main() { return 0; }
