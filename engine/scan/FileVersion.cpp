#include "FileVersion.h"

#include "engine/support/RegularFile.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

int16_t HighWord(int32_t value) {
    return int16_t(value >> 16);
}

int16_t LowWord(int32_t value) {
    return int16_t(uint16_t(uint32_t(value) & 0xFFFFu));
}

namespace {

// A number with at least minDigits digits, the sign in front of the padding
// ("-05", not "0-5"). Never truncates.
std::string padded(int64_t value, size_t minDigits) {
    const bool negative = value < 0;
    std::string digits = std::to_string(negative ? -value : value);
    if (digits.size() < minDigits)
        digits.insert(0, minDigits - digits.size(), '0');
    return negative ? "-" + digits : digits;
}

// Where the image's bytes come from: memory or an open file. read() fails,
// rather than reading short, when any part of the range lies outside.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    virtual bool read(uint64_t offset, void* out, size_t length) = 0;

    template <typename T> std::optional<T> get(uint64_t offset) {
        uint8_t bytes[sizeof(T)];
        if (!read(offset, bytes, sizeof(T)))
            return std::nullopt;
        // Little-endian, assembled byte by byte so the host order never matters.
        T value = 0;
        for (size_t i = sizeof(T); i-- > 0;)
            value = T((value << 8) | bytes[i]);
        return value;
    }
};

bool rangeInside(uint64_t offset, uint64_t length, uint64_t size) {
    return length <= size && offset <= size - length;
}

class SpanSource : public ByteSource {
public:
    explicit SpanSource(std::span<const uint8_t> bytes) : m_bytes(bytes) {}

    bool read(uint64_t offset, void* out, size_t length) override {
        if (!rangeInside(offset, length, m_bytes.size()))
            return false;
        if (length > 0)
            std::memcpy(out, m_bytes.data() + offset, length);
        return true;
    }

private:
    std::span<const uint8_t> m_bytes;
};

// Reads an open file with pread, never the whole file. The parser asks for
// many small pieces that sit close together (headers, section entries,
// directory entries), so the last 4 KiB read is kept and later pieces are
// served from it. No piece the parser needs is larger than that.
class FileSource : public ByteSource {
public:
    static constexpr size_t kWindow = 4096;

    FileSource(int fd, uint64_t size) : m_fd(fd), m_size(size) {}

    bool read(uint64_t offset, void* out, size_t length) override {
        if (length > kWindow || !rangeInside(offset, length, m_size))
            return false;
        if (length == 0)
            return true;
        if (offset < m_windowStart || offset + length > m_windowStart + m_window.size()) {
            const size_t windowLength = size_t(std::min<uint64_t>(kWindow, m_size - offset));
            m_window.resize(windowLength);
            m_windowStart = offset;
            if (!readFully(offset, m_window.data(), windowLength)) {
                m_window.clear();
                return false;
            }
        }
        std::memcpy(out, m_window.data() + (offset - m_windowStart), length);
        return true;
    }

private:
    bool readFully(uint64_t offset, void* out, size_t length) {
        auto* dest = static_cast<uint8_t*>(out);
        while (length > 0) {
            const ssize_t n = ::pread(m_fd, dest, length, off_t(offset));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) // an error, or the file shrank since fstat
                return false;
            dest += n;
            offset += uint64_t(n);
            length -= size_t(n);
        }
        return true;
    }

    int m_fd;
    uint64_t m_size;
    std::vector<uint8_t> m_window;
    uint64_t m_windowStart = 0;
};

constexpr uint16_t kDosMagic = 0x5A4D;    // "MZ"
constexpr uint32_t kPeSignature = 0x4550; // "PE\0\0"
constexpr uint16_t kPe32Magic = 0x10B;
constexpr uint16_t kPe32PlusMagic = 0x20B;
constexpr uint32_t kResourceDirectoryIndex = 2;
constexpr uint32_t kSectionHeaderSize = 40;
constexpr uint32_t kRtVersion = 16;
constexpr uint32_t kHighBit = 0x80000000u;
constexpr uint32_t kFixedFileInfoSignature = 0xFEEF04BD;
constexpr uint16_t kFixedFileInfoSize = 52;
// Far more resource types than any real image has; keeps a hostile count from
// making the walk long.
constexpr uint32_t kMaxTypeEntries = 4096;

// Where the bytes of an RVA sit in the file, and how many of them the file
// holds from there to the end of the section's raw data.
struct FileRange {
    uint64_t offset = 0;
    uint64_t length = 0;
};

class PeParser {
public:
    explicit PeParser(ByteSource& source) : m_src(source) {}

