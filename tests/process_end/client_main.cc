#include "tests/process_end/client.h"

int main(int, char** argv) { RunClient(argv[1]); }
