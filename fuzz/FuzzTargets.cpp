#include "FuzzTargets.h"

#include "engine/compare/Compare.h"
#include "engine/compare/Differences.h"
#include "engine/file/Import.h"
#include "engine/file/MetaSideFile.h"
#include "engine/file/OpenSnapshot.h"
#include "engine/file/SnapshotFile.h"
#include "engine/model/FolderIndex.h"
#include "engine/model/RingWalk.h"
#include "engine/model/Snapshot.h"
#include "engine/scan/FileVersion.h"
#include "engine/support/OleDate.h"
#include "engine/support/Progress.h"
#include "listing/FileList.h"
#include "settings/IniFile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <unistd.h>

namespace kestrel::fuzz {

using namespace engine;

namespace {

// A broken promise: report it and stop, so the fuzzer keeps the input.
[[noreturn]] void fault(const char* what) {
    std::fprintf(stderr, "kestrel fuzz: %s\n", what);
    std::abort();
}

// The engine reads files by name: every input goes to a file of a folder of
// the process's own, rewritten for each input.
class Scratch {
public:
    static Scratch& instance() {
        static Scratch scratch;
        return scratch;
    }
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }
    QString write(const char* name, const uint8_t* data, size_t size) const {
        const QString file = path(name);
        const int fd = ::open(QFile::encodeName(file).constData(),
                              O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0)
            fault("cannot write the input file");
        while (size > 0) {
            const ssize_t n = ::write(fd, data, size);
            if (n <= 0)
                fault("cannot write the input file");
            data += n;
            size -= size_t(n);
        }
        ::close(fd);
        return file;
    }

private:
    Scratch() {
        if (!m_dir.isValid())
            fault("no temporary folder");
    }
    QTemporaryDir m_dir;
};

// A loaded table never reaches beyond what the file's lines can fill: at
// least eight bytes a line, and 16 records of padding.
void checkTableBound(const Snapshot& s, size_t size) {
    if (int64_t(s.capacity()) > int64_t(size) / 8 + 18)
        fault("the table is larger than the file can fill");
}

void listAsTheWindowDoes(const Snapshot& s) {
    // What a snapshot window reads: the folder index it builds first (which
    // refuses damaged links), then every folder's list in every show mode.
    FolderIndex index;
    if (!FolderIndex::buildChecked(s, QStringLiteral("Invalid Snapshot"), index).ok)
        return;
    FileList list(s);
    for (int32_t folder = 0; folder < index.folderCount(); ++folder) {
        const int32_t entry = index.entryOf(folder);
        const int32_t first = folder == 0 ? 1 : (hasContents(s, entry) ? entry + 1 : 0);
        for (int mode = 0; mode <= 5; ++mode) {
            list.list(first, ListingOptions{ShowMode(mode), true, true, mode % 2 == 0});
            for (int32_t row = 0; row < list.rowCount(); ++row)
                for (int column = 0; column < GridColumnCount; ++column) {
                    (void)list.cellText(row, column);
                    (void)list.highlight(row, column);
                }
        }
    }
}

// What the views, the command line's list and export do with a snapshot:
// walk it, build paths, look names up. Damage may end any of them with a
// RuntimeError, never with anything else.
void exercise(const Snapshot& s) {
    try {
        walkEntries(s, [&](int32_t i, int) {
            (void)s.entryPath(i);
            (void)s.relativePath(i);
            (void)datePartsFromOle(s.entry(i).modified);
        });
    } catch (const RuntimeError&) {
    }
    try {
        int32_t index = 1;
        (void)s.locateEntry(index, "readme.txt", s.nameMatching());
    } catch (const RuntimeError&) {
    }
    listAsTheWindowDoes(s);
}

// Opens the bytes as OpenSnapshotFile does (current format, else v2).
bool open(Snapshot& s, const QString& file) {
    ProgressMeter meter;
    return OpenSnapshotFile(s, file, meter).ok;
}

// A small sound snapshot to compare damaged ones with.
void buildSmall(Snapshot& s) {
    s.header.rootFolder = QStringLiteral("/small/");
    s.createEntry(Attribute::Folder, 36950.5, 4, "Docs", 0, 0, "");
    s.createEntry(Attribute::Normal, 36950.5, 3, "a.txt", 1, 10, "");
    s.createEntry(Attribute::Normal, 36950.5, 2, "README.txt", 1, 20, "1.00.0000");
    s.createEntry(Attribute::Normal, 36951.5, 1, "b.txt", 0, 30, "");
    s.mutableEntry(1).count = 2;
    s.mutableEntry(0).count = 4;
    s.fileCount = 3;
    s.folderCount = 1;
}

void compareAndList(Snapshot& a, Snapshot& b, const CompareOptions& options) {
    ProgressMeter meter;
    if (!CompareSnapshot(a, 1, b, 1, true, options, meter).ok)
        return;
    try {
        for (const Difference& d : listDifferences(a, b)) {
            const Snapshot& holder = d.kind == Difference::OnlyInOld ? b : a;
            (void)holder.relativePath(d.index);
            if (d.kind == Difference::Changed)
                (void)WhatChanged(a, b, d.index, options);
        }
    } catch (const RuntimeError&) {
    }
    listAsTheWindowDoes(a);
}

// A number as the file keeps it: written with at most 15 significant digits
// (whole numbers a double holds exactly with all of theirs) and read back.
bool sameNumber(double saved, double read) {
    if (std::isnan(saved))
        return std::isnan(read);
    return saved == read || roundTo15Digits(saved) == read;
}

bool sameDate(double a, double b) {
    const DateParts x = datePartsFromOle(a), y = datePartsFromOle(b);
    return x.year == y.year && x.month == y.month && x.day == y.day && x.hour == y.hour &&
           x.minute == y.minute && x.second == y.second;
}

// What a second read of a saved snapshot must give back.
void checkReadBack(const Snapshot& saved, const Snapshot& back, const LoadOutcome& outcome) {
    if (!outcome.ok)
        fault("a saved snapshot does not read back");
    if (outcome.message)
        fault("a saved snapshot reads back with a notice");
    const int32_t n = std::max(saved.entryCount, 0);
    if (back.entryCount != n || back.entry(0).count != capacityItem(saved.entryCount))
        fault("a saved snapshot reads back with other counts");
    const SnapshotHeader& h = saved.header;
    const SnapshotHeader& g = back.header;
    if (h.rootFolder != g.rootFolder || h.recurse != g.recurse || h.hidden != g.hidden ||
        h.versions != g.versions || !sameDate(h.created, g.created))
        fault("a saved snapshot reads back with another header");
    QString title = h.title;
    title.replace(QLatin1Char('\r'), QLatin1Char(' ')).replace(QLatin1Char('\n'), QLatin1Char(' '));
    if (title != g.title)
        fault("a saved snapshot reads back with another title");
    for (int32_t i = 1; i <= n; ++i) {
        const SnapshotEntry& x = saved.entry(i);
        const SnapshotEntry& y = back.entry(i);
        if (x.attributes != y.attributes || x.nextSibling != y.nextSibling || x.count != y.count ||
            x.parent != y.parent || !sameNumber(x.modified, y.modified) ||
            !sameNumber(x.size, y.size) || saved.nameOf(x) != back.nameOf(y) ||
            saved.versionOf(x) != back.versionOf(y))
            fault("a saved entry reads back otherwise");
    }
}

} // namespace

