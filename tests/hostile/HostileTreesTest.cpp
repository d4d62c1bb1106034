// Trees that other users can write to, attacked as such a user attacks an
// administrator who runs Kestrel over them, often as root: a folder swapped
// for a link while the scan runs, links planted at every name Kestrel
// writes, FIFOs, sockets and devices, names made of every byte, and chains
// of folders deeper than any path. The attacks go through kestrel-cli, and
// through the engine where a scan must be repeated, timed or watched
// closely. None may read outside the tree, write outside its output, open a
// special file, or let a name change a row, a line or an argument.

#include "TestSupport.h"

#include "engine/compare/Compare.h"
#include "engine/model/FileSystemNames.h"
#include "settings/ExternalProgram.h"
#include "settings/IniFile.h"
#ifdef KESTREL_TEST_LAUNCHER
#include "shell/Launcher.h"
#endif

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <iostream>
#include <map>
#include <new>
#include <set>
#include <string>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace kestrel::engine;
using namespace kestrel::test;
using namespace Qt::StringLiterals;

namespace {

int chownEntry(const char* path, const struct stat*, int, struct FTW*) {
    return ::lchown(path, NobodyUser, NobodyUser);
}

// Where the tests run as root, a folder another user writes to: the user
// nobody's, with everything in it or alone.
void giveToNobody(const QString& folder, bool withContents = true) {
    if (!runningAsRoot())
        return;
    const QByteArray path = nativeBytes(folder);
    ASSERT_EQ(withContents ? ::nftw(path.constData(), chownEntry, 16, FTW_PHYS)
                           : ::chown(path.constData(), NobodyUser, NobodyUser),
              0);
}

// Another user (nobody, where the tests run as root) who keeps exchanging
// two names of a folder with renameat2, until stopped: a folder with a link,
// a file with a FIFO.
class Exchanger {
public:
    Exchanger(const QString& folder, const char* first, const char* second) {
        void* shared = ::mmap(nullptr, sizeof(Counter), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(shared, MAP_FAILED);
        m_exchanges = new (shared) Counter(0);
        const int fd = ::open(nativeBytes(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        EXPECT_GE(fd, 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            if (runningAsRoot() && !becomeNobody())
                ::_exit(3);
            for (;;)
                if (::renameat2(fd, first, fd, second, RENAME_EXCHANGE) == 0)
                    m_exchanges->fetch_add(1, std::memory_order_relaxed);
        }
        ::close(fd);
    }
    ~Exchanger() {
        stop();
        ::munmap(m_exchanges, sizeof(Counter));
    }
    // Stops the exchanges; how many there were.
    long stop() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
        return m_exchanges->load();
    }

private:
    using Counter = std::atomic<long>;
    Counter* m_exchanges = nullptr;
    pid_t m_pid = -1;
};

// A process waiting in open() to write into a FIFO, as a user's program
// waits for its reader. Kestrel must never be that reader: opening the FIFO
// would let the write through, and the writer dies of SIGPIPE when the
// reader has gone.
class WaitingWriter {
public:
    explicit WaitingWriter(const QString& fifo) : m_fifo(nativeBytes(fifo)) {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::close(ready[0]);
            (void)!::write(ready[1], "w", 1);
            const int fd = ::open(m_fifo.constData(), O_WRONLY);
            ::_exit(fd >= 0 && ::write(fd, "x", 1) == 1 ? 0 : 1);
        }
        ::close(ready[1]);
        char byte;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
        ::usleep(100 * 1000); // in its open by now
    }
    ~WaitingWriter() {
        // Let it finish.
        const int reader = ::open(m_fifo.constData(), O_RDONLY | O_NONBLOCK);
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
        ::close(reader);
    }
    bool stillWaiting() const {
        int status = 0;
        return ::waitpid(m_pid, &status, WNOHANG) == 0;
    }

private:
    QByteArray m_fifo;
    pid_t m_pid = -1;
};

// The names opened in a folder while this lives, as inotify reports them:
// every open of a file, FIFO or device there, whoever opens it.
class OpenWatch {
public:
    explicit OpenWatch(const QString& folder) {
        m_fd = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        EXPECT_GE(m_fd, 0);
        EXPECT_GE(::inotify_add_watch(m_fd, nativeBytes(folder).constData(), IN_OPEN), 0);
    }
    ~OpenWatch() { ::close(m_fd); }
    std::set<std::string> opened() {
        alignas(inotify_event) char buffer[65536];
        ssize_t n;
        while ((n = ::read(m_fd, buffer, sizeof buffer)) > 0) {
            for (ssize_t at = 0; at < n;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
                if (event->len > 0)
                    m_opened.emplace(event->name);
                at += ssize_t(sizeof(inotify_event) + event->len);
            }
        }
        return m_opened;
    }

private:
    int m_fd = -1;
    std::set<std::string> m_opened;
};

// Everything in a folder, links as links: each path with its kind, inode
// and contents (a link's target).
std::map<QString, QByteArray> folderState(const QString& folder) {
    std::map<QString, QByteArray> state;
    QDirIterator it(folder, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        struct stat st {};
        ::lstat(nativeBytes(path).constData(), &st);
        QByteArray& what = state[path];
        what =
            QByteArray::number(st.st_mode) + ':' + QByteArray::number(qulonglong(st.st_ino)) + ':';
        if (S_ISLNK(st.st_mode))
            what += QFile::encodeName(QFileInfo(path).symLinkTarget());
        else if (S_ISREG(st.st_mode))
            what += readBytes(path);
    }
    return state;
}

Snapshot scanned(const QString& root, int threads, ScanSettings settings = {}) {
    Snapshot s;
    settings.listingThreads = threads;
    EXPECT_TRUE(scanFolder(s, root, settings).ok);
    return s;
}

// An entry's path below the root in file system bytes, from the stored
// text a snapshot keeps.
std::string bytesOf(const Snapshot& s, int32_t i) {
    const std::string name = fileSystemBytes(s.name(i));
    const int32_t parent = s.entry(i).parent;
    return parent == 0 ? name : bytesOf(s, parent) + "/" + name;
}

using Rows = std::set<std::pair<QString, QString>>;

using CliRun = ProgramRun;

class HostileTreesTest : public testing::Test {
protected:
    // kestrel-cli with its settings in the test's own folder, under a limit
    // on open files when one is given.
    CliRun cli(const QStringList& arguments, rlim_t openFiles = RLIM_INFINITY) {
        std::function<void()> limit;
        if (openFiles != RLIM_INFINITY)
            limit = [openFiles] {
                const rlimit open{openFiles, openFiles};
                ::setrlimit(RLIMIT_NOFILE, &open);
            };
        return runProgram(QStringLiteral(KESTREL_CLI), arguments, home(), {}, limit, 120000);
    }
    // Python's csv or json reading of a file, as JSON text.
    QJsonArray python(const QString& script, const QStringList& arguments) {
        const ProgramRun run =
            runProgram(u"python3"_s, QStringList{u"-c"_s, script} + arguments, home());
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        return QJsonDocument::fromJson(run.out.toUtf8()).array();
    }
    QString home() const { return m_home.path(); }

