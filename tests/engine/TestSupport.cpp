#include "TestSupport.h"

#include "engine/scan/Scan.h"

#include "engine/model/FileSystemNames.h"
#include "engine/model/RingWalk.h"
#include "engine/support/OleDate.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kestrel::test {

// Paths are native text: a name's bytes that are not UTF-8 reach the system
// as they are, where Qt's file classes would replace them.
using engine::nativeBytes;

static int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

// Every folder of the path, made where missing.
static bool makeFolders(const QByteArray& path) {
    for (qsizetype at = path.indexOf('/', 1);; at = path.indexOf('/', at + 1)) {
        const QByteArray part = at < 0 ? path : path.left(at);
        if (::mkdir(part.constData(), 0777) != 0 && errno != EEXIST)
            return false;
        if (at < 0)
            return true;
    }
}

static QString temporaryFolderTemplate(TempTree::Storage storage) {
    const bool memory = storage == TempTree::InMemory && ::access("/dev/shm", W_OK | X_OK) == 0;
    return (memory ? QStringLiteral("/dev/shm") : QDir::tempPath()) +
           QStringLiteral("/kestrel-test-XXXXXX");
}

TempTree::TempTree(Storage storage) : m_dir(temporaryFolderTemplate(storage)) {
    EXPECT_TRUE(m_dir.isValid());
}

