#include "DetachedProcess.h"

#include "engine/model/FileSystemNames.h"

#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

extern char** environ;

namespace kestrel::shell {

int startDetachedProcess(const QString& program, const QStringList& arguments,
                         const QString& folder) {
    std::vector<QByteArray> words;
    words.reserve(size_t(arguments.size()) + 1);
    words.push_back(engine::nativeBytes(program));
    for (const QString& argument : arguments)
        words.push_back(engine::nativeBytes(argument));
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const QByteArray workingFolder = engine::nativeBytes(folder);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!workingFolder.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, workingFolder.constData());
    // A session of its own and no signal blocked: the program does not share
    // the terminal's signals with Kestrel, nor the mask of the thread that
    // started it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        return error;
    // Whenever it ends, its exit is collected, so that it leaves no zombie
    // behind while Kestrel runs on.
    std::thread([pid] {
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return 0;
}

} // namespace kestrel::shell