    QTemporaryDir m_home;
};

// Another user keeps exchanging a folder of the tree with a link to a
// folder outside it (mode 700, theirs to link to but not to read) that has
// the same sub-folders. However the exchanges fall between the listings, no
// scan, with any number of threads, and no snapshot kestrel-cli saves may
// hold a name or a size from outside.
TEST_F(HostileTreesTest, AFolderSwappedForALinkNeverLeadsOutside) {
    TempTree t;
    t.chmod(QString(), 0755);
    constexpr int SecretSize = 4242;
    for (const char* folder : {"a/d1/d2/d3", "a/e1/e2", "a/f1"}) {
        t.file(u"tree/%1/inside.txt"_s.arg(QLatin1String(folder)), "1");
        t.file(u"outside/%1/secret.txt"_s.arg(QLatin1String(folder)), QByteArray(SecretSize, 's'));
    }
    t.symlink(u"tree/alink"_s, u"../outside/a"_s);
    t.chmod(u"outside"_s, 0700);
    const QString tree = t.root() + u"tree"_s;
    giveToNobody(tree);

    int leaks = 0;
    const auto fromOutside = [](const Snapshot& s) {
        int found = 0;
        for (int32_t i = 1; i <= s.entryCount; ++i)
            found +=
                s.name(i).find("secret") != std::string_view::npos || s.entry(i).size == SecretSize;
        return found;
    };
    Exchanger exchanger(tree, "a", "alink");
    for (int round = 0; round < 600; ++round)
        leaks += fromOutside(scanned(tree + u'/', round % 3));
    const QString saved = home() + u"/tree.#01"_s;
    for (int round = 0; round < 25; ++round) {
        const CliRun r = cli({u"snapshot"_s, tree, u"--output"_s, saved});
        // A folder that was a link when its turn came could not be read.
        ASSERT_TRUE(r.status == 0 || r.status == 3) << r.err.toStdString();
        leaks += readBytes(saved).contains("secret");
    }
    EXPECT_GT(exchanger.stop(), 0);
    EXPECT_EQ(leaks, 0) << "entries from outside the tree";
}

// Links planted at every name Kestrel writes, in a folder another user can
// write to: dangling, to a file and to a folder outside, each is refused
// with a message naming it and left as it was, and nothing outside is
// created or changed. A hard link is a file like any other: it is replaced
// by a new file, the file it shared its contents with untouched. Numbering
// counts a link of any kind as a number taken.
TEST_F(HostileTreesTest, NoWriterFollowsALinkPlantedAtItsName) {
    TempTree t;
    t.file(u"data/a.txt"_s, "a");
    const QString data = t.root() + u"data"_s;
    const QString snapshot = home() + u"/data.#01"_s;
    ASSERT_EQ(cli({u"snapshot"_s, data, u"--output"_s, snapshot}).status, 0);

    TempTree outsideDir, outDir;
    const QString outside = outsideDir.root(), out = outDir.root();
    ASSERT_TRUE(writeBytes(outside + u"victim"_s, "victim's own"));
    ASSERT_TRUE(QDir().mkdir(outside + u"folder"_s));
    const auto before = folderState(outside);

    struct Plant {
        const char* kind;
        QString target;
        bool hard = false;
    };
    const Plant plants[] = {{"dangling", outside + u"absent"_s},
                            {"to a file", outside + u"victim"_s},
                            {"to a folder", outside + u"folder"_s},
                            {"hard", outside + u"victim"_s, true}};
    const auto plant = [](const Plant& p, const QString& at) {
        QFile::remove(at);
        const QByteArray target = nativeBytes(p.target), name = nativeBytes(at);
        ASSERT_EQ(p.hard ? ::link(target.constData(), name.constData())
                         : ::symlink(target.constData(), name.constData()),
                  0);
    };
    const QString planted = out + u"planted"_s;
    const QList<QStringList> writers = {{u"snapshot"_s, data, u"--output"_s, planted},
                                        {u"convert"_s, snapshot, planted},
                                        {u"export"_s, snapshot, u"--output"_s, planted},
                                        {u"report"_s, snapshot, u"--pdf"_s, planted}};
    for (const Plant& p : plants) {
        SCOPED_TRACE(p.kind);
        for (const QStringList& writer : writers) {
            SCOPED_TRACE(writer.first().toStdString());
            plant(p, planted);
            const CliRun r = cli(writer);
            if (p.hard) {
                EXPECT_EQ(r.status, 0) << r.err.toStdString();
            } else {
                EXPECT_EQ(r.status, 2);
                EXPECT_TRUE(r.err.contains(planted + u" is a symbolic link"_s))
                    << r.err.toStdString();
                EXPECT_EQ(QFileInfo(planted).symLinkTarget(), p.target);
            }
            EXPECT_EQ(folderState(outside), before);
        }
        // Kestrel.ini reports no failure to the user; the write is refused all
        // the same.
        plant(p, out + u"Kestrel.ini"_s);
        EXPECT_EQ(kestrel::settings::IniFile(out + u"Kestrel.ini"_s)
                      .writeString(u"Main"_s, u"Top"_s, u"1"_s),
                  p.hard);
        EXPECT_EQ(folderState(outside), before);
    }

    // Numbered: every kind of link takes its number, the snapshot goes to
    // the next, and a link at the ninety-ninth fills the series.
    for (int n = 0; n < 4; ++n)
        plant(plants[n], out + u"data.#0%1"_s.arg(n + 1));
    CliRun r = cli({u"snapshot"_s, data, u"--dir"_s, out});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), out + u"data.#05"_s);
    plant(plants[0], out + u"data.#99"_s);
    r = cli({u"snapshot"_s, data, u"--dir"_s, out});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err.trimmed(),
              u"Error Writing Snapshot: "_s + out + u"data.#99 exists: the series is full"_s);
    EXPECT_EQ(folderState(outside), before);
    // No refusal left a file of its own behind.
    EXPECT_EQ(folderEntries(out),
              (QStringList{u"Kestrel.ini"_s, u"data.#01"_s, u"data.#02"_s, u"data.#03"_s,
                           u"data.#04"_s, u"data.#05"_s, u"data.#05.meta"_s, u"data.#99"_s,
                           u"planted"_s, u"planted.meta"_s}));

    // The snapshot a save learns its size from, the previous number or the
    // name it replaces, is never a link: one to a FIFO with a writer waiting
    // leaves the writer waiting.
    TempTree seriesDir;
    const QString series = seriesDir.root();
    const QString fifo = outside + u"fifo"_s;
    ASSERT_EQ(::mkfifo(nativeBytes(fifo).constData(), 0600), 0);
    WaitingWriter writer(fifo);
    plant(Plant{"to a FIFO", fifo}, series + u"data.#01"_s);
    r = cli({u"snapshot"_s, data, u"--dir"_s, series});
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.trimmed(), series + u"data.#02"_s);
    r = cli({u"snapshot"_s, data, u"--output"_s, series + u"data.#01"_s});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(writer.stillWaiting());
}