namespace {

// Reads the bytes as a file with read (LoadSnapshot or ImportSnapshot) and
// walks what it read.
template <typename Read>
int readAndWalk(const char* name, const uint8_t* data, size_t size, Read read) {
    Snapshot s;
    s.header.fileName = Scratch::instance().write(name, data, size);
    ProgressMeter meter;
    if (read(s, meter).ok) {
        checkTableBound(s, size);
        exercise(s);
    }
    return 0;
}

} // namespace

int snapshotReader(const uint8_t* data, size_t size) {
    return readAndWalk("reader.#01", data, size,
                       [](Snapshot& s, ProgressMeter& meter) { return LoadSnapshot(s, meter); });
}

int versionTwoImport(const uint8_t* data, size_t size) {
    return readAndWalk("import.#01", data, size, ImportSnapshot);
}

int compareWithItself(const uint8_t* data, size_t size) {
    const QString file = Scratch::instance().write("compare.#01", data, size);
    Snapshot a, b;
    if (!open(a, file) || !open(b, file))
        return 0;
    CompareOptions options;
    options.ignoreDst = size % 2 == 1;
    options.dateTolerance = size % 3 == 0 ? 2.0 / 86400 : 0;
    compareAndList(a, b, options);
    Snapshot small;
    buildSmall(small);
    compareAndList(a, small, options);
    compareAndList(small, a, options);
    return 0;
}