    std::optional<FixedFileVersion> fixedFileVersion() {
        if (m_src.get<uint16_t>(0) != kDosMagic)
            return std::nullopt;
        const auto peOffset = m_src.get<uint32_t>(0x3C);
        if (!peOffset || m_src.get<uint32_t>(*peOffset) != kPeSignature)
            return std::nullopt;

        const uint64_t coff = uint64_t(*peOffset) + 4;
        const auto sectionCount = m_src.get<uint16_t>(coff + 2);
        const auto optionalSize = m_src.get<uint16_t>(coff + 16);
        if (!sectionCount || !optionalSize)
            return std::nullopt;
        const uint64_t optional = coff + 20;
        m_sectionTable = optional + *optionalSize;
        m_sectionCount = *sectionCount;

        const auto magic = m_src.get<uint16_t>(optional);
        uint32_t countField;
        if (magic == kPe32Magic)
            countField = 92;
        else if (magic == kPe32PlusMagic)
            countField = 108;
        else
            return std::nullopt;
        const auto dirCount = m_src.get<uint32_t>(optional + countField);
        const uint64_t entryAt = countField + 4 + kResourceDirectoryIndex * 8;
        // The entry must lie inside the optional header the COFF header declares.
        if (!dirCount || *dirCount <= kResourceDirectoryIndex || entryAt + 8 > *optionalSize)
            return std::nullopt;
        const auto resourceRva = m_src.get<uint32_t>(optional + entryAt);
        if (!resourceRva || *resourceRva == 0)
            return std::nullopt;

        const auto resources = mapRva(*resourceRva);
        if (!resources)
            return std::nullopt;
        return findVersion(*resources);
    }

private:
    std::optional<FileRange> mapRva(uint32_t rva) {
        for (uint32_t i = 0; i < m_sectionCount; ++i) {
            const uint64_t header = m_sectionTable + uint64_t(i) * kSectionHeaderSize;
            const auto virtualSize = m_src.get<uint32_t>(header + 8);
            const auto virtualAddress = m_src.get<uint32_t>(header + 12);
            const auto rawSize = m_src.get<uint32_t>(header + 16);
            const auto rawOffset = m_src.get<uint32_t>(header + 20);
            if (!virtualSize || !virtualAddress || !rawSize || !rawOffset)
                return std::nullopt;
            // Linkers that leave VirtualSize zero mean the raw size.
            const uint64_t extent = *virtualSize ? *virtualSize : *rawSize;
            if (rva < *virtualAddress || rva - *virtualAddress >= extent)
                continue;
            // Bytes past the raw data are zero-filled in memory and absent from the file.
            const uint64_t into = rva - *virtualAddress;
            if (into >= *rawSize)
                return std::nullopt;
            return FileRange{uint64_t(*rawOffset) + into, *rawSize - into};
        }
        return std::nullopt;
    }

    // An entry of the resource directory at dirOffset (relative to the root):
    // its name or id word and its data word.
    struct DirEntry {
        uint32_t name = 0;
        uint32_t data = 0;
    };

    std::optional<DirEntry> entryAt(const FileRange& root, uint64_t dirOffset, uint32_t index) {
        const uint64_t at = dirOffset + 16 + uint64_t(index) * 8;
        if (!rangeInside(at, 8, root.length))
            return std::nullopt;
        const auto name = m_src.get<uint32_t>(root.offset + at);
        const auto data = m_src.get<uint32_t>(root.offset + at + 4);
        if (!name || !data)
            return std::nullopt;
        return DirEntry{*name, *data};
    }

    std::optional<uint32_t> entryCount(const FileRange& root, uint64_t dirOffset) {
        if (!rangeInside(dirOffset, 16, root.length))
            return std::nullopt;
        const auto named = m_src.get<uint16_t>(root.offset + dirOffset + 12);
        const auto ids = m_src.get<uint16_t>(root.offset + dirOffset + 14);
        if (!named || !ids)
            return std::nullopt;
        return uint32_t(*named) + *ids;
    }

    // The first entry of a directory, which must itself be a directory
    // (wantDirectory) or a data entry.
    std::optional<uint64_t> firstChild(const FileRange& root, uint64_t dirOffset,
                                       bool wantDirectory) {
        const auto count = entryCount(root, dirOffset);
        if (!count || *count == 0)
            return std::nullopt;
        const auto entry = entryAt(root, dirOffset, 0);
        if (!entry || bool(entry->data & kHighBit) != wantDirectory)
            return std::nullopt;
        return entry->data & ~kHighBit;
    }