// A FIFO with a writer waiting in open(), a socket and, where the tests
// may make them, a character and a block device, in the folder whose
// versions are read: recorded as system items, and never opened, by the
// engine or by kestrel-cli, even while another user keeps exchanging a
// version-bearing file with the FIFO.
TEST_F(HostileTreesTest, SpecialFilesAreRecordedButNeverOpened) {
    TempTree t;
    t.chmod(QString(), 0755);
    t.file(u"bin/tool.exe"_s, makeImage(false, (5u << 16) | 1, 2600u << 16).contents());
    t.fifo(u"bin/pipe"_s);
    const QString bin = t.root() + u"bin"_s;
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray socketPath = nativeBytes(bin + u"/socket"_s);
    ASSERT_LT(size_t(socketPath.size()), sizeof address.sun_path);
    std::memcpy(address.sun_path, socketPath.constData(), size_t(socketPath.size()));
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(listener, 1), 0);
    std::vector<std::string> special = {"pipe", "socket"};
    const bool devices =
        ::mknod(nativeBytes(bin + u"/null"_s).constData(), S_IFCHR | 0666, makedev(1, 3)) == 0 &&
        ::mknod(nativeBytes(bin + u"/loop"_s).constData(), S_IFBLK | 0600, makedev(7, 0)) == 0;
    if (devices)
        special.insert(special.end(), {"null", "loop"});
    else
        std::cerr << "Devices left out: mknod failed (" << std::strerror(errno) << ")\n";
    giveToNobody(bin, false);

    WaitingWriter writer(bin + u"/pipe"_s);
    OpenWatch watch(bin);
    ScanSettings versions;
    versions.versionFolder = bin;
    const Snapshot s = scanned(bin + u'/', 0, versions);
    const CliRun saved =
        cli({u"snapshot"_s, bin, u"--versions"_s, bin, u"--output"_s, home() + u"/bin.#01"_s});
    ASSERT_EQ(saved.status, 0) << saved.err.toStdString();
    const QStringList listed = cli({u"list"_s, home() + u"/bin.#01"_s}).lines();

    EXPECT_EQ(s.entryCount, int32_t(special.size()) + 1);
    for (int32_t i = 1; i <= s.entryCount; ++i) {
        const std::string name(s.name(i));
        const bool isSpecial = name != "tool.exe";
        SCOPED_TRACE(name);
        EXPECT_EQ(s.entry(i).attributes, isSpecial ? Attribute::System : Attribute::Normal);
        EXPECT_EQ(s.version(i), isSpecial ? "" : "5.01.2600.00");
        const QRegularExpression line(
            u"^%1\t.*\t%2\t"_s.arg(QRegularExpression::escape(QString::fromStdString(name)),
                                   isSpecial ? u"Sys"_s : u"Norm"_s));
        EXPECT_EQ(listed.filter(line).size(), 1) << listed.join(u'\n').toStdString();
    }
    std::set<std::string> opened = watch.opened();
    EXPECT_TRUE(opened.count("tool.exe")) << "the watch sees the versions read";
    for (const std::string& name : special)
        EXPECT_FALSE(opened.count(name)) << name << " was opened";
    EXPECT_TRUE(writer.stillWaiting()) << "the writer was let through";

    // A file that lstat showed as regular, swapped for the FIFO before it
    // is opened.
    Exchanger exchanger(bin, "tool.exe", "pipe");
    for (int round = 0; round < 400 && writer.stillWaiting(); ++round)
        scanned(bin + u'/', round % 2, versions);
    EXPECT_GT(exchanger.stop(), 0);
    EXPECT_TRUE(writer.stillWaiting()) << "the writer was let through by a swapped name";
    ::close(listener);
}

