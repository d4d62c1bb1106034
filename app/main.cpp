// Kestrel: records folder trees as snapshots and compares them.
#include "shell/StartUp.h"

int main(int argc, char** argv) {
    return kestrel::shell::RunKestrel(argc, argv);
}
