#include "FileSystemNames.h"

#include "engine/support/ShortText.h"
#include "engine/support/TextDecode.h"

#include <cstdint>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace kestrel::engine {

namespace {

constexpr char Escape = '\\';
constexpr char16_t LoneByteBase = 0xDC00; // native text: byte b (0x80..0xFF) is U+DC00 + b

inline const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// Eight bytes that stored text keeps as they are: ASCII, no backslash.
inline bool plainWord(const unsigned char* p) {
    constexpr uint64_t HighBits = 0x8080808080808080ull;
    uint64_t w;
    std::memcpy(&w, p, 8);
    return (w & HighBits) == 0 && !wordHasByte(w, uint8_t(Escape));
}

// Where the first byte that stored text writes out lies (a backslash, or a
// byte that is not part of valid UTF-8); the size when there is none. Names
// are mostly plain ASCII: they are read a word at a time, the last bytes as
// the word that ends the name.
size_t firstToWriteOut(std::string_view bytes) {
    const unsigned char* p = bytesOf(bytes);
    const size_t size = bytes.size();
    size_t i = 0;
    while (i + 8 <= size && plainWord(p + i))
        i += 8;
    if (i + 8 > size && size >= 8 && plainWord(p + size - 8))
        return size;
    while (i < size) {
        const unsigned char c = p[i];
        if (c < 0x80) {
            if (c == uint8_t(Escape))
                return i;
            ++i;
            continue;
        }
        const int length = utf8SequenceLength(p + i, p + size);
        if (length == 0)
            return i;
        i += size_t(length);
    }
    return size;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

std::string_view storedName(std::string_view bytes, std::string& scratch) {
    size_t i = firstToWriteOut(bytes);
    if (i == bytes.size())
        return bytes;
    static constexpr char Hex[] = "0123456789ABCDEF";
    const unsigned char* p = bytesOf(bytes);
    const size_t size = bytes.size();
    scratch.assign(bytes.data(), i);
    while (i < size) {
        if (p[i] == uint8_t(Escape)) {
            scratch.append(2, Escape);
            ++i;
            continue;
        }
        const int length = utf8SequenceLength(p + i, p + size);
        if (length == 0) {
            const char escaped[] = {Escape, 'x', Hex[p[i] >> 4], Hex[p[i] & 15]};
            scratch.append(escaped, sizeof escaped);
            ++i;
            continue;
        }
        scratch.append(bytes.data() + i, size_t(length));
        i += size_t(length);
    }
    return scratch;
}

std::string fileSystemBytes(std::string_view stored) {
    std::string out;
    out.reserve(stored.size());
    const size_t size = stored.size();
    for (size_t i = 0; i < size; ++i) {
        const char c = stored[i];
        if (c == Escape && i + 1 < size) {
            if (stored[i + 1] == Escape) {
                out.push_back(Escape);
                ++i;
                continue;
            }
            if (stored[i + 1] == 'x' && i + 3 < size) {
                const int high = hexValue(stored[i + 2]);
                const int low = hexValue(stored[i + 3]);
                if (high >= 0 && low >= 0) {
                    out.push_back(char(high * 16 + low));
                    i += 3;
                    continue;
                }
            }
        }
        out.push_back(c);
    }
    return out;
}

QByteArray fileSystemPath(const QString& stored) {
    const QByteArray utf8 = stored.toUtf8();
    if (!utf8.contains(Escape))
        return utf8;
    const std::string bytes =
        fileSystemBytes(std::string_view(utf8.constData(), size_t(utf8.size())));
    return QByteArray(bytes.data(), qsizetype(bytes.size()));
}

QString nativeText(std::string_view bytes) {
    const unsigned char* p = bytesOf(bytes);
    const size_t size = bytes.size();
    QString out;
    size_t run = 0; // start of the valid UTF-8 not yet added
    size_t i = 0;
    while (i < size) {
        const int length = utf8SequenceLength(p + i, p + size);
        if (length > 0) {
            i += size_t(length);
            continue;
        }
        out += utf8Text(bytes.substr(run, i - run));
        out += QChar(char16_t(LoneByteBase + p[i]));
        run = ++i;
    }
    if (run == 0)
        return utf8Text(bytes);
    out += utf8Text(bytes.substr(run));
    return out;
}

QByteArray nativeBytes(const QString& native) {
    QByteArray out;
    qsizetype run = 0;
    const QStringView text(native);
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i].unicode();
        const bool loneByte = unit >= LoneByteBase + 0x80 && unit <= LoneByteBase + 0xFF &&
                              (i == 0 || !QChar::isHighSurrogate(text[i - 1].unicode()));
        if (!loneByte)
            continue;
        out += text.mid(run, i - run).toUtf8();
        out += char(unit - LoneByteBase);
        run = i + 1;
    }
    if (run == 0)
        return native.toUtf8();
    out += text.mid(run).toUtf8();
    return out;
}

QString storedPath(const QString& native) {
    const QByteArray bytes = nativeBytes(native);
    std::string scratch;
    const std::string_view stored =
        storedName(std::string_view(bytes.constData(), size_t(bytes.size())), scratch);
    return utf8Text(stored);
}

QString nativeFromStored(const QString& stored) {
    const QByteArray bytes = fileSystemPath(stored);
    return nativeText(std::string_view(bytes.constData(), size_t(bytes.size())));
}

PathInfo pathInfo(const QByteArray& bytes) {
    PathInfo info;
    struct stat st;
    if (bytes.isEmpty() || ::stat(bytes.constData(), &st) != 0)
        return info;
    info.exists = true;
    info.folder = S_ISDIR(st.st_mode);
    info.file = S_ISREG(st.st_mode);
    info.executable = ::access(bytes.constData(), X_OK) == 0;
    return info;
}

} // namespace kestrel::engine