// Names an attacker picks. In the top folder: every byte but '/' alone ('.'
// cannot be a name) and the names chosen to break something: bytes that are
// not UTF-8, look-alikes, the line-break mark itself, backslashes and what
// looks like their escapes, quotes, separators, line breaks, an export row
// forged whole, leading dashes, the external program's placeholders, shell
// and terminal syntax. In a folder whose own name is such a name: every byte
// between two letters.
struct HostileNames {
    std::vector<std::string> top;
    std::string folder = "sub, \"\\x41\"\n%2 -o";
    std::vector<std::string> inner;
};

HostileNames hostileNames() {
    HostileNames n;
    // The chosen names, each ended by '/', which no name can hold.
    const char* const chosen =
        "caf\xC3\xA9/cafe\xCC\x81/caf\xE9/\xC0\xAF/\xED\xA0\x80/\xF4\x90\x80\x80/"
        "\xE2\x82/\xEF\xBB\xBF\x62om/\xE2\x80\xA8/\xC2\x85/\xE2\x84\xAA/\xC3\x9F/SS/ss/"
        "a\xE2\x8F\x8E\x62/a\nb/\\x41/\\\\x41/\\xZZ/\\x4/\\\\/x\\/a\\b/\\n/\"\"/"
        "say \"hi\"/\"quoted\"/'single'/ lead/trail /a,b/a\tb/two words/\r\n/line\nbreak/"
        "cr\rname/-rf/--output=x/--/%1/%2/a%2 -o~pwned/%1%2 %1/%%1/\"%1\" b/\x1B[31mred/"
        "$(touch pwned)/`id`/=1+1/.hidden/..twodots/.../";
    std::set<std::string> top;
    for (const QByteArray& name : QByteArray(chosen).split('/'))
        if (!name.isEmpty())
            top.insert(name.toStdString());
    top.insert("\",0,,1 Jan 2024 00:00:00,Norm,\r\n\"ghost.exe"); // a row forged whole
    for (int b = 1; b < 256; ++b) {
        if (b == '/')
            continue;
        const std::string byte(1, char(b));
        if (b != '.')
            top.insert(byte);
        n.inner.push_back("x" + byte + "y");
    }
    n.top.assign(top.begin(), top.end());
    return n;
}

