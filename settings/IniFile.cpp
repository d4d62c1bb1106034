#include "IniFile.h"

#include "engine/file/FileWriting.h"
#include "engine/file/SnapshotFile.h"
#include "engine/support/TextDecode.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>

#include <cmath>
#include <vector>

namespace kestrel::settings {

namespace {

// The longest value a read returns: a 255-character buffer less its NUL.
constexpr qsizetype MaxRead = 254;

const QString Main = QStringLiteral("Main");
const QString Top = QStringLiteral("Top");
const QString Left = QStringLiteral("Left");
const QString Height = QStringLiteral("Height");
const QString Width = QStringLiteral("Width");
const QString Window = QStringLiteral("Window");
const QString Folder = QStringLiteral("Folder");
const QString Drive = QStringLiteral("Drive");
const QString Version = QStringLiteral("Version");
const QString Exclude = QStringLiteral("Exclude");
const QString Fingerprints = QStringLiteral("Fingerprints");

// One line of the file as it is on disk, its line end apart, so that a
// rewrite gives back every line it does not change byte for byte, whatever
// its encoding (a comment written by a Windows editor in Windows-1252, say).
struct IniLine {
    QByteArray text;
    QByteArray end; // "\n", "\r\n" or nothing on a last line without one
};

std::vector<IniLine> readLines(const QString& path) {
    QFile file(path);
    if (!engine::openForReading(file, QIODevice::ReadOnly))
        return {};
    const QByteArray bytes = file.readAll();
    std::vector<IniLine> lines;
    qsizetype start = 0;
    while (start < bytes.size()) {
        qsizetype stop = bytes.indexOf('\n', start);
        IniLine line;
        if (stop < 0) {
            line.text = bytes.mid(start);
            stop = bytes.size();
        } else {
            const bool crlf = stop > start && bytes.at(stop - 1) == '\r';
            line.text = bytes.mid(start, stop - start - (crlf ? 1 : 0));
            line.end = crlf ? QByteArray("\r\n") : QByteArray("\n");
            ++stop;
        }
        lines.push_back(std::move(line));
        start = stop;
    }
    return lines;
}

// Names and values are read as UTF-8 where they are, else as Windows-1252.
QString decoded(const QByteArray& bytes) {
    return engine::decodeText(std::string_view(bytes.constData(), size_t(bytes.size())));
}

bool isSectionHeader(const QByteArray& line, QString* name = nullptr) {
    const QByteArray t = line.trimmed();
    if (!t.startsWith('['))
        return false;
    const qsizetype close = t.indexOf(']');
    if (close < 0)
        return false;
    if (name)
        *name = decoded(t.mid(1, close - 1).trimmed());
    return true;
}

bool isKeyLine(const QByteArray& line, const QString& key, QString* value = nullptr) {
    const qsizetype eq = line.indexOf('=');
    if (eq < 0)
        return false;
    if (decoded(line.left(eq).trimmed()).compare(key, Qt::CaseInsensitive) != 0)
        return false;
    if (value)
        *value = decoded(line.mid(eq + 1).trimmed());
    return true;
}

} // namespace

QString IniFile::readString(const QString& section, const QString& key,
                            const QString& defaultValue) const {
    bool inSection = false;
    QString found = defaultValue;
    for (const IniLine& line : readLines(m_path)) {
        QString name;
        if (isSectionHeader(line.text, &name)) {
            inSection = name.compare(section, Qt::CaseInsensitive) == 0;
            continue;
        }
        QString value;
        if (inSection && isKeyLine(line.text, key, &value)) {
            // A value in matching quotes is given without them.
            if (value.size() >= 2 && value.front() == value.back() &&
                (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\'')))
                value = value.mid(1, value.size() - 2);
            found = value;
            break;
        }
    }
    return found.left(MaxRead);
}

