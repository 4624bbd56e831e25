// Entry of the agent; the gatherer is wired in as it is built.
int main() { return 0; }