// The hostile names, made in a folder "names" of a tree of their own.
class HostileNamesTest : public HostileTreesTest {
protected:
    void SetUp() override { make(u"names"_s); }
    void make(const QString& folder) {
        const std::string root = nativeBytes(m_tree.root() + folder).toStdString() + "/";
        ASSERT_EQ(::mkdir(root.c_str(), 0755), 0);
        ASSERT_EQ(::mkdir((root + m_names.folder).c_str(), 0755), 0);
        for (const std::string& path : onDisk()) {
            if (path == m_names.folder)
                continue;
            const int fd = ::open((root + path).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0) << path;
            ::close(fd);
        }
    }
    QString root() const { return m_tree.root() + u"names"_s; }
    // Every path below the root, in bytes: the files and the folder.
    std::set<std::string> onDisk() const {
        std::set<std::string> paths(m_names.top.begin(), m_names.top.end());
        for (const std::string& name : m_names.inner)
            paths.insert(m_names.folder + "/" + name);
        paths.insert(m_names.folder);
        return paths;
    }
    // Each entry as name and folder (the folder's own with "/"), in stored
    // text, as the file list shows them; the files alone when asked.
    Rows rows(bool filesOnly = false) const {
        Rows rows;
        const QString folder = stored(m_names.folder);
        for (const std::string& name : m_names.top)
            rows.emplace(stored(name), QString());
        for (const std::string& name : m_names.inner)
            rows.emplace(stored(name), folder + u'/');
        if (!filesOnly)
            rows.emplace(folder, QString());
        return rows;
    }
    // Converted behind a blank: Qt would take a leading U+FEFF for a
    // byte-order mark and drop it.
    static QString stored(const std::string& bytes) {
        std::string scratch;
        const std::string text = " " + std::string(storedName(bytes, scratch));
        return QString::fromUtf8(text.data(), qsizetype(text.size())).mid(1);
    }

