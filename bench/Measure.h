#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <vector>

namespace kestrel::bench {

// One measurement of a command run as a child process.
struct Sample {
    bool ok = false;
    double seconds = 0;    // the child's own figure, or the wall time of the whole run
    double peakKb = 0;     // the child's peak resident memory
    double cpuSeconds = 0; // the child's user and system time: what a busy machine cannot inflate
    int64_t entries = 0;
    double residentKb = 0; // what the child still held when it had done, where it said so
};

// Runs command once. With childReportsTime the child prints "<seconds>
// <entries> [<resident KB>]" and that is the time; otherwise the wall time of
// the run counts and the child's output goes to outputFile (or is discarded).
Sample runCommand(const QStringList& command, bool childReportsTime,
                  const QString& outputFile = {});

// The median of runs runs (time and memory each).
Sample measureMedian(const QStringList& command, int runs, bool childReportsTime,
                     const QString& outputFile = {});

// A command to measure, as runCommand takes it.
struct Command {
    QStringList argv;
    bool childReportsTime = true;
    QString outputFile;
};

// The median of runs runs of every command, the commands taking turns run
// by run, so that a machine that slows down or speeds up meanwhile weighs on
// all of them alike. A command that fails once gives a sample that is not ok.
// beforeEach, when given, runs before every run of every command (to empty
// the caches); its failure fails the sample.
std::vector<Sample> measureInterleaved(const std::vector<Command>& commands, int runs,
                                       const std::function<bool()>& beforeEach = {});

// Runs command for its effect; throws when it fails.
void runOnce(const QStringList& command);

} // namespace kestrel::bench
