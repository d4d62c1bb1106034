// Kestrel: records folder trees as snapshots and compares them.
#include "shell/StartUp.h"

#include <csignal>

int main(int argc, char** argv) {
    // A file size limit then fails the write that crosses it, which the save
    // reports, instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    return kestrel::shell::RunKestrel(argc, argv);
}