    TempTree m_tree;
    HostileNames m_names = hostileNames();
};

// Scanned, each entry's stored name gives back its bytes; saved by
// kestrel-cli and loaded, the snapshot is the scan's; compared with the
// folder, nothing differs; listed, each entry is one line whose path,
// unescaped, is the entry's, and nothing in a line acts on a terminal.
TEST_F(HostileNamesTest, NamesKeepTheirBytesThroughScanSaveLoadCompareAndList) {
    const Snapshot s = scanned(root() + u'/', 2);
    expectSoundSnapshot(s);
    std::set<std::string> recorded;
    for (int32_t i = 1; i <= s.entryCount; ++i)
        recorded.insert(bytesOf(s, i));
    EXPECT_EQ(recorded, onDisk());

    const QString saved = home() + u"/names.#01"_s;
    ASSERT_EQ(cli({u"snapshot"_s, root(), u"--output"_s, saved}).status, 0);
    Snapshot loaded;
    ASSERT_TRUE(loadSnapshotFrom(loaded, saved).ok);
    expectSameSnapshot(s, loaded);
    const CliRun compared = cli({u"compare"_s, saved, root()});
    EXPECT_EQ(compared.status, 0);
    EXPECT_EQ(compared.out, QString());

    const CliRun r = cli({u"list"_s, saved});
    std::set<std::string> listed;
    for (const QString& line : r.lines()) {
        // \t, \n and \r stand for the characters; the rest is stored text,
        // whose \\ and \xHH give back their bytes.
        QString path;
        const QString field = line.section(u'\t', 0, 0);
        for (qsizetype k = 0; k < field.size(); ++k) {
            const QChar next = field[k] == u'\\' && k + 1 < field.size() ? field[++k] : QChar();
            path += next.isNull()  ? QString(field[k])
                    : next == u't' ? u"\t"_s
                    : next == u'n' ? u"\n"_s
                    : next == u'r' ? u"\r"_s
                                   : QString(u'\\') + next;
        }
        if (path.endsWith(u'/'))
            path.chop(1);
        listed.insert(fileSystemBytes(path.toStdString()));
    }
    EXPECT_EQ(int(r.lines().size()), s.entryCount);
    EXPECT_EQ(listed, onDisk());
    for (const QChar c : r.out) {
        const char16_t u = c.unicode();
        if (u != u'\t' && u != u'\n') {
            ASSERT_TRUE(u >= 0x20 && (u < 0x7F || u >= 0xA0)) << "control character " << int(u);
        }
    }
}

// Exported with and without quotes, with a comma, a tab or a blank between
// the values, every row read back with Python's csv module is one entry's
// name and folder as the file list shows them, less the leading blanks the
// export takes off every grid value; a comparison with every file grown,
// written as CSV, JSON lines and JSON, gives each file once.
TEST_F(HostileNamesTest, ExportAndComparisonRowsReadBackExactly) {
    if (QStandardPaths::findExecutable(u"python3"_s).isEmpty())
        GTEST_SKIP() << "python3 is not installed";
    // Python's reading of a comparison (change and path) or of an export's
    // csv with the given delimiter; the rows and how many there were. A row
    // split or forged by a name shows as its fields.
    const auto readBack = [this](const QString& file, const QString& kind) {
        const QString script = u"import csv, json, sys\n"
                               "kind = sys.argv[2]\n"
                               "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
                               "    if kind == 'csv': rows = list(csv.DictReader(f))\n"
                               "    elif kind == 'json': rows = json.load(f)['changes']\n"
                               "    elif kind == 'jsonl': rows = list(map(json.loads, f))[1:]\n"
                               "    else: rows = list(csv.reader(f, delimiter=kind))\n"
                               "if kind in ('csv', 'json', 'jsonl'):\n"
                               "    rows = [[r['change'], r['path']] for r in rows]\n"
                               "print(json.dumps(rows))"_s;
        Rows read;
        int count = 0;
        for (const QJsonValue& row : python(script, {file, kind})) {
            const QJsonArray fields = row.toArray();
            read.emplace(fields.size() == 2 ? fields.at(0).toString()
                                            : QString::fromUtf8(QJsonDocument(fields).toJson(
                                                  QJsonDocument::Compact)),
                         fields.at(1).toString());
            ++count;
        }
        return std::pair(read, count);
    };
    const QString saved = home() + u"/names.#01"_s, written = home() + u"/written"_s;
    ASSERT_EQ(cli({u"snapshot"_s, root(), u"--output"_s, saved}).status, 0);
    Rows shown;
    for (auto [name, folder] : rows()) {
        while (name.startsWith(u' '))
            name.remove(0, 1);
        shown.emplace(name, folder);
    }
    for (const auto& [separator, delimiter] :
         {std::pair{u"comma"_s, u","_s}, {u"tab"_s, u"\t"_s}, {u"space"_s, u" "_s}})
        for (const bool quotes : {false, true}) {
            SCOPED_TRACE(separator.toStdString() + (quotes ? " quoted" : ""));
            QStringList arguments{
                u"export"_s,      saved,     u"--subfolders"_s, u"--fields"_s, u"name,folder"_s,
                u"--separator"_s, separator, u"--output"_s,     written};
            if (quotes)
                arguments << u"--quotes"_s;
            ASSERT_EQ(cli(arguments).status, 0);
            EXPECT_EQ(readBack(written, delimiter), std::pair(shown, int(shown.size())));
        }

    for (const std::string& path : onDisk())
        if (path != m_names.folder)
            m_tree.file(nativeText("names/" + path), "grown");
    Rows expected;
    for (const auto& [name, inFolder] : rows(true))
        expected.emplace(u"~"_s, inFolder + name);
    for (const QString& format : {u"csv"_s, u"jsonl"_s, u"json"_s}) {
        SCOPED_TRACE(format.toStdString());
        const CliRun r = cli({u"compare"_s, saved, root(), u"--format"_s, format});
        EXPECT_EQ(r.status, 1) << r.err.toStdString();
        ASSERT_TRUE(writeBytes(written, r.out.toUtf8()));
        EXPECT_EQ(readBack(written, format), std::pair(expected, int(expected.size())));
    }
}

