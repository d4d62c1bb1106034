// kestrel-fuzz-seeds FOLDER: writes the fuzzers' seed inputs into FOLDER.
#include "Seeds.h"

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: kestrel-fuzz-seeds FOLDER\n", stderr);
        return 2;
    }
    if (!kestrel::test::writeSeeds(QString::fromLocal8Bit(argv[1]))) {
        std::fprintf(stderr, "kestrel-fuzz-seeds: cannot write the seeds into %s\n", argv[1]);
        return 1;
    }
    return 0;
}