int saveAndReadBack(const uint8_t* data, size_t size) {
    Scratch& scratch = Scratch::instance();
    const QString file = scratch.write("save.#01", data, size);
    Snapshot s;
    if (!open(s, file))
        return 0;
    s.header.fileName = scratch.path("saved.#01");
    ProgressMeter meter;
    const Outcome saved = SaveSnapshot(s, meter);
    if (!saved.ok)
        fault("a snapshot that was read cannot be saved");
    Snapshot back;
    back.header.fileName = s.header.fileName;
    const LoadOutcome outcome = LoadSnapshot(back, meter);
    checkReadBack(s, back, outcome);
    return 0;
}

int peVersion(const uint8_t* data, size_t size) {
    const auto inMemory = parseFixedFileVersion(std::span<const uint8_t>(data, size));
    const QString file = Scratch::instance().write("image.dll", data, size);
    const std::string fromFile = fileVersionTextAt(AT_FDCWD, QFile::encodeName(file).constData());
    if (fromFile != (inMemory ? formatFileVersion(*inMemory) : std::string()))
        fault("the version read from memory and from the file differ");
    return 0;
}

int iniReader(const uint8_t* data, size_t size) {
    const QString file = Scratch::instance().write("Kestrel.ini", data, size);
    const settings::IniFile ini(file);
    for (const char* key : {"Top", "Left", "Window", "Folder", "Drive"}) {
        if (ini.readString(QStringLiteral("Main"), QString::fromLatin1(key), QStringLiteral("d"))
                .size() > 254)
            fault("a read returned more than 254 characters");
    }
    const QString value = QStringLiteral("/home/user/My Data");
    if (!ini.writeString(QStringLiteral("Main"), QStringLiteral("Folder"), value))
        fault("Kestrel.ini cannot be written");
    if (ini.readString(QStringLiteral("Main"), QStringLiteral("Folder"), QString()) != value)
        fault("a value written to Kestrel.ini reads back otherwise");
    return 0;
}

namespace {

// The small snapshot with side data of every kind: set-user-ID and sticky
// modes, two owners, an entry without values, a link target that is no text,
// and a content fingerprint for each file, one file said to be unreadable.
void buildSmallWithSideData(Snapshot& s) {
    buildSmall(s);
    s.access.set(1, EntryAccess{01777, 0, 0});
    s.access.set(2, EntryAccess{04755, 0, 0});
    s.access.set(4, EntryAccess{0644, 1000, 65534});
    s.access.setLinkTarget(4, std::string_view("/etc/a\nb\xff", 9));
    for (int32_t i = 1; i <= s.entryCount; ++i)
        if (!s.entries.get(i).isFolder())
            s.fingerprints.set(i, Fingerprint{0x0123456789abcdefu * uint64_t(i), uint64_t(i)});
    s.fingerprints.unreadable = 1;
}

bool sameSideData(const Snapshot& a, const Snapshot& b) {
    for (int32_t i = 0; i <= a.entryCount + 1; ++i)
        if (a.access.has(i) != b.access.has(i) || !(a.access.at(i) == b.access.at(i)) ||
            a.access.linkTarget(i) != b.access.linkTarget(i) ||
            a.fingerprints.has(i) != b.fingerprints.has(i) ||
            (a.fingerprints.has(i) && !(a.fingerprints.at(i) == b.fingerprints.at(i))))
            return false;
    return a.fingerprints.taken() == b.fingerprints.taken() &&
           a.fingerprints.unreadable == b.fingerprints.unreadable;
}

} // namespace

std::string smallSideData() {
    Snapshot s;
    buildSmallWithSideData(s);
    return metaSideData(s);
}

int sideDataReader(const uint8_t* data, size_t size) {
    Snapshot s;
    buildSmall(s);
    if (!readMetaSideData(s, std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    for (int32_t i = 1; i <= s.entryCount; ++i)
        if (s.access.has(i)) {
            const EntryAccess a = s.access.at(i);
            (void)permissionsText(a.mode, 'l');
            (void)ownerText(a.owner, a.group);
            (void)linkTargetText(s.access.linkTarget(i));
        }
    for (int32_t i = 1; i <= s.entryCount; ++i)
        if (s.fingerprints.has(i))
            (void)fingerprintHex(s.fingerprints.at(i));
    Snapshot again;
    buildSmall(again);
    if (!readMetaSideData(again, metaSideData(s)) || !sameSideData(s, again))
        fault("side data written again does not read back as it was");
    return 0;
}

} // namespace kestrel::fuzz