#ifdef KESTREL_TEST_LAUNCHER
// A file and its counterpart in a second tree of the same names, handed to
// the external program as the window hands them (the entry's path, the
// matched entry's path, through the launcher): a recording program found on
// PATH receives each path's exact bytes as one argument, whatever the name
// holds.
TEST_F(HostileNamesTest, TheExternalProgramGetsEachPathAsOneArgument) {
    make(u"other"_s);
    Snapshot first = scanned(root() + u'/', 2);
    Snapshot second = scanned(m_tree.root() + u"other/"_s, 2);
    ProgressMeter meter;
    ASSERT_TRUE(CompareSnapshot(first, 1, second, 1, true, {}, meter).ok);

    QTemporaryDir bin, records;
    const QString recorder = bin.filePath(u"kestrel-record"_s);
    const QByteArray into = "'" + nativeBytes(records.path()) + "/'$n";
    // The template's first word numbers the launch; the paths follow.
    ASSERT_TRUE(writeBytes(recorder, "#!/bin/sh\nn=$1\nshift\nprintf '%s\\0' \"$@\" > " + into +
                                         ".args\n: > " + into + ".done\n"));
    ASSERT_EQ(::chmod(nativeBytes(recorder).constData(), 0755), 0);
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", nativeBytes(bin.path()) + ":" + path);
    std::vector<UserMessage> failures;
    kestrel::shell::Launcher launcher(
        [&](const UserMessage& message) { failures.push_back(message); });
    std::vector<std::string> expected;
    for (int32_t i = 1; i <= first.entryCount; ++i) {
        const int32_t match = first.entry(i).match;
        if (first.entry(i).isFolder() || match <= 0)
            continue;
        const kestrel::settings::CustomLaunch l = kestrel::settings::buildCustomLaunch(
            u"kestrel-record"_s, QString::number(expected.size()) + u" %1 %2"_s,
            first.header.rootFolder + first.relativePath(i),
            second.header.rootFolder + second.relativePath(match));
        EXPECT_TRUE(launcher.StartProgram(l.program, l.arguments, l.folder));
        expected.push_back(nativeBytes(root()).toStdString() + "/" + bytesOf(first, i) + '\0' +
                           nativeBytes(m_tree.root()).toStdString() + "other/" +
                           bytesOf(second, match) + '\0');
    }
    qputenv("PATH", path);
    EXPECT_TRUE(failures.empty());
    EXPECT_EQ(expected.size(), m_names.top.size() + m_names.inner.size());

    // The programs run by themselves: wait for the last record.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (QDir(records.path()).entryList({u"*.done"_s}).size() < qsizetype(expected.size()) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    for (size_t launch = 0; launch < expected.size(); ++launch)
        EXPECT_EQ(readBytes(records.filePath(u"%1.args"_s.arg(launch))).toStdString(),
                  expected[launch]);
}
#endif