bool IniFile::writeString(const QString& section, const QString& key, const QString& value) const {
    std::vector<IniLine> lines = readLines(m_path);
    const bool remove = value.isEmpty();
    qsizetype sectionStart = -1; // index of the header line
    qsizetype sectionEnd = -1;   // index after the section's last non-blank line
    qsizetype keyLine = -1;
    for (qsizetype i = 0; i < qsizetype(lines.size()); ++i) {
        const QByteArray& text = lines[size_t(i)].text;
        QString name;
        if (isSectionHeader(text, &name)) {
            if (sectionStart >= 0 && sectionEnd >= 0)
                break;
            if (name.compare(section, Qt::CaseInsensitive) == 0) {
                sectionStart = i;
                sectionEnd = i + 1;
            }
            continue;
        }
        if (sectionStart >= 0) {
            if (!text.trimmed().isEmpty())
                sectionEnd = i + 1;
            if (keyLine < 0 && isKeyLine(text, key))
                keyLine = i;
        }
    }
    // New lines end as the file's first line does.
    const QByteArray lineEnd =
        lines.empty() || lines.front().end.isEmpty() ? QByteArray("\n") : lines.front().end;
    const auto line = [&lineEnd](const QString& text) { return IniLine{text.toUtf8(), lineEnd}; };
    const IniLine newLine = line(key + QLatin1Char('=') + value);
    if (keyLine >= 0) {
        if (remove)
            lines.erase(lines.begin() + keyLine);
        else
            lines[size_t(keyLine)].text = newLine.text;
    } else if (remove) {
        return true; // nothing to delete
    } else if (sectionStart >= 0) {
        lines.insert(lines.begin() + sectionEnd, newLine);
    } else {
        lines.push_back(line(QLatin1Char('[') + section + QLatin1Char(']')));
        lines.push_back(newLine);
    }
    QByteArray bytes;
    for (size_t i = 0; i < lines.size(); ++i) {
        bytes += lines[i].text;
        // A last line without its end keeps it so, unless lines follow now.
        bytes += lines[i].end.isEmpty() && i + 1 < lines.size() ? lineEnd : lines[i].end;
    }
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    return engine::replaceFile(m_path, std::string_view(bytes.constData(), size_t(bytes.size())));
}

namespace {

// A number of the window's placement: a stored text that is not one (or
// one too large for any screen) leaves present as it was.
int readPlacementNumber(const IniFile& ini, const QString& key, int present) {
    const QString text = ini.readString(Main, key, QString::number(present)).trimmed();
    bool ok = false;
    const double value = text.toDouble(&ok);
    return ok && std::isfinite(value) && std::abs(value) < 1e9 ? int(std::lround(value)) : present;
}

} // namespace

FramePlacement IniFile::readFramePlacement(const FramePlacement& present) const {
    FramePlacement placement;
    placement.top = readPlacementNumber(*this, Top, present.top);
    placement.left = readPlacementNumber(*this, Left, present.left);
    placement.height = readPlacementNumber(*this, Height, present.height);
    placement.width = readPlacementNumber(*this, Width, present.width);
    return placement;
}

void IniFile::writeFramePlacement(const FramePlacement& placement) const {
    writeString(Main, Top, QString::number(placement.top));
    writeString(Main, Left, QString::number(placement.left));
    writeString(Main, Height, QString::number(placement.height));
    writeString(Main, Width, QString::number(placement.width));
}

FrameState IniFile::readFrameState() const {
    switch (readPlacementNumber(*this, Window, int(FrameState::Normal))) {
    case int(FrameState::Minimised):
        return FrameState::Minimised;
    case int(FrameState::Maximised):
        return FrameState::Maximised;
    default:
        return FrameState::Normal;
    }
}

void IniFile::writeFrameState(FrameState state) const {
    writeString(Main, Window, QString::number(int(state)));
}

ScanFolders IniFile::readScanFolders() const {
    return {readString(Main, Folder, QString()), readString(Main, Drive, QString()),
            readString(Main, Version, QString()), readString(Main, Exclude, QString()),
            readString(Main, Fingerprints, QString()) == QLatin1String("1")};
}

void IniFile::writeScanFolders(const ScanFolders& folders) const {
    writeString(Main, Folder, folders.folder);
    writeString(Main, Drive, folders.drive);
    writeString(Main, Version, folders.versionFolder);
    writeString(Main, Exclude, folders.exclude);
    writeString(Main, Fingerprints,
                folders.fingerprints ? QStringLiteral("1") : QStringLiteral("0"));
}

QString IniFile::defaultPath() {
    // The program's folder counts only while the program keeps its own files
    // beside it (the build folder, a copy unpacked anywhere). An installed
    // program keeps them in share/kestrel, and its bin/ folder is shared
    // with every other program: writable there by root alone, and never the
    // place for one user's file.
    const QString programFolder = QCoreApplication::applicationDirPath();
    const QFileInfo folder(programFolder);
    const bool ownFolder = QFileInfo::exists(programFolder + QStringLiteral("/KestHelp.htm"));
    if (!programFolder.isEmpty() && ownFolder && folder.isDir() && folder.isWritable())
        return programFolder + QStringLiteral("/Kestrel.ini");
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/Kestrel/Kestrel.ini");
}

} // namespace kestrel::settings
