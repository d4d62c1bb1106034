#pragma once

#include "engine/file/SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/Scan.h"
#include "engine/support/Errors.h"
#include "engine/support/Progress.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <tuple>
#include <vector>

// Test failures show QStrings as text.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

namespace kestrel::test {

// A meter's view that records what the meter tells it; onValue and onEvents
// are the test's own reactions (a click on Cancel, say).
struct RecordingView : engine::ProgressView {
    int started = 0, shown = 0, events = 0, closed = 0;
    int32_t maximum = 0; // what the last start said
    QString caption;
    bool cancellable = false;
    std::vector<int32_t> values;
    std::function<void(int32_t)> onValue;
    std::function<void()> onEvents;

    void meterStarted(int32_t m, const QString& c, bool can) override {
        ++started;
        maximum = m;
        caption = c;
        cancellable = can;
    }
    void meterShown() override { ++shown; }
    void meterValue(int32_t value) override {
        values.push_back(value);
        if (onValue)
            onValue(value);
    }
    void processEvents() override {
        ++events;
        if (onEvents)
            onEvents();
    }
    void meterClosed() override { ++closed; }
};

// A folder tree built in a temporary folder for one test.
class TempTree {
public:
    enum Storage { OnDisk, InMemory };
    // InMemory: in /dev/shm where there is one, whose folders come and go
    // far faster than on a disk (for trees of thousands of levels).
    explicit TempTree(Storage storage = OnDisk);
    ~TempTree();
    // The tree's root, ending in "/".
    QString root() const;
    // Paths are relative to the root, native text (engine/model/FileSystemNames.h),
    // so names may hold bytes that are not UTF-8; parent folders are made as
    // needed.
    void folder(const QString& path);
    void file(const QString& path, const QByteArray& contents = {});
    // A file last written at modified (seconds since 1970).
    void file(const QString& path, const QByteArray& contents, time_t modified);
    void sparseFile(const QString& path, int64_t size);
    void symlink(const QString& path, const QString& target);
    void fifo(const QString& path);
    // Sets the last-write time (seconds since 1970).
    void touch(const QString& path, time_t when);
    void chmod(const QString& path, int mode);

private:
    QTemporaryDir m_dir;
};

// Scans the whole tree into s (sub-folders and hidden items included), with
// content fingerprints when asked.
engine::Outcome scanTree(engine::Snapshot& s, const TempTree& tree, bool fingerprints = false);
// Scans the folder root (ending in "/") into s as scanTree does, with versions
// where the settings name their folder, watched by meter when one is given;
// hidden items are left out when told.
engine::Outcome scanFolder(engine::Snapshot& s, const QString& root,
                           const engine::ScanSettings& settings = {},
                           engine::ProgressMeter* meter = nullptr, bool hidden = true);

// Saves s as file; loads file into s.
engine::Outcome saveSnapshotAs(engine::Snapshot& s, const QString& file);
engine::LoadOutcome loadSnapshotFrom(engine::Snapshot& s, const QString& file);

// A time of the system's clock as the scan records it: local time to the
// second, in file form.
double localFileDate(time_t when);

// Every field of both snapshots' headers and entries 0..entryCount is equal
// (the comparison fields included).
void expectSameSnapshot(const engine::Snapshot& a, const engine::Snapshot& b);

// Checks the invariants every scanned snapshot keeps, whatever the tree did
// meanwhile: the counters agree with the entries, each folder ring closes,
// the walk through the rings meets the entries in table order (depth first),
// every parent is a folder before its children, every folder's count is the
// size of its subtree (entry 1 excepted: it holds the meter maximum), entry 0
// counts them all and the total size is the files' sum.
void expectSoundSnapshot(const engine::Snapshot& s);

// The message is there, with this title, text and icon.
void expectMessage(const std::optional<engine::UserMessage>& message, const QString& title,
                   const QString& text, engine::MessageIcon icon);

// The entries of the folder whose first entry is first, in ring order.
std::vector<int32_t> ringOf(const engine::Snapshot& s, int32_t first);

// An entry's eight fields in the file's order: attributes, modified, next
// sibling, count, name, parent, size, version.
using EntryFields =
    std::tuple<int16_t, double, int32_t, int32_t, std::string, int32_t, double, std::string>;
EntryFields fieldsOf(const engine::Snapshot& s, int32_t index);

// The entry, file and folder counts and the total size.
inline std::tuple<int32_t, int32_t, int32_t, double> countsOf(const engine::Snapshot& s) {
    return {s.entryCount, s.fileCount, s.folderCount, s.totalSize};
}

// The index of the entry at a relative path ("a/b/c.txt"), or 0.
int32_t indexOf(const engine::Snapshot& s, const QString& relativePath);

bool runningAsRoot();

// The user nobody, to whom folder permissions apply where root's are not.
inline constexpr uid_t NobodyUser = 65534;
// In a forked child of a test run as root: gives up root for nobody. False
// when the system does not let it.
bool becomeNobody();
// Runs check where folder permissions hold: as nobody in a child process
// when running as root (root reads anything), here otherwise. Empty when
// root cannot be given up here.
std::optional<bool> passesWherePermissionsHold(const std::function<bool()>& check);

// A file or folder for buildSnapshot.
struct Node {
    std::string name;
    std::vector<Node> children;
    bool folder = false;
    double size = 0;
    double modified = 45000;
    int16_t attributes = 0; // 0: 128 for a file, 16 for a folder
    std::string version;