// Makes a chain of folders, depth levels deep, by descriptors (the paths
// soon pass what the system takes whole); level k holds the chain's next
// folder "c<k>" and the given side folders, each holding one file; the
// deepest folder holds the file "bottom".
void makeChain(const TempTree& t, int depth, const std::vector<std::string>& sides) {
    int dir = ::open(nativeBytes(t.root()).constData(), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dir, 0);
    for (int k = 0; k < depth; ++k) {
        const std::string level = std::to_string(k);
        for (const std::string& side : sides) {
            ASSERT_EQ(::mkdirat(dir, (side + level).c_str(), 0755), 0);
            const std::string file = side + level + "/f";
            ASSERT_EQ(::close(::openat(dir, file.c_str(), O_CREAT | O_WRONLY, 0644)), 0);
        }
        ASSERT_EQ(::mkdirat(dir, ("c" + level).c_str(), 0755), 0);
        const int next = ::openat(dir, ("c" + level).c_str(), O_RDONLY | O_DIRECTORY);
        ::close(dir);
        ASSERT_GE(next, 0);
        dir = next;
    }
    ASSERT_EQ(::close(::openat(dir, "bottom", O_CREAT | O_WRONLY, 0644)), 0);
    ::close(dir);
}

// The path of the chain's folder at a depth: "c0/c1/.../c<depth-1>".
QString chainPath(int depth) {
    QStringList levels;
    for (int k = 0; k < depth; ++k)
        levels << u"c%1"_s.arg(k);
    return levels.join(u'/');
}

// Qt would remove a chain by its long paths: taken down from the top.
void removeChain(const TempTree& t) {
    std::system(("rm -rf '" + nativeBytes(t.root()) + "c0'").constData());
}

// A chain of 8,000 folders, each opened from the one before (the bench holds
// the cost linear in the depth): the scan records it whole with and without
// workers, and kestrel-cli saves and compares it whole under a limit of 32
// open files, and finds the deepest folder by its path. Beside
// a chain of 2,000 with three side folders a level, listed before or after
// the chain as the file system orders them, and a folder of 20,000 files,
// folders waiting their turn never run the process out of descriptors
// either.
TEST_F(HostileTreesTest, DeepChainsAndWideFoldersWithinTheOpenFileLimit) {
    TempTree deep(TempTree::InMemory);
    constexpr int Depth = 8000;
    makeChain(deep, Depth, {});
    for (int threads : {0, 2}) {
        SCOPED_TRACE(threads);
        const Snapshot s = scanned(deep.root(), threads);
        EXPECT_EQ(s.entryCount, Depth + 1);
        EXPECT_EQ(s.unreadableFolders, 0);
    }
    constexpr rlim_t fewFiles = 32;
    const QString saved = home() + u"/deep.#01"_s;
    CliRun r = cli({u"snapshot"_s, deep.root(), u"--output"_s, saved}, fewFiles);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    r = cli({u"compare"_s, saved, deep.root()}, fewFiles);
    EXPECT_EQ(r.status, 0) << r.err.toStdString();
    // The deepest file, from the top down.
    r = cli({u"export"_s, saved, u"--folder"_s, chainPath(Depth), u"--fields"_s, u"name"_s});
    EXPECT_EQ(r.out, u"bottom\r\n"_s) << r.err.toStdString();
    removeChain(deep);

    TempTree wide(TempTree::InMemory);
    constexpr int SideDepth = 2000, Files = 20000;
    makeChain(wide, SideDepth, {"x", "y", "z"});
    wide.folder(u"flat"_s);
    const std::string flat = nativeBytes(wide.root()).toStdString() + "flat/";
    for (int i = 0; i < Files; ++i)
        ASSERT_EQ(::close(::open((flat + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0644)), 0);
    r = cli({u"snapshot"_s, wide.root(), u"--output"_s, home() + u"/wide.#01"_s}, fewFiles);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    r = cli({u"info"_s, home() + u"/wide.#01"_s});
    EXPECT_TRUE(r.out.contains(u"Files: %1\n"_s.arg(SideDepth * 3 + 1 + Files)))
        << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(u"Folders: %1\n"_s.arg(SideDepth * 4 + 1))) << r.out.toStdString();
    removeChain(wide);
}

} // namespace