TempTree::~TempTree() {
    // Qt cannot name what is not UTF-8: the tree goes by its bytes first.
    ::nftw(nativeBytes(m_dir.path()).constData(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

QString TempTree::root() const {
    return m_dir.path() + QLatin1Char('/');
}

void TempTree::folder(const QString& path) {
    ASSERT_TRUE(makeFolders(nativeBytes(root() + path)));
}

void TempTree::file(const QString& path, const QByteArray& contents) {
    const QByteArray bytes = nativeBytes(root() + path);
    makeFolders(bytes.left(bytes.lastIndexOf('/')));
    const int fd = ::open(bytes.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    ASSERT_GE(fd, 0) << path.toStdString();
    const bool written =
        ::write(fd, contents.constData(), size_t(contents.size())) == contents.size();
    ::close(fd);
    ASSERT_TRUE(written) << path.toStdString();
}

void TempTree::file(const QString& path, const QByteArray& contents, time_t modified) {
    file(path, contents);
    touch(path, modified);
}

void TempTree::sparseFile(const QString& path, int64_t size) {
    file(path);
    ASSERT_EQ(::truncate(nativeBytes(root() + path).constData(), size), 0);
}

void TempTree::symlink(const QString& path, const QString& target) {
    ASSERT_EQ(::symlink(nativeBytes(target).constData(), nativeBytes(root() + path).constData()),
              0);
}

void TempTree::fifo(const QString& path) {
    ASSERT_EQ(::mkfifo(nativeBytes(root() + path).constData(), 0600), 0);
}

void TempTree::touch(const QString& path, time_t when) {
    struct timespec times[2] = {{when, 0}, {when, 0}};
    ASSERT_EQ(
        ::utimensat(AT_FDCWD, nativeBytes(root() + path).constData(), times, AT_SYMLINK_NOFOLLOW),
        0);
}

void TempTree::chmod(const QString& path, int mode) {
    ASSERT_EQ(::chmod(nativeBytes(root() + path).constData(), mode_t(mode)), 0);
}

void expectSameSnapshot(const engine::Snapshot& a, const engine::Snapshot& b) {
    const auto header = [](const engine::SnapshotHeader& h) {
        return std::tuple(h.rootFolder, h.recurse, h.hidden, h.versions);
    };
    EXPECT_EQ(header(a.header), header(b.header));
    ASSERT_EQ(countsOf(a), countsOf(b));
    for (int32_t i = 0; i <= a.entryCount; ++i) {
        SCOPED_TRACE(testing::Message() << "entry " << i << " " << a.name(i));
        EntryFields x = fieldsOf(a, i), y = fieldsOf(b, i);
        // Entry 0's count differs after a load: it holds the file's capacity.
        if (i == 0)
            std::get<3>(x) = std::get<3>(y);
        EXPECT_EQ(x, y);
        EXPECT_EQ(std::pair(a.entry(i).status, a.entry(i).match),
                  std::pair(b.entry(i).status, b.entry(i).match));
    }
}

void expectSoundSnapshot(const engine::Snapshot& s) {
    using engine::SnapshotEntry;
    EXPECT_EQ(s.entryCount, s.fileCount + s.folderCount);
    EXPECT_EQ(s.entry(0).count, s.entryCount);
    ASSERT_LE(s.entryCount, s.capacity());
    std::vector<int32_t> reached;
    try {
        engine::walkEntries(s, [&](int32_t i, int) { reached.push_back(i); });
    } catch (const engine::RuntimeError& e) {
        FAIL() << "a ring does not close: " << e.what();
    }
    ASSERT_EQ(int32_t(reached.size()), s.entryCount);
    for (int32_t k = 0; k < s.entryCount; ++k)
        ASSERT_EQ(reached[size_t(k)], k + 1) << "table order is depth-first order";
    double total = 0;
    int32_t files = 0;
    for (int32_t i = 1; i <= s.entryCount; ++i) {
        const SnapshotEntry& e = s.entry(i);
        SCOPED_TRACE(testing::Message() << "entry " << i << " " << s.name(i));
        EXPECT_TRUE(e.parent >= 0 && e.parent < i &&
                    (e.parent == 0 || s.entry(e.parent).isFolder()));
        if (!e.isFolder()) {
            total += e.size;
            ++files;
            continue;
        }
        EXPECT_EQ(e.size, 0);
        if (i == 1)
            continue;
        int32_t beneath = 0;
        for (int32_t j = i + 1; j <= s.entryCount; ++j) {
            int32_t p = s.entry(j).parent;
            while (p > i)
                p = s.entry(p).parent;
            if (p != i)
                break;
            ++beneath;
        }
        EXPECT_EQ(e.count, beneath);
    }
    EXPECT_EQ(files, s.fileCount);
    EXPECT_EQ(total, s.totalSize);
}

void expectMessage(const std::optional<engine::UserMessage>& message, const QString& title,
                   const QString& text, engine::MessageIcon icon) {
    ASSERT_TRUE(message);
    EXPECT_EQ(std::tuple(message->title, message->text, message->icon),
              std::tuple(title, text, icon));
}

std::vector<int32_t> ringOf(const engine::Snapshot& s, int32_t first) {
    std::vector<int32_t> members;
    int32_t i = first;
    do {
        members.push_back(i);
        i = s.entry(i).nextSibling;
    } while (i != first && members.size() <= size_t(s.entryCount) + 1);
    return members;
}

EntryFields fieldsOf(const engine::Snapshot& s, int32_t index) {
    const engine::SnapshotEntry& e = s.entry(index);
    return EntryFields(e.attributes, e.modified, e.nextSibling, e.count, std::string(s.name(index)),
                       e.parent, e.size, std::string(s.version(index)));
}

int32_t indexOf(const engine::Snapshot& s, const QString& relativePath) {
    for (int32_t i = 1; i <= s.entryCount; ++i) {
        const QString p = s.relativePath(i);
        if (p == relativePath || p == relativePath + QLatin1Char('/'))
            return i;
    }
    return 0;
}

bool runningAsRoot() {
    return ::geteuid() == 0;
}

bool becomeNobody() {
    return ::setgroups(0, nullptr) == 0 && ::setgid(NobodyUser) == 0 && ::setuid(NobodyUser) == 0;
}

std::optional<bool> passesWherePermissionsHold(const std::function<bool()>& check) {
    if (!runningAsRoot())
        return check();
    // A child that gives up root for nobody; its exit status is check's result.
    const pid_t child = ::fork();
    if (child < 0)
        return std::nullopt;
    if (child == 0) {
        if (!becomeNobody())
            ::_exit(3);
        ::_exit(check() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 3)
        return std::nullopt;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static int32_t addRing(engine::Snapshot& s, const std::vector<Node>& nodes, int32_t parent) {
    const int32_t first = s.entryCount + 1;
    int32_t here = 0;
    int32_t last = 0;
    for (const Node& n : nodes) {
        const int16_t attributes = n.attributes ? n.attributes : (n.folder ? 16 : 128);
        s.createEntry(attributes, n.modified, 0, n.name, parent, n.folder ? 0 : n.size, n.version);
        last = s.entryCount;
        ++here;
        if (n.folder) {
            ++s.folderCount;
            here += addRing(s, n.children, last);
        } else {
            ++s.fileCount;
            s.totalSize += n.size;
        }
        s.mutableEntry(last).nextSibling = s.entryCount + 1;
    }
    if (last)
        s.mutableEntry(last).nextSibling = first;
    s.mutableEntry(parent).count = here;
    return here;
}

void buildSnapshot(engine::Snapshot& snapshot, const std::vector<Node>& top) {
    snapshot.header.rootFolder = QStringLiteral("/built/");
    addRing(snapshot, top, 0);
}

QByteArray exampleSnapshotFile(int capacity) {
    return "Original Snapshot of C:\\Data\\\r\n"
           "\"C:\\Data\\\",#2001-03-04 10:15:00#,#TRUE#,#FALSE#,#FALSE#," +
           QByteArray::number(capacity) +
           "\r\n"
           "16,36954.4270833333,3,1,\"Reports\",0,0,\"\"\r\n"
           "32,36950.5,2,0,\"a.txt\",1,1234,\"\"\r\n"
           "32,36950.5,1,0,\"b.txt\",0,99,\"\"\r\n";
}

QByteArray versionTwoTree() {
    return VersionTwoHeader + QByteArray(R"(9
"\","Docs",-1,36950.5,16,"",0,6,0
"","a.txt",1234,36950.25,32,"",0,0,0
" ","Sub",-1,36950.5,16,"",0,1,0
"","c.txt",7,36951.125,33,"",0,0,0
"\Docs\","b.txt",99,36950.5,32,"1.00.0000",0,0,0
" ","d.txt",0,36950.5,32,"",0,0,0
" ","e.txt",5,36950.5,32,"",0,0,0
"\","Empty",-1,36950.5,16,"",0,0,0
"\","top.txt",6,36950.5,32,"",0,0,0
)");
}

bool writeBytes(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

namespace {

// What write gives while writes past limit bytes fail with EFBIG, as on a
// full disk.
engine::Outcome underFileSizeLimit(int64_t limit, const std::function<engine::Outcome()>& write) {
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit lowered{rlim_t(limit), old.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &lowered), 0) << "no file size limit of " << limit;
    const engine::Outcome outcome = write();
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    return outcome;
}

// Every length in the last 64 bytes below length, then every 61st to 8 KiB
// below it, then every 4093rd down to 0.
std::vector<int64_t> limitsBelow(int64_t length) {
    std::vector<int64_t> limits;
    for (int64_t back = 1; back < length; back += back < 64 ? 1 : back < 8192 ? 61 : 4093)
        limits.push_back(length - back);
    limits.push_back(0);
    return limits;
}

} // namespace

QStringList folderEntries(const QString& folder) {
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

void expectFullDiskKeepsOldFile(const QString& path, const QByteArray& previous,
                                const std::function<engine::Outcome()>& write) {
    const QString folder = QFileInfo(path).absolutePath();
    ASSERT_TRUE(writeBytes(path, previous));
    const engine::Outcome whole = write();
    ASSERT_TRUE(whole.ok) << (whole.message ? whole.message->text.toStdString() : "");
    const int64_t length = QFileInfo(path).size();
    // What a whole write leaves beside the file (a snapshot's side files)
    // stays; a write cut short adds nothing to it.
    const QStringList before = folderEntries(folder);
    ASSERT_GT(length, 0);
    // One limit's failures are enough to read.
    const bool failedBefore = ::testing::Test::HasFailure();
    const QString tooLarge =
        path + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(EFBIG));
    for (const int64_t limit : limitsBelow(length)) {
        ASSERT_TRUE(writeBytes(path, previous));
        const engine::Outcome cut = underFileSizeLimit(limit, write);
        EXPECT_FALSE(cut.ok) << "limit " << limit << " of " << length;
        if (cut.message) {
            EXPECT_EQ(cut.message->text, tooLarge) << "limit " << limit;
        }
        EXPECT_TRUE(readBytes(path) == previous) << "the old file changed at limit " << limit;
        EXPECT_EQ(folderEntries(folder), before) << "limit " << limit;
        if (!failedBefore && ::testing::Test::HasFailure())
            return;
    }
    EXPECT_TRUE(underFileSizeLimit(length, write).ok) << "a limit of the whole length " << length;
    EXPECT_EQ(QFileInfo(path).size(), length);
}

ProgramRun runProgram(const QString& program, const QStringList& arguments, const QString& home,
                      const QString& workingFolder, const std::function<void()>& childSetup,
                      int timeoutMs) {
    QProcess p;
    if (childSetup)
        p.setChildProcessModifier(childSetup);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/config"));
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(workingFolder.isEmpty() ? home : workingFolder);
    p.start(program, arguments);
    EXPECT_TRUE(p.waitForFinished(timeoutMs)) << program.toStdString();
    ProgramRun r;
    r.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = QString::fromUtf8(p.readAllStandardOutput());
    r.err = QString::fromUtf8(p.readAllStandardError());
    return r;
}

QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void put16(std::vector<uint8_t>& b, size_t at, uint16_t v) {
    b[at] = uint8_t(v);
    b[at + 1] = uint8_t(v >> 8);
}

void put32(std::vector<uint8_t>& b, size_t at, uint32_t v) {
    put16(b, at, uint16_t(v));
    put16(b, at + 2, uint16_t(v >> 16));
}

Image makeImage(bool pe32Plus, uint32_t ms, uint32_t ls) {
    const size_t optional = kPeOffset + 24;
    const size_t dirStart = pe32Plus ? 112 : 96;
    const uint32_t optionalSize = uint32_t(dirStart + 16 * 8), sectionSize = 0x60 + 92;
    const uint32_t machine = pe32Plus ? 0x8664 : 0x14C, magic = pe32Plus ? 0x20B : 0x10B;
    Image img;
    img.sectionTable = optional + optionalSize;
    img.sectionData = 0x200;
    img.dataDirectories = optional + dirStart;
    auto& b = img.bytes;
    b.assign(img.sectionData + sectionSize, 0);
    // The DOS and PE headers (at kPeOffset, 0x40), the optional header's
    // directory count and resource directory, and the section table.
    const std::pair<size_t, uint32_t> headerWords[] = {
        {0, 0x5A4D}, {0x44, machine}, {0x46, 1}, {0x54, optionalSize}, {0x58, magic}};
    for (const auto& [at, value] : headerWords)
        put16(b, at, uint16_t(value));
    put32(b, 0x3C, kPeOffset);
    put32(b, kPeOffset, 0x4550);
    put32(b, img.dataDirectories - 4, 16);
    put32(b, img.dataDirectories + 16, kSectionRva);
    put32(b, img.dataDirectories + 20, sectionSize);
    std::memcpy(&b[img.sectionTable], ".rsrc", 5);
    const std::pair<size_t, uint32_t> sectionHeader[] = {
        {8, sectionSize}, {12, kSectionRva}, {16, sectionSize}, {20, 0x200}};
    for (const auto& [at, value] : sectionHeader)
        put32(b, img.sectionTable + at, value);
    // In the section, offsets and values: the resource directories (the root
    // with RT_ICON and RT_VERSION at 0, names at 0x20, languages at 0x38),
    // the data entry (0x50) pointing at the version block (0x60, at RVA
    // 0x1060) with its key, signature (0x88) and version words.
    const std::pair<size_t, uint32_t> words[] = {
        {14, 2}, {0x2E, 1}, {0x46, 1}, {0x60, 92}, {0x62, 52}};
    const std::pair<size_t, uint32_t> longs[] = {
        {16, 3},        {20, 0x80000020},   {24, 16},           {28, 0x80000020},
        {0x30, 1},      {0x34, 0x80000038}, {0x48, 0x409},      {0x4C, 0x50},
        {0x50, 0x1060}, {0x54, 92},         {0x88, 0xFEEF04BD}, {0x90, ms},
        {0x94, ls}};
    for (const auto& [at, value] : words)
        put16(b, img.sectionData + at, uint16_t(value));
    for (const auto& [at, value] : longs)
        put32(b, img.sectionData + at, value);
    const char* key = "VS_VERSION_INFO";
    for (size_t i = 0; key[i]; ++i)
        put16(b, img.sectionData + 0x66 + 2 * i, uint16_t(key[i]));
    return img;
}

engine::Outcome scanTree(engine::Snapshot& s, const TempTree& tree, bool fingerprints) {
    engine::ScanSettings settings;
    settings.fingerprints = fingerprints;
    return scanFolder(s, tree.root(), settings);
}

engine::Outcome scanFolder(engine::Snapshot& s, const QString& root,
                           const engine::ScanSettings& settings, engine::ProgressMeter* meter,
                           bool hidden) {
    s.header.rootFolder = root;
    s.header.recurse = true;
    s.header.hidden = hidden;
    s.header.versions = !settings.versionFolder.isEmpty();
    engine::ProgressMeter quiet;
    return engine::CreateSnapshot(s, settings, meter ? *meter : quiet);
}

engine::Outcome saveSnapshotAs(engine::Snapshot& s, const QString& file) {
    s.header.fileName = file;
    engine::ProgressMeter meter;
    return engine::SaveSnapshot(s, meter);
}

engine::LoadOutcome loadSnapshotFrom(engine::Snapshot& s, const QString& file) {
    s.header.fileName = file;
    engine::ProgressMeter meter;
    return engine::LoadSnapshot(s, meter);
}

double localFileDate(time_t when) {
    struct tm local;
    localtime_r(&when, &local);
    return engine::roundTo15Digits(engine::oleDateFromParts(local.tm_year + 1900, local.tm_mon + 1,
                                                            local.tm_mday, local.tm_hour,
                                                            local.tm_min, local.tm_sec));
}

} // namespace kestrel::test
