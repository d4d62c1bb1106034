#include "Measure.h"

#include <QFile>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace kestrel::bench {

Sample runCommand(const QStringList& command, bool childReportsTime, const QString& outputFile) {
    std::vector<std::string> words;
    for (const QString& w : command)
        words.push_back(QFile::encodeName(w).toStdString());
    std::vector<char*> argv;
    for (auto& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);

    int pipeFds[2] = {-1, -1};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (childReportsTime) {
        if (::pipe(pipeFds) != 0)
            return {};
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    } else {
        const std::string out = outputFile.isEmpty() ? std::string("/dev/null")
                                                     : QFile::encodeName(outputFile).toStdString();
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        return {};
    std::string output;
    if (childReportsTime) {
        ::close(pipeFds[1]);
        char buffer[256];
        ssize_t n;
        while ((n = ::read(pipeFds[0], buffer, sizeof buffer)) > 0)
            output.append(buffer, size_t(n));
        ::close(pipeFds[0]);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(pid, &status, 0, &usage) != pid)
        return {};
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    Sample s;
    s.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    s.peakKb = double(usage.ru_maxrss);
    s.cpuSeconds = double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                   double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    s.seconds = wall;
    if (childReportsTime) {
        long long entries = 0;
        double seconds = 0, residentKb = 0;
        s.ok = s.ok &&
               std::sscanf(output.c_str(), "%lf %lld %lf", &seconds, &entries, &residentKb) >= 2;
        s.seconds = seconds;
        s.entries = entries;
        s.residentKb = residentKb;
    }
    return s;
}

static Sample median(const std::vector<Sample>& samples) {
    auto middle = [&](auto field) {
        std::vector<double> v;
        for (const Sample& s : samples)
            v.push_back(field(s));
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    Sample m = samples.front();
    m.seconds = middle([](const Sample& s) { return s.seconds; });
    m.peakKb = middle([](const Sample& s) { return s.peakKb; });
    m.cpuSeconds = middle([](const Sample& s) { return s.cpuSeconds; });
    m.residentKb = middle([](const Sample& s) { return s.residentKb; });
    return m;
}

std::vector<Sample> measureInterleaved(const std::vector<Command>& commands, int runs,
                                       const std::function<bool()>& beforeEach) {
    std::vector<std::vector<Sample>> samples(commands.size());
    std::vector<bool> failed(commands.size(), false);
    for (int run = 0; run < runs; ++run) {
        std::fprintf(stderr, "  run %d of %d\r", run + 1, runs);
        for (size_t k = 0; k < commands.size(); ++k) {
            if (failed[k])
                continue;
            if (beforeEach && !beforeEach()) {
                failed[k] = true;
                continue;
            }
            const Sample s =
                runCommand(commands[k].argv, commands[k].childReportsTime, commands[k].outputFile);
            if (!s.ok)
                failed[k] = true;
            else
                samples[k].push_back(s);
        }
    }
    std::fprintf(stderr, "\n");
    std::vector<Sample> result;
    for (size_t k = 0; k < commands.size(); ++k)
        result.push_back(failed[k] || samples[k].empty() ? Sample{} : median(samples[k]));
    return result;
}

Sample measureMedian(const QStringList& command, int runs, bool childReportsTime,
                     const QString& outputFile) {
    std::vector<Sample> samples;
    for (int i = 0; i < runs; ++i) {
        const Sample s = runCommand(command, childReportsTime, outputFile);
        if (!s.ok)
            return s;
        samples.push_back(s);
    }
    return median(samples);
}

void runOnce(const QStringList& command) {
    if (!runCommand(command, false).ok)
        throw std::runtime_error("failed: " + command.join(QLatin1Char(' ')).toStdString());
}

} // namespace kestrel::bench