    // The resource tree is walked to a fixed depth of three (type, name,
    // language), so entries that point back up the tree cannot make it loop.
    std::optional<FixedFileVersion> findVersion(const FileRange& root) {
        const auto typeCount = entryCount(root, 0);
        if (!typeCount)
            return std::nullopt;
        std::optional<uint64_t> nameDir;
        for (uint32_t i = 0; i < std::min(*typeCount, kMaxTypeEntries); ++i) {
            const auto entry = entryAt(root, 0, i);
            if (!entry)
                return std::nullopt;
            if (entry->name == kRtVersion) { // a named type has the high bit set
                if (!(entry->data & kHighBit))
                    return std::nullopt;
                nameDir = entry->data & ~kHighBit;
                break;
            }
        }
        if (!nameDir)
            return std::nullopt;
        const auto languageDir = firstChild(root, *nameDir, true);
        if (!languageDir)
            return std::nullopt;
        const auto dataEntry = firstChild(root, *languageDir, false);
        if (!dataEntry || !rangeInside(*dataEntry, 16, root.length))
            return std::nullopt;
        const auto dataRva = m_src.get<uint32_t>(root.offset + *dataEntry);
        const auto dataSize = m_src.get<uint32_t>(root.offset + *dataEntry + 4);
        if (!dataRva || !dataSize)
            return std::nullopt;
        auto block = mapRva(*dataRva);
        if (!block)
            return std::nullopt;
        block->length = std::min<uint64_t>(block->length, *dataSize);
        return readVersionBlock(*block);
    }

    // VS_VERSIONINFO: wLength, wValueLength, wType, the key "VS_VERSION_INFO"
    // in UTF-16 with its terminator, padding to 32 bits, VS_FIXEDFILEINFO.
    std::optional<FixedFileVersion> readVersionBlock(const FileRange& block) {
        static constexpr char16_t kKey[] = u"VS_VERSION_INFO";
        constexpr uint64_t keyOffset = 6;
        constexpr uint64_t keyBytes = sizeof(kKey); // includes the terminator
        constexpr uint64_t valueOffset = (keyOffset + keyBytes + 3) & ~uint64_t(3);
        if (!rangeInside(valueOffset, kFixedFileInfoSize, block.length))
            return std::nullopt;

        std::array<uint8_t, valueOffset + kFixedFileInfoSize> bytes;
        if (!m_src.read(block.offset, bytes.data(), bytes.size()))
            return std::nullopt;
        SpanSource fields(bytes);
        if (fields.get<uint16_t>(2).value_or(0) < kFixedFileInfoSize)
            return std::nullopt;
        for (size_t i = 0; i < std::size(kKey); ++i) {
            if (fields.get<uint16_t>(keyOffset + 2 * i) != uint16_t(kKey[i]))
                return std::nullopt;
        }
        if (fields.get<uint32_t>(valueOffset) != kFixedFileInfoSignature)
            return std::nullopt;
        return FixedFileVersion{*fields.get<uint32_t>(valueOffset + 8),
                                *fields.get<uint32_t>(valueOffset + 12)};
    }

    ByteSource& m_src;
    uint64_t m_sectionTable = 0;
    uint32_t m_sectionCount = 0;
};

class FdCloser {
public:
    explicit FdCloser(int fd) : m_fd(fd) {}
    ~FdCloser() { ::close(m_fd); }
    FdCloser(const FdCloser&) = delete;
    FdCloser& operator=(const FdCloser&) = delete;

private:
    int m_fd;
};

} // namespace

std::string formatFileVersion(FixedFileVersion version) {
    const auto ms = int32_t(version.mostSignificant);
    const auto ls = int32_t(version.leastSignificant);
    std::string text = padded(HighWord(ms), 1) + "." + padded(LowWord(ms), 2) + ".";
    // A least significant word below 1 (zero, or negative with its top bit
    // set) prints whole rather than as two halves.
    if (ls < 1)
        text += padded(ls, 4);
    else
        text += padded(HighWord(ls), 2) + "." + padded(LowWord(ls), 2);
    return text;
}

std::optional<FixedFileVersion> parseFixedFileVersion(std::span<const uint8_t> image) {
    SpanSource source(image);
    return PeParser(source).fixedFileVersion();
}

std::string fileVersionTextAt(int dirFd, const char* name, const struct stat* listed) {
    if (name == nullptr)
        return {};
    struct stat looked;
    if (!listed) {
        if (::fstatat(dirFd, name, &looked, AT_SYMLINK_NOFOLLOW) != 0)
            return {};
        listed = &looked;
    }
    // Anything but a regular file stays closed: opening a FIFO releases a
    // writer waiting on it, opening a device can act on the device.
    if (!S_ISREG(listed->st_mode) || listed->st_size <= 0)
        return {};
    const int fd = openRegularFileAt(dirFd, name, LinkRule::Refuse, listed);
    if (fd < 0)
        return {};
    FdCloser closer(fd);
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_dev != listed->st_dev ||
        st.st_ino != listed->st_ino || st.st_size <= 0)
        return {};
    FileSource source(fd, uint64_t(st.st_size));
    const auto version = PeParser(source).fixedFileVersion();
    return version ? formatFileVersion(*version) : std::string();
}

QString GetFileVersionText(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    return QString::fromLatin1(fileVersionTextAt(AT_FDCWD, name.constData()));
}

} // namespace kestrel::engine