    static Node file(std::string name, double size = 0, double modified = 45000,
                     int16_t attributes = 0, std::string version = {}) {
        return {std::move(name), {}, false, size, modified, attributes, std::move(version)};
    }
    static Node dir(std::string name, std::vector<Node> children = {}) {
        return {std::move(name), std::move(children), true, 0, 45000, 0, {}};
    }
};

// A snapshot laid out as a scan lays it out, with each folder's entries in
// the order given: what a file system that lists them so would give.
void buildSnapshot(engine::Snapshot& snapshot, const std::vector<Node>& top);

// A snapshot file as the Windows program wrote it, with the given capacity
// item: a root C:\Data\ holding the folder Reports (with a.txt) and the
// file b.txt.
QByteArray exampleSnapshotFile(int capacity = 16);

// A version-2 file of a root C:\DATA\ (number 5, sub-folders and versions
// recorded): Docs holds a.txt, Sub (holding c.txt), b.txt, d.txt and e.txt;
// Empty and top.txt sit beside Docs. Its paths take every form: explicit,
// empty (inside the entry before) and a blank (the folder of the entry before).
inline constexpr char VersionTwoHeader[] = "\"C:\\DATA\\;3\"\n5,36954.5\n#TRUE#,#FALSE#,#TRUE#\n";
QByteArray versionTwoTree();

// Writes bytes to a file; false when it cannot.
bool writeBytes(const QString& path, const QByteArray& bytes);
// A file's bytes, empty when it cannot be read.
QByteArray readBytes(const QString& path);

// Drives a writer of path to a full disk at every point near the end of the
// file it writes, and at points further back down to the first byte: write
// runs once without a limit to learn the new file's length, then under each
// file size limit below that length, previous put back in path before each
// run. Every limited run must fail, with a message (where the writer gives
// one) that is path and the system's "File too large", and leave path byte
// for byte as previous and nothing else new in its folder. A limit of the
// whole length must succeed.
void expectFullDiskKeepsOldFile(const QString& path, const QByteArray& previous,
                                const std::function<engine::Outcome()>& write);

// How a program run ended (status -1: not by itself) and what it printed.
struct ProgramRun {
    int status = -1;
    QString out, err;
    QStringList lines() const { return out.split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
};

// Runs a program with its HOME and configuration folder in home, never the
// user's, in the C.UTF-8 locale and in workingFolder (home when empty);
// childSetup runs in the child before the program starts (a limit, another
// user).
ProgramRun runProgram(const QString& program, const QStringList& arguments, const QString& home,
                      const QString& workingFolder = {},
                      const std::function<void()>& childSetup = {}, int timeoutMs = 60000);

// The names in a folder, hidden ones included, sorted.
QStringList folderEntries(const QString& folder);

// Minimal PE images with a version resource, for the version reader and the
// scan of a version folder.
void put16(std::vector<uint8_t>& b, size_t at, uint16_t v);
void put32(std::vector<uint8_t>& b, size_t at, uint32_t v);

constexpr size_t kPeOffset = 0x40;
constexpr size_t kSectionRva = 0x1000;
constexpr size_t kFixedInfoInSection = 0x60 + 40; // the version block, then its header

struct Image {
    std::vector<uint8_t> bytes;
    size_t sectionTable = 0;
    size_t sectionData = 0;
    size_t dataDirectories = 0;
    QByteArray contents() const {
        return QByteArray(reinterpret_cast<const char*>(bytes.data()), qsizetype(bytes.size()));
    }
};

// One section holding a resource tree with an RT_ICON and an RT_VERSION type,
// the latter leading to a VS_VERSIONINFO with the given version words.
Image makeImage(bool pe32Plus, uint32_t ms, uint32_t ls);

} // namespace kestrel::test
