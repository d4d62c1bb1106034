#include "MetaSideFile.h"

#include "SnapshotFile.h"
#include "engine/model/Snapshot.h"
#include "engine/support/HashState.h"
#include "engine/support/RegularFile.h"
#include "engine/support/ShortText.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <functional>
#include <memory>
#include <sys/stat.h>
#include <xxhash.h>

namespace kestrel::engine {

namespace {

static_assert(std::endian::native == std::endian::little,
              "side files are written in the machine's byte order, which must be little-endian");

constexpr std::string_view FormatLine = "Kestrel side data 1: mode owner group target\n";
// The same with content fingerprints after the link targets.
constexpr std::string_view FingerprintFormatLine =
    "Kestrel side data 1: mode owner group target fingerprint\n";
// Far beyond what any real side file holds: a damaged length field must not
// make the reader take all the memory there is.
constexpr int64_t LargestSideFile = int64_t(1) << 32;

// A state for the side file's checksum, ready to take bytes.
HashState newChecksumState() {
    HashState state = newHashState();
    XXH3_64bits_reset(state.get());
    return state;
}

template <typename T> void put(std::string& out, T value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename T> void putAll(std::string& out, const std::vector<T>& values) {
    out.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

// The bytes of side data in order, taken a block at a time (a file's whole
// side data is never held at once) and checked against the checksum of its
// last 8 bytes as they go.
class SideDataSource {
public:
    using Read = std::function<int64_t(char*, int64_t)>;
    SideDataSource(Read read, int64_t size) : m_read(std::move(read)), m_left(size - 8) {}

    // Exactly n bytes of the part before the checksum.
    bool get(void* to, size_t n) {
        auto* out = static_cast<char*>(to);
        while (n > 0) {
            if (m_at == m_end && !fill())
                return false;
            const size_t step = std::min(n, m_end - m_at);
            std::memcpy(out, m_block.data() + m_at, step);
            m_at += step;
            out += step;
            n -= step;
        }
        return true;
    }
    template <typename T> bool get(T& value) { return get(&value, sizeof value); }

    // Whether everything before the checksum was read and matches it.
    bool checked() {
        if (m_at != m_end || m_left != 0)
            return false;
        uint64_t own = 0;
        return m_read(reinterpret_cast<char*>(&own), 8) == 8 &&
               XXH3_64bits_digest(m_state.get()) == own;
    }

private:
    bool fill() {
        if (m_left <= 0)
            return false;
        const int64_t want = std::min<int64_t>(m_left, int64_t(m_block.size()));
        const int64_t got = m_read(m_block.data(), want);
        if (got <= 0)
            return false;
        XXH3_64bits_update(m_state.get(), m_block.data(), size_t(got));
        m_left -= got;
        m_at = 0;
        m_end = size_t(got);
        return true;
    }

    Read m_read;
    int64_t m_left;
    HashState m_state = newChecksumState();
    std::vector<char> m_block = std::vector<char>(size_t(1) << 16);
    size_t m_at = 0, m_end = 0;
};

std::string countLine(int32_t entries, uint64_t checksum) {
    char hex[17];
    const auto end = std::to_chars(hex, hex + 16, checksum, 16).ptr;
    return "entries " + std::to_string(entries) + " snapshot " +
           std::string(16 - size_t(end - hex), '0') + std::string(hex, end) + '\n';
}

} // namespace

QString metaSideFilePath(const QString& snapshotFile) {
    return snapshotFile + QStringLiteral(".meta");
}

namespace {
constexpr size_t ChecksumBlockBytes = size_t(1) << 16;
// An entry's fields one after the other, without the gaps a struct would
// leave between them, then its name.
constexpr size_t ChecksumFieldBytes = 28;
} // namespace

SnapshotChecksum::SnapshotChecksum()
    : m_state(newChecksumState()),
      m_block(std::make_unique_for_overwrite<char[]>(ChecksumBlockBytes)) {}

void SnapshotChecksum::flush() {
    XXH3_64bits_update(m_state.get(), m_block.get(), m_used);
    m_used = 0;
}

void SnapshotChecksum::addThrough(const Snapshot& snapshot, int32_t last) {
    for (int32_t i = m_through + 1; i <= last; ++i) {
        const SnapshotEntry& e = snapshot.entries.get(i);
        const std::string_view name = snapshot.nameOf(e);
        if (m_used + ChecksumFieldBytes + name.size() > ChecksumBlockBytes)
            flush();
        char* at = m_block.get() + m_used;
        const int32_t parent = e.parent, attributes = e.attributes;
        const auto nameLength = uint32_t(name.size());
        std::memcpy(at, &parent, 4);
        std::memcpy(at + 4, &nameLength, 4);
        std::memcpy(at + 8, &e.size, 8);
        std::memcpy(at + 16, &e.modified, 8);
        std::memcpy(at + 24, &attributes, 4);
        m_used += ChecksumFieldBytes;
        if (name.size() > ChecksumBlockBytes - m_used) {
            // Longer than a block: only a damaged file holds such a name.
            flush();
            XXH3_64bits_update(m_state.get(), name.data(), name.size());
        } else if (!name.empty()) {
            copyShort(m_block.get() + m_used, name.data(), name.size());
            m_used += name.size();
        }
    }
    m_through = std::max(m_through, last);
}

uint64_t SnapshotChecksum::value() {
    flush();
    return XXH3_64bits_digest(m_state.get());
}

uint64_t snapshotChecksum(const Snapshot& snapshot) {
    SnapshotChecksum checksum;
    checksum.addThrough(snapshot, snapshot.entryCount);
    return checksum.value();
}

std::string metaSideData(const Snapshot& snapshot, std::optional<uint64_t> checksum) {
    const AccessTable& access = snapshot.access;
    const FingerprintTable& fingerprints = snapshot.fingerprints;
    if (access.empty() && !fingerprints.taken())
        return {};
    const size_t count = size_t(snapshot.entryCount) + 1;
    std::string out;
    const AccessTable::Pairs pairs = access.pairs();
    out.reserve(FingerprintFormatLine.size() + 64 + pairs.pairs.size() * 8 + count * 6 +
                fingerprints.count() * 20);
    out += fingerprints.taken() ? FingerprintFormatLine : FormatLine;
    out += countLine(snapshot.entryCount, checksum ? *checksum : snapshotChecksum(snapshot));
    put(out, uint32_t(pairs.pairs.size()));
    putAll(out, pairs.pairs);
    // A mode by entry (None for none), then a pair number by entry, made in
    // place: a million entries make 6 MB.
    const size_t modesAt = out.size();
    out.resize(modesAt + count * (sizeof(uint16_t) + sizeof(uint32_t)));
    char* modes = out.data() + modesAt;
    char* numbers = modes + count * sizeof(uint16_t);
    for (size_t i = 0; i < count; ++i) {
        const uint32_t kind = access.kindOf(int32_t(i));
        const auto mode =
            kind == AccessTable::NoKind ? AccessTable::None : uint16_t(access.kind(kind).mode);
        const uint32_t number = pairs.pairOfKind[kind];
        std::memcpy(modes + i * sizeof mode, &mode, sizeof mode);
        std::memcpy(numbers + i * sizeof number, &number, sizeof number);
    }
    // Links by index: the same snapshot always gives the same bytes.
    std::vector<int32_t> links;
    for (const auto& [index, target] : access.linkTargets())
        if (index >= 1 && index <= snapshot.entryCount)
            links.push_back(index);
    std::sort(links.begin(), links.end());
    put(out, uint32_t(links.size()));
    for (const int32_t index : links) {
        const std::string_view target = access.linkTarget(index);
        put(out, index);
        put(out, uint32_t(target.size()));
        out += target;
    }
    if (fingerprints.taken()) {
        // The files that have one, by index, and how many could not be read.
        put(out, uint32_t(fingerprints.count()));
        put(out, uint32_t(fingerprints.unreadable));
        for (int32_t index = 1; index <= snapshot.entryCount; ++index)
            if (fingerprints.has(index)) {
                put(out, index);
                put(out, fingerprints.at(index).high);
                put(out, fingerprints.at(index).low);
            }
    }
    put(out, uint64_t(XXH3_64bits(out.data(), out.size())));
    return out;
}

namespace {

// The fingerprints column: the count, the files that could not be read,
// then index and fingerprint of each file that has one, in index order.
bool readFingerprints(Snapshot& snapshot, SideDataSource& in) {
    uint32_t count = 0, unreadable = 0;
    if (!in.get(count) || !in.get(unreadable) || count > uint32_t(snapshot.entryCount) ||
        unreadable > uint32_t(snapshot.entryCount))
        return false;
    FingerprintTable& fingerprints = snapshot.fingerprints;
    fingerprints.setTaken(true);
    fingerprints.unreadable = int32_t(unreadable);
    int32_t last = 0;
    for (uint32_t k = 0; k < count; ++k) {
        int32_t index = 0;
        Fingerprint fingerprint;
        if (!in.get(index) || !in.get(fingerprint.high) || !in.get(fingerprint.low) ||
            index <= last || index > snapshot.entryCount || snapshot.entries.get(index).isFolder())
            return false;
        fingerprints.set(index, fingerprint);
        last = index;
    }
    return true;
}

bool readSideData(Snapshot& snapshot, SideDataSource& in) {
    std::string text(FormatLine.size(), '\0');
    if (!in.get(text.data(), text.size()))
        return false;
    bool withFingerprints = false;
    if (text != FormatLine) {
        // The longer line has the shorter's length in common up to its end.
        const std::string_view rest = FingerprintFormatLine.substr(text.size());
        if (text != FingerprintFormatLine.substr(0, text.size()))
            return false;
        text.resize(rest.size());
        if (!in.get(text.data(), text.size()) || text != rest)
            return false;
        withFingerprints = true;
    }
    const std::string expected = countLine(snapshot.entryCount, snapshotChecksum(snapshot));
    text.resize(expected.size());
    if (!in.get(text.data(), text.size()) || text != expected)
        return false;

    const size_t count = size_t(snapshot.entryCount) + 1;
    uint32_t pairCount = 0;
    if (!in.get(pairCount) || pairCount > count)
        return false;
    std::vector<uint64_t> pairs(pairCount);
    std::vector<uint16_t> modes(count);
    if (!in.get(pairs.data(), pairs.size() * sizeof(uint64_t)) ||
        !in.get(modes.data(), modes.size() * sizeof(uint16_t)))
        return false;
    AccessTable& access = snapshot.access;
    access.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        uint32_t pairNumber = 0;
        if (!in.get(pairNumber))
            return false;
        if (modes[i] == AccessTable::None)
            continue;
        if (pairNumber >= pairCount)
            return false;
        access.setKept(int32_t(i), modes[i], pairs[pairNumber]);
    }
    uint32_t links = 0;
    if (!in.get(links))
        return false;
    std::string target;
    for (uint32_t k = 0; k < links; ++k) {
        int32_t index = 0;
        uint32_t length = 0;
        if (!in.get(index) || !in.get(length) || index < 1 || index > snapshot.entryCount ||
            length == 0 || length > (uint32_t(1) << 20))
            return false;
        target.resize(length);
        if (!in.get(target.data(), length))
            return false;
        access.setLinkTarget(index, target);
    }
    if (withFingerprints && !readFingerprints(snapshot, in))
        return false;
    return in.checked();
}

bool readSideDataFrom(Snapshot& snapshot, const SideDataSource::Read& read, int64_t size) {
    snapshot.access.clear();
    snapshot.fingerprints.clear();
    if (size < int64_t(FormatLine.size()) + 8)
        return false;
    SideDataSource in(read, size);
    if (readSideData(snapshot, in))
        return true;
    snapshot.access.clear();
    snapshot.fingerprints.clear();
    return false;
}

} // namespace

bool readMetaSideData(Snapshot& snapshot, std::string_view bytes) {
    size_t at = 0;
    return readSideDataFrom(
        snapshot,
        [&](char* to, int64_t n) {
            const size_t step = std::min(size_t(n), bytes.size() - at);
            std::memcpy(to, bytes.data() + at, step);
            at += step;
            return int64_t(step);
        },
        int64_t(bytes.size()));
}

namespace {
constexpr std::string_view FooterMark = "KSIDEDAT";
}

std::string sideDataTrailer(const Snapshot& snapshot) {
    std::string trailer = metaSideData(snapshot);
    if (trailer.empty())
        return trailer;
    put(trailer, uint64_t(trailer.size()));
    trailer += FooterMark;
    return trailer;
}

std::optional<StreamParts> streamParts(int64_t size, std::string_view footer) {
    if (size < StreamFooterLength || footer.size() != size_t(StreamFooterLength) ||
        footer.substr(8) != FooterMark)
        return std::nullopt;
    uint64_t length = 0;
    std::memcpy(&length, footer.data(), sizeof length);
    if (length > uint64_t(size - StreamFooterLength))
        return std::nullopt;
    return StreamParts{size - StreamFooterLength - int64_t(length), int64_t(length)};
}

MetaSideFile::MetaSideFile(const Snapshot& snapshot, std::optional<uint64_t> checksum)
    : m_snapshot(snapshot), m_checksum(checksum),
      m_writer(metaSideFilePath(snapshot.header.fileName)) {}

bool MetaSideFile::prepare() {
    return m_writer.prepare(metaSideData(m_snapshot, m_checksum));
}

bool MetaSideFile::commit() {
    return m_writer.commit();
}

namespace {

QString unreadableNotice(const Snapshot& snapshot) {
    return QStringLiteral("Permissions and owners of %1 are unreadable and were not used")
        .arg(QFileInfo(snapshot.header.fileName).fileName());
}

} // namespace

std::optional<QString> UseSideData(Snapshot& snapshot, std::string_view sideData) {
    if (readMetaSideData(snapshot, sideData))
        return std::nullopt;
    return unreadableNotice(snapshot);
}

std::optional<QString> LoadMetaSideFile(Snapshot& snapshot) {
    snapshot.access.clear();
    QFile file(metaSideFilePath(snapshot.header.fileName));
    const QByteArray name = QFile::encodeName(file.fileName());
    struct stat st;
    if (::lstat(name.constData(), &st) != 0)
        return std::nullopt; // a snapshot without side data
    const QString notice = unreadableNotice(snapshot);
    if (!S_ISREG(st.st_mode) || st.st_size > LargestSideFile ||
        !openForReading(file, QIODevice::ReadOnly, LinkRule::Refuse))
        return notice;
    const bool read = readSideDataFrom(
        snapshot, [&](char* to, int64_t n) { return int64_t(file.read(to, n)); }, file.size());
    if (!read)
        return notice;
    return std::nullopt;
}

} // namespace kestrel::engine
